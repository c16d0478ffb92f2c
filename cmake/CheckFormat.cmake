# Fails when any C++ file of the project differs from what .clang-format asks for.
file(GLOB_RECURSE files
     ${SOURCE_DIR}/src/*.cpp ${SOURCE_DIR}/src/*.h
     ${SOURCE_DIR}/tests/*.cpp ${SOURCE_DIR}/tests/*.h
     ${SOURCE_DIR}/bench/*.cpp ${SOURCE_DIR}/bench/*.h
     ${SOURCE_DIR}/fuzz/*.cpp ${SOURCE_DIR}/fuzz/*.h)
execute_process(COMMAND ${CLANG_FORMAT} --dry-run --Werror ${files} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "clang-format: files above need formatting (run scripts/format.sh)")
endif()
