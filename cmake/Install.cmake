# What cmake --install puts where, and the .deb packages that cpack makes of it: one for each component.
include(CMakePackageConfigHelpers)
# What is installed, without the tests.
add_custom_target(shipped DEPENDS qf_mkv)

# The plug-in, and what a host finds it and builds with: find_package(qf_mkv) and pkg-config.
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
install(FILES Docs/HostGuide.md Docs/FileLayout.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/qf-mkv-dev COMPONENT dev)

# The tools: each manual page, with the program that it describes and the program's completion. The 32-bit ones go by
# names of their own, since both word sizes of a tool are wanted on one machine.
set(tools_package qf-mkv-tools)
set(tool_suffix "")
if(CMAKE_SYSTEM_PROCESSOR STREQUAL i386)
    set(tool_suffix -i386)
    string(APPEND tools_package ${tool_suffix})
endif()
file(GLOB pages CONFIGURE_DEPENDS Docs/man/*.1)
set(tools_found FALSE)
foreach(page ${pages})
    cmake_path(GET page STEM tool)
    if(NOT TARGET ${tool})
        continue()
    endif()
    set(tools_found TRUE)
    add_dependencies(shipped ${tool})
    install(
        PROGRAMS $<TARGET_FILE:${tool}>
        RENAME ${tool}${tool_suffix}
        DESTINATION ${CMAKE_INSTALL_BINDIR}
        COMPONENT tools)
    install(
        FILES ${page}
        RENAME ${tool}${tool_suffix}.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        COMPONENT tools)
    set(completion Source/Tools/${tool}/${tool}.bash)
    if(NOT tool_suffix AND EXISTS ${PROJECT_SOURCE_DIR}/${completion})
        install(
            FILES ${completion}
            RENAME ${tool}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
            COMPONENT tools)
    endif()
endforeach()
if(TARGET qfmux)
    install(
        FILES Docs/Timestamps.md Docs/Readers.md Docs/SessionFormat.md Docs/Scaling.md Docs/qfmux-array.sbatch
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${tools_package}
        COMPONENT tools)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The qf_mkv maintainers <maintainers@qf-mkv.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_THREADS 0)
set(CPACK_COMPONENTS_ALL plugin dev)
if(tools_found)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
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
A host loads it, hands it compressed frames and gets a .mkv, .mka or .webm
file.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME qf-mkv-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "qf-mkv-plugin (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "headers for hosts of the qf_mkv plug-in
The records and functions that cross the boundary, the developer's guide, and
what CMake and pkg-config find them by.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "qf-mkv-plugin (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "command line tools around the qf_mkv plug-in
Hosts for the shell: what writes files through the plug-in, repeats recorded
calls and examines it.")
include(CPack)
