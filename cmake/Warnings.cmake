# Warnings for our own targets only. Dependencies come in as imported targets,
# whose include folders CMake marks as system folders, so their warnings stay
# out of the way.
function(orvo_set_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Werror
        -Wno-unused-parameter)
endfunction()
