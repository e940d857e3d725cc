# SPDX-License-Identifier: MIT
# Functions and package lists that the scripts of this folder share. Sourced, not run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# More compilers than processors push each other out of the caches, which costs a tenth.
CMAKE_BUILD_PARALLEL_LEVEL=$(nproc)
export CMAKE_BUILD_PARALLEL_LEVEL

# Installs those of the given Debian packages that are missing, as root or with sudo.
need_packages() {
    local missing=() package sudo=()
    for package in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    echo "Installing ${missing[*]}"
    [ "$(id -u)" = 0 ] || sudo=(sudo)
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
        "${missing[@]}" >/dev/null
}

# Configures and builds a preset, all of it or the targets that $targets names. Output is shown only on failure.
targets=all
build_preset() { # preset, then options for the configuration
    local preset=$1 log
    shift
    log=$(mktemp)
    # A part that a plain cmake would leave out for want of a package is a failure here.
    if ! { cmake --preset "$preset" "$@" && cmake --build --preset "$preset" --target $targets; } >"$log" 2>&1 ||
        grep -q 'is missing: built' "$log"; then
        cat "$log" >&2
        rm -f "$log"
        echo "the build of $preset failed" >&2
        return 1
    fi
    rm -f "$log"
}

# For builds from nothing: the sources of a target are compiled as one, so that their headers are read once. Without these
# options each file is compiled by itself, which suits work on single files.
united=(-DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0)

build_packages=(cmake ninja-build g++ pkg-config libcli11-dev nlohmann-json3-dev)
tool_packages=(libavformat-dev libavcodec-dev libavfilter-dev libavutil-dev libxxhash-dev libebml-dev
    libmatroska-dev)
reader_packages=(ffmpeg mkvtoolnix)
packaging_packages=(g++-multilib dpkg-dev file lintian libgstreamer1.0-dev)
browser_packages=(chromium)
# Node from elsewhere will do, from version 18 on.
command -v node >/dev/null || browser_packages+=(nodejs)
command -v npm >/dev/null || browser_packages+=(npm)
# For the tests of readers.
reader_test_packages=(mediainfo libwebm-tools gstreamer1.0-tools gstreamer1.0-plugins-base
    gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly gstreamer1.0-libav
    libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev python3 python3-av python3-gi python3-mpv python3-numpy gir1.2-gst-plugins-base-1.0)
# For the tests of the Python package, which run with Debian's Python whatever else is on the path.
python_packages=(python3 python3-av python3-numpy python3-pytest mypy)
# The presets with sanitizers.
sanitizer_packages=(clang-14 libclang-rt-14-dev lld-14)
# For the tests of costs and, in addition, for scripts/bench.
cost_packages=(valgrind)
command -v python3 >/dev/null || cost_packages+=(python3)
# The engines of Docs/Scaling.md. Debian starts the services of openssh-server and munge when it installs them.
engine_packages=(ffmpeg parallel slurm-wlm munge openssh-server openssh-client python3)
bench_packages=(g++-multilib gnuplot-nox libbenchmark-dev libwebm-dev dpkg-dev)
