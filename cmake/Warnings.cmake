# Warnings for our own targets only. Dependencies come in as imported targets,
# whose include folders CMake marks as system folders, so their warnings stay
# out of the way.
#
# Warnings are errors only where we choose (CI and scripts/test turn
# ORVO_WERROR on): a user's Release or clang build meets other compilers'
# false positives (g++ 12's -Wrestrict at -O3, for one) and must still build.
option(ORVO_WERROR "Treat compiler warnings as errors" OFF)

function(orvo_set_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wno-unused-parameter)
    if(ORVO_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
