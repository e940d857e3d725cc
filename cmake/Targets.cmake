# What every target of this project is built with.
function(qf_target target)
    target_compile_options(
        ${target}
        PRIVATE -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wcast-qual
                -Woverloaded-virtual -Wformat=2)
    if(QF_SANITIZE)
        target_compile_options(
            ${target} PRIVATE -fsanitize=${QF_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${QF_SANITIZE})
    endif()
endfunction()
