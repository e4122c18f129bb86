# Runs the orvan program once and checks its exit code and what it printed.
#
#   cmake -DPROGRAM=<orvan> [-DEMULATOR=<loader>] -DARGUMENTS=<words separated by |>
#         -DEXPECT_CODE=<n> [-DEXPECT_OUTPUT=<regular expression>] -P RunTool.cmake
#
# Used where the GoogleTest program that drives orvan cannot run: the Windows
# build, whose programs run under Wine.
string(REPLACE "|" ";" words "${ARGUMENTS}")
execute_process(
  COMMAND ${EMULATOR} ${PROGRAM} ${words}
  RESULT_VARIABLE code
  OUTPUT_VARIABLE output
  ERROR_VARIABLE error
  TIMEOUT 300)
if(NOT "${code}" STREQUAL "${EXPECT_CODE}")
  message(FATAL_ERROR "orvan ${words}: exit code ${code}, expected ${EXPECT_CODE}\n"
                      "standard output:\n${output}\nstandard error:\n${error}")
endif()
if(DEFINED EXPECT_OUTPUT AND NOT "${output}${error}" MATCHES "${EXPECT_OUTPUT}")
  message(FATAL_ERROR "orvan ${words}: the output does not match '${EXPECT_OUTPUT}'\n"
                      "standard output:\n${output}\nstandard error:\n${error}")
endif()
message(STATUS "orvan ${words}: exit code ${code}")
