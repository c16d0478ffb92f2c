# Warnings for the project's own targets; dependencies are included as system headers.
function(zl_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wno-missing-field-initializers
                                             $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)
endfunction()
