# SPDX-License-Identifier: MIT
# The files that cmake --install installs, and the .deb packages that cpack makes of them: one for each component.
include(CMakePackageConfigHelpers)
# Builds all that is installed, without the tests.
add_custom_target(shipped DEPENDS qf_mkv)

# The plug-in, and the files with which a host finds it and builds: find_package(qf_mkv) and pkg-config.
set_target_properties(qf_mkv PROPERTIES EXPORT_NAME plugin)
set_target_properties(qf_mkv_headers PROPERTIES EXPORT_NAME headers)
install(
    TARGETS qf_mkv qf_mkv_headers
    EXPORT qf_mkv
    LIBRARY DESTINATION ${QF_PLUGIN_FOLDER} COMPONENT plugin
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qf_mkv COMPONENT dev)

set(package_folder ${QF_LIBRARY_FOLDER}/cmake/qf_mkv)
set(pkgconfig_folder ${QF_LIBRARY_FOLDER}/pkgconfig)
file(RELATIVE_PATH QF_PREFIX_FROM_PC /usr/${pkgconfig_folder} /usr)
configure_file(cmake/qf_mkv.pc.in qf_mkv.pc @ONLY)
configure_package_config_file(
    cmake/qf_mkvConfig.cmake.in qf_mkvConfig.cmake INSTALL_DESTINATION ${package_folder} PATH_VARS QF_PLUGIN_FOLDER)
write_basic_package_version_file(qf_mkvConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT qf_mkv NAMESPACE qf_mkv:: FILE qf_mkvTargets.cmake DESTINATION ${package_folder} COMPONENT dev)
install(
    FILES ${PROJECT_BINARY_DIR}/qf_mkvConfig.cmake ${PROJECT_BINARY_DIR}/qf_mkvConfigVersion.cmake
    DESTINATION ${package_folder}
    COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/qf_mkv.pc DESTINATION ${pkgconfig_folder} COMPONENT dev)
# Installs pages and adapts their links: a link becomes one to a page beside it or to an installed header, or plain text
# where its target is not installed.
function(qf_install_pages component package) # then pages of Docs
    foreach(page ${ARGN})
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS Docs/${page})
        file(READ Docs/${page} text)
        string(REGEX REPLACE "\\]\\(\\.\\./Source/Plugins/qf_mkv/([A-Za-z]+\\.h)\\)" "](../../../include/qf_mkv/\\1)" text
                             "${text}")
        string(REPLACE "](../Source/Host/qf_host.h)" "](../../../include/qf_host.h)" text "${text}")
        file(GLOB others RELATIVE ${PROJECT_SOURCE_DIR}/Docs Docs/*.md)
        list(REMOVE_ITEM others ${ARGN})
        foreach(other ${others})
            string(REGEX REPLACE "\\[([^]]*)\\]\\(${other}(#[^)]*)?\\)" "\\1" text "${text}")
        endforeach()
        file(WRITE ${PROJECT_BINARY_DIR}/pages/${package}/${page} "${text}")
        install(
            FILES ${PROJECT_BINARY_DIR}/pages/${package}/${page}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
            COMPONENT ${component})
    endforeach()
endfunction()

# Installs the files that Debian requires of a package: its licence and a changelog. SOURCE_DATE_EPOCH sets the time.
function(qf_install_legal component package)
    install(
        FILES cmake/copyright
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
        COMPONENT ${component})
    install(CODE "set(QF_PACKAGE ${package})\nset(QF_VERSION ${PROJECT_VERSION})" COMPONENT ${component})
    install(SCRIPT cmake/Changelog.cmake COMPONENT ${component})
endfunction()

qf_install_legal(plugin qf-mkv-plugin)
qf_install_legal(dev qf-mkv-dev)
qf_install_pages(dev qf-mkv-dev HostGuide.md FileLayout.md)
# The example host is the first C++ block of the guide.
file(READ Docs/HostGuide.md guide)
string(REGEX MATCH "\n```cpp\n" fence "${guide}")
string(FIND "${guide}" "${fence}" begin)
string(LENGTH "${fence}" length)
math(EXPR begin "${begin} + ${length}")
string(SUBSTRING "${guide}" ${begin} -1 guide)
string(FIND "${guide}" "\n```" end)
string(SUBSTRING "${guide}" 0 ${end} guide)
file(WRITE ${PROJECT_BINARY_DIR}/pages/host.cpp "${guide}\n")
install(
    FILES ${PROJECT_BINARY_DIR}/pages/host.cpp
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/qf-mkv-dev/examples
    COMPONENT dev)

# The C library on top of the plug-in: find_package(qf_host) and pkg-config.
add_dependencies(shipped qf_host qf_host_static)
install(
    TARGETS qf_host qf_host_static
    EXPORT qf_host
    LIBRARY DESTINATION ${QF_LIBRARY_FOLDER} COMPONENT host NAMELINK_COMPONENT hostdev
    ARCHIVE DESTINATION ${QF_LIBRARY_FOLDER} COMPONENT hostdev
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT hostdev)
set(package_folder ${QF_LIBRARY_FOLDER}/cmake/qf_host)
configure_file(cmake/qf_host.pc.in qf_host.pc @ONLY)
configure_package_config_file(cmake/qf_hostConfig.cmake.in qf_hostConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(
    qf_hostConfigVersion.cmake VERSION ${QF_HOST_VERSION} COMPATIBILITY SameMajorVersion)
install(EXPORT qf_host NAMESPACE qf_host:: FILE qf_hostTargets.cmake DESTINATION ${package_folder} COMPONENT hostdev)
install(
    FILES ${PROJECT_BINARY_DIR}/qf_hostConfig.cmake ${PROJECT_BINARY_DIR}/qf_hostConfigVersion.cmake
    DESTINATION ${package_folder}
    COMPONENT hostdev)
install(FILES ${PROJECT_BINARY_DIR}/qf_host.pc DESTINATION ${pkgconfig_folder} COMPONENT hostdev)

qf_install_legal(host libqf-host${QF_HOST_MAJOR})
qf_install_legal(hostdev libqf-host-dev)
qf_install_pages(hostdev libqf-host-dev HostGuide.md)

# The Python package on top of that library: one for all ABIs, built with the 64-bit packages.
if(NOT CMAKE_SYSTEM_PROCESSOR STREQUAL i386)
    install(
        DIRECTORY Source/Bindings/python/qf_mkv
        DESTINATION lib/python3/dist-packages
        COMPONENT python
        FILES_MATCHING
        PATTERN "*.py"
        PATTERN "py.typed"
        PATTERN __pycache__ EXCLUDE)
    install(
        DIRECTORY Source/Bindings/python/examples
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/python3-qf-mkv
        COMPONENT python USE_SOURCE_PERMISSIONS
        PATTERN __pycache__ EXCLUDE)
    qf_install_legal(python python3-qf-mkv)
endif()

# The GStreamer element on top of that library, where GStreamer looks for plug-ins.
if(TARGET gstqfmkv)
    add_dependencies(shipped gstqfmkv)
    install(TARGETS gstqfmkv LIBRARY DESTINATION ${QF_LIBRARY_FOLDER}/gstreamer-1.0 COMPONENT gstreamer)
    qf_install_legal(gstreamer gstreamer1.0-qf-mkv)
endif()

# The tools: each program with its manual page and its completion. Tools that need media libraries have their own
# packages. The names of 32-bit tools have a suffix, so that both word sizes of a tool can be installed on one machine.
set(tools_package qf-mkv-tools)
set(tool_suffix "")
if(CMAKE_SYSTEM_PROCESSOR STREQUAL i386)
    set(tool_suffix -i386)
    string(APPEND tools_package ${tool_suffix})
endif()
find_program(QF_GZIP gzip REQUIRED)
file(GLOB pages CONFIGURE_DEPENDS Docs/man/*.1)
set(tool_components "")
foreach(page ${pages})
    cmake_path(GET page STEM tool)
    if(NOT TARGET ${tool})
        continue()
    endif()
    set(component tools)
    set(package ${tools_package})
    if(tool MATCHES "^(qfmux|qfmap)$")
        set(component ${tool})
        set(package ${tool})
    endif()
    if(NOT component IN_LIST tool_components)
        list(APPEND tool_components ${component})
        qf_install_legal(${component} ${package})
    endif()
    add_dependencies(shipped ${tool})
    set(program ${CMAKE_INSTALL_BINDIR}/${tool}${tool_suffix})
    install(
        PROGRAMS $<TARGET_FILE:${tool}>
        RENAME ${tool}${tool_suffix}
        DESTINATION ${CMAKE_INSTALL_BINDIR}
        COMPONENT ${component})
    # CPack does not strip a file that is installed under another name than its target's.
    install(CODE "if(CMAKE_INSTALL_DO_STRIP)
        execute_process(COMMAND ${CMAKE_STRIP} \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${program}\"
                        COMMAND_ERROR_IS_FATAL ANY)
    endif()" COMPONENT ${component})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${page})
    set(packed ${PROJECT_BINARY_DIR}/pages/${tool}${tool_suffix}.1.gz)
    execute_process(COMMAND ${QF_GZIP} -9nc ${page} OUTPUT_FILE ${packed} COMMAND_ERROR_IS_FATAL ANY)
    install(
        FILES ${packed}
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        COMPONENT ${component})
    set(completion Source/Tools/${tool}/${tool}.bash)
    if(NOT tool_suffix AND EXISTS ${PROJECT_SOURCE_DIR}/${completion})
        install(
            FILES ${completion}
            RENAME ${tool}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
            COMPONENT ${component})
    endif()
endforeach()
if(TARGET qfmux)
    qf_install_pages(qfmux qfmux Timestamps.md Readers.md Scaling.md)
    install(
        FILES Docs/qfmux-array.sbatch
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/qfmux
        COMPONENT qfmux)
endif()
if(TARGET qfreplay)
    qf_install_pages(tools ${tools_package} SessionFormat.md)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The qf_mkv authors <authors@qf-mkv.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_THREADS 0)
set(CPACK_COMPONENTS_ALL plugin dev host hostdev)
if(NOT CMAKE_SYSTEM_PROCESSOR STREQUAL i386)
    list(APPEND CPACK_COMPONENTS_ALL python)
endif()
if(TARGET gstqfmkv)
    list(APPEND CPACK_COMPONENTS_ALL gstreamer)
endif()
list(APPEND CPACK_COMPONENTS_ALL ${tool_components})
set(CPACK_DEB_COMPONENT_INSTALL TRUE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS TRUE)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL i386)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
endif()
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/FinishDebs.cmake)

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME qf-mkv-plugin)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_PLUGIN_DESCRIPTION
    "Matroska and WebM writer plug-in for media conversion hosts
A host program loads the plug-in and hands it compressed frames. The plug-in
writes them into a .mkv, .mka or .webm file.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME qf-mkv-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "qf-mkv-plugin (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "headers for hosts of the qf_mkv plug-in
The headers of the plug-in's records and functions, the developer's guide with
an example host, and the files by which CMake and pkg-config find the
plug-in.")

set(CPACK_DEBIAN_HOST_PACKAGE_NAME libqf-host${QF_HOST_MAJOR})
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "qf-mkv-plugin (= ${PROJECT_VERSION})")
# The dependency of packages whose programs link the library, and the trigger that renews the loader's cache.
file(CONFIGURE OUTPUT debian/shlibs CONTENT "libqf_host @QF_HOST_MAJOR@ libqf-host@QF_HOST_MAJOR@ (>= @PROJECT_VERSION@)\n")
file(CONFIGURE OUTPUT debian/triggers CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/shlibs ${PROJECT_BINARY_DIR}/debian/triggers)
set(CPACK_COMPONENT_HOST_DESCRIPTION
    "C library that writes Matroska and WebM files
Programs hand the library compressed frames with their times. It writes them
to Matroska or WebM files through the qf_mkv plug-in, many files at once.")

set(CPACK_DEBIAN_HOSTDEV_PACKAGE_NAME libqf-host-dev)
set(CPACK_DEBIAN_HOSTDEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_HOSTDEV_PACKAGE_DEPENDS "libqf-host${QF_HOST_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_HOSTDEV_DESCRIPTION
    "header and static library of libqf_host
Programmers need this package to build programs that write Matroska and WebM
files through libqf_host. It has the files by which CMake and pkg-config find
the library.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-qf-mkv)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9), libqf-host${QF_HOST_MAJOR} (>= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "Python package that writes Matroska and WebM files
A program hands it compressed frames, from PyAV for example, and gets an mkv,
mka or webm file.")

set(CPACK_DEBIAN_GSTREAMER_PACKAGE_NAME gstreamer1.0-qf-mkv)
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SECTION video)
# dpkg-shlibdeps finds the packages of installed libraries only; this package is being built, so it is named here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_DEPENDS "libqf-host${QF_HOST_MAJOR} (>= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_GSTREAMER_DESCRIPTION
    "GStreamer element that writes Matroska and WebM files
The element qfmkvsink writes one video and one audio stream into a Matroska or
WebM file through the qf_mkv plug-in.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS qf-mkv-plugin)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "tools that examine the qf_mkv plug-in
qfcheck checks whether a build of the plug-in keeps the interface. qfreplay
repeats the recorded calls of a host. Neither needs a media library.")

set(CPACK_DEBIAN_QFMUX_PACKAGE_NAME qfmux)
set(CPACK_DEBIAN_QFMUX_PACKAGE_SECTION video)
set(CPACK_DEBIAN_QFMUX_PACKAGE_DEPENDS "qf-mkv-plugin (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_QFMUX_DESCRIPTION
    "remuxer and converter to Matroska and WebM
qfmux copies the streams of any media file that libavformat reads into a
Matroska or WebM file through the qf_mkv plug-in. With --encode it encodes
streams for the new file. It can compare the new file with its source.")

set(CPACK_DEBIAN_QFMAP_PACKAGE_NAME qfmap)
set(CPACK_DEBIAN_QFMAP_PACKAGE_SECTION video)
set(CPACK_COMPONENT_QFMAP_DESCRIPTION
    "viewer for the layout of Matroska and WebM files
qfmap prints or draws the elements, clusters, tracks, key frames and cues of
any Matroska or WebM file, and finds tracks that lag or have gaps.")
include(CPack)
