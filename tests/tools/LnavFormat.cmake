# Opens a log file written by the orvan tool in lnav, headless, with the
# format definition of tools/lnav, and checks that lnav recognises every
# line: one log message per line that starts with a time of day (and one for
# the file's head), each with the level of its word and a time.
#
#   cmake -DPROGRAM=<orvan> -DLNAV=<lnav> -DFORMAT=<orvan_log.json> -DWORK_DIR=<scratch> -P LnavFormat.cmake

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/config/formats/orvan ${WORK_DIR}/home)
file(COPY ${FORMAT} DESTINATION ${WORK_DIR}/config/formats/orvan)

# The demo writes every kind of line: workflow steps, memory samples,
# connection events, a program run and another cancelled.
execute_process(COMMAND ${PROGRAM} demo --size 1 WORKING_DIRECTORY ${WORK_DIR}
  RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output TIMEOUT 300)
if(NOT code EQUAL 0 OR NOT output MATCHES "Log file: '([^']+)'")
  message(FATAL_ERROR "orvan demo: exit code ${code}\n${output}")
endif()
set(log ${CMAKE_MATCH_1})
file(COPY ${log} DESTINATION ${WORK_DIR})
get_filename_component(logDirectory ${log} DIRECTORY)
file(REMOVE_RECURSE ${logDirectory})
get_filename_component(name ${log} NAME)
set(log ${WORK_DIR}/${name})

# What lnav must find: the head line, then one message per line that starts
# with a time, at the level of its word.
file(STRINGS ${log} lines)
set(expected "0 info")
set(number 0)
foreach(line IN LISTS lines)
  if(number GREATER 0 AND line MATCHES "^[0-9][0-9]:[0-9][0-9]:[0-9][0-9][.][0-9][0-9][0-9] [[]([A-Z]+) *[]] ")
    set(word ${CMAKE_MATCH_1})
    if(word STREQUAL "INFO" OR word STREQUAL "VERSION")
      set(level info)
    elseif(word STREQUAL "VERBOSE")
      set(level trace)
    else()
      string(TOLOWER ${word} level)
    endif()
    list(APPEND expected "${number} ${level}")
  endif()
  math(EXPR number "${number} + 1")
endforeach()
list(LENGTH expected messages)
if(messages LESS 20)
  message(FATAL_ERROR "the demo's log has only ${messages} messages:\n${lines}")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -E env HOME=${WORK_DIR}/home
                        ${LNAV} -n -N -I ${WORK_DIR}/config
                        -c ";SELECT log_line, log_level, log_time FROM orvan_log" ${log}
  RESULT_VARIABLE code OUTPUT_VARIABLE table ERROR_VARIABLE errors TIMEOUT 120)
if(NOT code EQUAL 0)
  message(FATAL_ERROR "lnav: exit code ${code}\n${errors}")
endif()
string(REPLACE "\n" ";" rows "${table}")
set(found)
foreach(row IN LISTS rows)
  if(row MATCHES "^ *([0-9]+) +([a-z]+) +([0-9]+-[0-9]+-[0-9]+ [0-9:.]+) *$")
    list(APPEND found "${CMAKE_MATCH_1} ${CMAKE_MATCH_2}")
  elseif(NOT row MATCHES "^ *log_line" AND NOT row STREQUAL "")
    message(FATAL_ERROR "lnav row without a level and a time: '${row}'\n${table}")
  endif()
endforeach()
if(NOT found STREQUAL expected)
  message(FATAL_ERROR "lnav recognised\n${found}\nwhere the log holds\n${expected}\n${table}")
endif()
list(LENGTH found count)
message(STATUS "lnav recognised all ${count} messages of ${log}")
file(REMOVE_RECURSE ${WORK_DIR})
