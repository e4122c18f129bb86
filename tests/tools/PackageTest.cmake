# Installs the build tree into a fresh prefix, then builds the examples
# against it with find_package(OrvanCore CONFIG) and runs them, as a user of
# the installed package would.
#
#   cmake -DBUILD_DIR=<build tree> -DSOURCE_DIR=<repository> -DWORK_DIR=<scratch>
#         -DGENERATOR=<generator> -DCXX_COMPILER=<compiler> -P PackageTest.cmake

function(run)
  cmake_parse_arguments(ARG "" "WORKING_DIRECTORY;OUTPUT" "COMMAND" ${ARGN})
  if(NOT ARG_WORKING_DIRECTORY)
    set(ARG_WORKING_DIRECTORY ${WORK_DIR})
  endif()
  execute_process(COMMAND ${ARG_COMMAND}
    WORKING_DIRECTORY ${ARG_WORKING_DIRECTORY}
    RESULT_VARIABLE code
    OUTPUT_VARIABLE output
    ERROR_VARIABLE output
    TIMEOUT 600)
  if(NOT code EQUAL 0)
    list(JOIN ARG_COMMAND " " line)
    message(FATAL_ERROR "${line}: exit code ${code}\n${output}")
  endif()
  if(ARG_OUTPUT)
    set(${ARG_OUTPUT} "${output}" PARENT_SCOPE)
  endif()
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

run(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# The installed tool finds its libraries on its own.
run(COMMAND ${prefix}/bin/orvan --version OUTPUT version)
if(NOT version STREQUAL "orvan 7.6.3\n")
  message(FATAL_ERROR "installed orvan --version printed: ${version}")
endif()

run(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples -B ${WORK_DIR}/examples -G ${GENERATOR}
            -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH=${prefix})
run(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/examples)

run(COMMAND ${WORK_DIR}/examples/logging/logging_example ${WORK_DIR}/example.log OUTPUT output)
foreach(expected "Lib Version: 7.6.3" "[WARNING] more than 100000 values" "callback: [INFO   ]")
  string(FIND "${output}" "${expected}" found)
  if(found EQUAL -1)
    message(FATAL_ERROR "the logging example did not print '${expected}':\n${output}")
  endif()
endforeach()
file(READ ${WORK_DIR}/example.log log)
foreach(expected "===> Sort" "Fill/1000000 values" "only in the file" "[MEMORY] Virtual: ")
  string(FIND "${log}" "${expected}" found)
  if(found EQUAL -1)
    message(FATAL_ERROR "the example's log file lacks '${expected}':\n${log}")
  endif()
endforeach()

run(COMMAND ${WORK_DIR}/examples/run-program/run_program_example 5 "sh -c 'exit 0'")

# The pkg-config file points into the same prefix, wherever it is.
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig)
  run(COMMAND ${PKG_CONFIG} --modversion orvan-core OUTPUT pkgversion)
  if(NOT pkgversion STREQUAL "7.6.3\n")
    message(FATAL_ERROR "pkg-config --modversion orvan-core printed: ${pkgversion}")
  endif()
endif()

file(REMOVE_RECURSE ${WORK_DIR})
