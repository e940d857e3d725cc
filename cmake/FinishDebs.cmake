# SPDX-License-Identifier: MIT
# Run after cpack: sets two Debian fields that this version of CMake cannot set.
#
# Multi-Arch: the plug-in, the library and the headers of both ABIs lie side by side, and a tool serves hosts of any.
# Depends: an i386 build on an amd64 machine runs on amd64's 32-bit libraries, which dpkg-shlibdeps then names. An i386
# package depends on their i386 counterparts, built from the same sources in the same versions.
foreach(deb IN LISTS CPACK_PACKAGE_FILES)
    set(tree ${deb}.tree)
    file(REMOVE_RECURSE ${tree})
    execute_process(COMMAND dpkg-deb --raw-extract ${deb} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    file(READ ${tree}/DEBIAN/control control)
    string(REGEX REPLACE "lib32(gcc-s1|stdc\\+\\+6)" "lib\\1" control "${control}")
    string(REPLACE "libc6-i386" "libc6" control "${control}")
    if(deb MATCHES "/(qf-mkv-tools|qfmux|qfmap)|_all\\.deb")
        set(kind foreign)
    else()
        set(kind same)
    endif()
    string(REGEX REPLACE "\nDescription:" "\nMulti-Arch: ${kind}\nDescription:" control "${control}")
    file(WRITE ${tree}/DEBIAN/control "${control}")
    execute_process(
        COMMAND dpkg-deb --root-owner-group --build ${tree} ${deb} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${tree})
endforeach()
