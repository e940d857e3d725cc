# SPDX-License-Identifier: MIT
# Functions that the engines' tests share. Sourced, not run.
set -euo pipefail
docs=$(realpath "$(dirname "$0")/../../Docs")

# Goes to an empty folder from which the library of clips is seen, with the tools on PATH.
begin() { # BIN CLIPS FOLDER
    PATH=$(realpath "$1"):$PATH
    clips=$(realpath "$2")
    rm -rf "$3"
    mkdir -p "$3"
    cd "$3"
    ln -s "$clips/library" .
    mkdir home
    export HOME=$PWD/home # where parallel keeps notes of its own
}

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# The page's command that begins with these words, up to the end of its last line.
line() {
    local words
    words=$(awk -v start="    $1" 'index($0, start) == 1 { on = 1 } on { print } on && !/\\$/ { exit }' "$docs/Scaling.md")
    [ -n "$words" ] || fail "Docs/Scaling.md has no line $1"
    echo "$words"
}

wait_for() { # seconds, what for, then a command that succeeds once it is there
    local seconds=$1 what=$2 end=$((SECONDS + $1))
    shift 2
    until "$@"; do
        [ "$SECONDS" -lt "$end" ] || fail "waited $seconds s for $what"
        sleep 0.2
    done
}

free_port() {
    python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

# Prints each file with its inode: a file that is made again has another one.
outputs() { [ ! -d out ] || find out -name '*.mkv' -printf '%p %i %T@ %s\n' | sort; }

# Checks that exactly the files of files.txt exist and that each is whole.
all_whole() {
    diff <(sed 's|.*|out/&.mkv|' files.txt | sort) <(find out -type f | sort) || fail "not exactly the files of the list"
    whole
    # Every picture of every clip, in one reading: 25 a clip.
    sed "s|.*|file 'out/&.mkv'|" files.txt >concat.txt
    pictures=$(ffprobe -v error -f concat -safe 0 -select_streams v -count_packets -show_entries stream=nb_read_packets \
        -of csv=p=0 concat.txt)
    [ "$pictures" = $((25 * $(wc -l <files.txt))) ] || fail "$pictures pictures"
}
whole() { find out -name '*.mkv' -print0 | xargs -0 -n 1 qfmap >/dev/null || fail "a file is not whole"; }
