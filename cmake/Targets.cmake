# SPDX-License-Identifier: MIT
set(qf_source_folder ${PROJECT_SOURCE_DIR}/Source)
set(qf_ignorelist ${CMAKE_CURRENT_LIST_DIR}/sanitize.ignorelist)

# g++ takes up to a gigabyte before it looks for memory to reuse, which makes builds from nothing a fourteenth faster.
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    add_compile_options(--param=ggc-min-heapsize=1000000)
endif()

# Options of every target of this project.
function(qf_target target)
    target_compile_options(
        ${target}
        PRIVATE -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wcast-qual
                -Woverloaded-virtual -Wformat=2)
    if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
        # g++ takes the united sources for headers.
        target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
    endif()
    if(QF_SANITIZE)
        target_compile_options(
            ${target} PRIVATE -fsanitize=${QF_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        # lld links their runtimes in a third of the time.
        target_link_options(${target} PRIVATE -fsanitize=${QF_SANITIZE} -fuse-ld=lld)
    endif()
    cmake_path(IS_PREFIX qf_source_folder ${CMAKE_CURRENT_SOURCE_DIR} in_source)
    if(in_source)
        qf_sanitize_source(${target})
        # In one preset each file of the product is compiled by itself, also where the others are united: a missing include
        # is noticed.
        if(CMAKE_SIZEOF_VOID_P EQUAL 8 AND CMAKE_CXX_COMPILER_ID STREQUAL GNU AND NOT QF_SANITIZE AND NOT QF_ROOMS)
            set_target_properties(${target} PROPERTIES UNITY_BUILD OFF)
        endif()
    endif()
endfunction()

# The checks of integers: tests may wrap, code in Source/ may not.
function(qf_sanitize_source target)
    if(QF_SANITIZE_SOURCE)
        target_compile_options(
            ${target} PRIVATE -fsanitize=${QF_SANITIZE_SOURCE} -fno-sanitize-recover=all
                              -fsanitize-ignorelist=${qf_ignorelist})
        set_property(TARGET ${target} APPEND PROPERTY OBJECT_DEPENDS ${qf_ignorelist})
    endif()
endfunction()

# Hardening of shipped libraries. FORTIFY_SOURCE works in optimised builds only, and the sanitizers have checks of their
# own. With g++, which builds what ships, their objects are those of a plain build: each file is compiled by itself.
function(qf_harden target)
    if(NOT QF_SANITIZE)
        if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
            set_target_properties(${target} PROPERTIES UNITY_BUILD OFF)
        endif()
        target_compile_options(
            ${target} PRIVATE -fstack-protector-strong
                              $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
    endif()
endfunction()

# Coverage that guides a fuzzer: it counts the branches that an input takes.
function(qf_instrument target)
    if(QF_FUZZ)
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
endfunction()

# Tools spend their time in the libraries that they call; their own code takes longer to optimise than to run.
function(qf_optimise_little target)
    target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O1>)
endfunction()

# The same of tools that the tests under the sanitizers run on short files.
function(qf_sanitize_plainly target)
    if(QF_SANITIZE)
        target_compile_options(${target} PRIVATE $<$<CONFIG:RelWithDebInfo>:-O0>)
    endif()
endfunction()
