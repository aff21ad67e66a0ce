# Writes the file that tells ctest of a program's tests, one for each suite. Run as it is built:
#   cmake -D PROGRAM=… -D NAME=… -D LABELS=… -D OUTPUT=… -P list-test-suites.cmake
execute_process(COMMAND "${PROGRAM}" --gtest_list_tests OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE ";" "," listing "${listing}")
string(REGEX MATCHALL "(^|\n)[^ \n]+\\." suites "${listing}")
set(script "")
foreach(suite IN LISTS suites)
    string(STRIP "${suite}" suite)
    string(REGEX REPLACE "\\.$" "" suite "${suite}")
    string(APPEND script "add_test([=[${NAME}.${suite}]=] [=[${PROGRAM}]=] [=[--gtest_filter=${suite}.*]=])\n"
        "set_tests_properties([=[${NAME}.${suite}]=] PROPERTIES TIMEOUT 300 LABELS ${LABELS})\n")
endforeach()
file(WRITE "${OUTPUT}" "${script}")
