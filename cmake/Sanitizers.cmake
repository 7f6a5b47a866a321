# ORVO_SANITIZE selects the sanitizers for the whole build, dependencies'
# inline code included: "address;undefined" or "thread".
if(ORVO_SANITIZE)
    set(_orvo_known address undefined thread)
    foreach(s IN LISTS ORVO_SANITIZE)
        if(NOT s IN_LIST _orvo_known)
            message(FATAL_ERROR "ORVO_SANITIZE: unknown sanitizer '${s}' (use 'address;undefined' or 'thread')")
        endif()
    endforeach()
    if("thread" IN_LIST ORVO_SANITIZE AND ("address" IN_LIST ORVO_SANITIZE))
        message(FATAL_ERROR "ORVO_SANITIZE: thread cannot be combined with address")
    endif()
    list(JOIN ORVO_SANITIZE "," _orvo_san)
    add_compile_options(-fsanitize=${_orvo_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${_orvo_san})
    add_compile_definitions(ORVO_SANITIZED=1)
endif()

if(ORVO_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "ORVO_FUZZ needs clang (configure with -DCMAKE_CXX_COMPILER=clang++-14)")
    endif()
    # Instrument everything for coverage; only the fuzz targets link the
    # libFuzzer main.
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()
