# Uses the package as host projects do:
# - installs the build tree into a fresh prefix, builds the examples against
#   it with find_package(OrvanCore CONFIG) and runs them; a C++20 host on
#   CMake 3.16 terms asks for components, and an unknown one is refused;
# - builds a host project that adds the sources with add_subdirectory and
#   installs into /usr (Debian's multiarch library directory) under a
#   DESTDIR: none of the project's tests is built, and a program compiled
#   with the installed pkg-config file's flags runs.
#
#   cmake -DBUILD_DIR=<build tree> -DSOURCE_DIR=<repository> -DWORK_DIR=<scratch>
#         -DGENERATOR=<generator> -DCXX_COMPILER=<compiler> -P PackageTest.cmake

function(run)
  cmake_parse_arguments(ARG "FAILS" "WORKING_DIRECTORY;OUTPUT" "COMMAND" ${ARGN})
  if(NOT ARG_WORKING_DIRECTORY)
    set(ARG_WORKING_DIRECTORY ${WORK_DIR})
  endif()
  execute_process(COMMAND ${ARG_COMMAND}
    WORKING_DIRECTORY ${ARG_WORKING_DIRECTORY}
    RESULT_VARIABLE code
    OUTPUT_VARIABLE output
    ERROR_VARIABLE output
    TIMEOUT 600)
  list(JOIN ARG_COMMAND " " line)
  if(ARG_FAILS AND code EQUAL 0)
    message(FATAL_ERROR "${line}: succeeded, but should have failed\n${output}")
  elseif(NOT ARG_FAILS AND NOT code EQUAL 0)
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

# The remote-file example reads a local descriptor the same way and says how
# the stream ended.
file(WRITE ${WORK_DIR}/example-remote.txt "twenty-one bytes here")
run(COMMAND ${WORK_DIR}/examples/remote-file/remote_file_example ${WORK_DIR}/example-remote.txt OUTPUT output)
string(FIND "${output}" "received 21 bytes, up to the end of the file" found)
if(found EQUAL -1)
  message(FATAL_ERROR "the remote-file example did not say how the stream ended:\n${output}")
endif()

file(WRITE ${WORK_DIR}/example-input.txt "twelve bytes")
run(COMMAND ${WORK_DIR}/examples/host-api/host_api_example ${WORK_DIR}/example-input.txt sh -c "echo hello"
    OUTPUT output)
foreach(expected "read 12 bytes from" "sh exited with 0 after" "hello" "[MEMORY] Virtual: ")
  string(FIND "${output}" "${expected}" found)
  if(found EQUAL -1)
    message(FATAL_ERROR "the host API example did not print '${expected}':\n${output}")
  endif()
endforeach()

function(expect_output text expected what)
  string(FIND "${text}" "${expected}" found)
  if(found EQUAL -1)
    message(FATAL_ERROR "${what} lacks '${expected}':\n${text}")
  endif()
endfunction()

# A C++20 host asking for components; an unknown component is refused.
set(consumer ${SOURCE_DIR}/tests/tools/consumer)
run(COMMAND ${CMAKE_COMMAND} -S ${consumer} -B ${WORK_DIR}/consumer -G ${GENERATOR}
            -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_PREFIX_PATH=${prefix})
run(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
run(COMMAND ${WORK_DIR}/consumer/consumer OUTPUT output)
expect_output("${output}" "data.bin@127.0.0.1:4000&timeout=30 202002 [INFO   ]" "the installed package's consumer")
run(FAILS COMMAND ${CMAKE_COMMAND} -S ${consumer} -B ${WORK_DIR}/consumer-bad -G ${GENERATOR}
                  -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_PREFIX_PATH=${prefix} -DORVAN_COMPONENTS=Network
    OUTPUT output)
string(REGEX REPLACE "[ \n]+" " " output "${output}")
expect_output("${output}" "OrvanCore has no component 'Network'; its components are Core, Utils and TraductionInterface."
              "find_package with an unknown component")

# The sources inside a host project: only the libraries are built.
run(COMMAND ${CMAKE_COMMAND} -S ${consumer} -B ${WORK_DIR}/subdirectory -G ${GENERATOR}
            -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr
            -DORVAN_SOURCE_DIR=${SOURCE_DIR} -DCMAKE_EXPORT_COMPILE_COMMANDS=ON)
# Warnings stay warnings there: a compiler we have not tried must not break
# the host's build.
file(READ ${WORK_DIR}/subdirectory/compile_commands.json commands)
if(commands MATCHES "-Werror" OR NOT commands MATCHES "-Wall")
  message(FATAL_ERROR "add_subdirectory builds the libraries with -Werror (or without -Wall):\n${commands}")
endif()
run(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/subdirectory --target help OUTPUT targets)
foreach(unwanted Orvan_Utils_tests Orvan_Core_tests Orvan_readme_examples Orvan_header_check orvan gtest)
  string(REGEX MATCH "(^|\n)${unwanted}[:\n ]" found "${targets}")
  if(found)
    message(FATAL_ERROR "add_subdirectory defines the target ${unwanted}:\n${targets}")
  endif()
endforeach()
run(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/subdirectory)
run(COMMAND ${WORK_DIR}/subdirectory/consumer OUTPUT output)
expect_output("${output}" "202002" "the add_subdirectory consumer")

# Installed into /usr under a DESTDIR: Debian's multiarch library directory.
set(ENV{DESTDIR} ${WORK_DIR}/destdir)
run(COMMAND ${CMAKE_COMMAND} --install ${WORK_DIR}/subdirectory)
unset(ENV{DESTDIR})
file(GLOB_RECURSE pcfiles ${WORK_DIR}/destdir/usr/lib/*/orvan-core.pc)
if(NOT pcfiles)
  message(FATAL_ERROR "no orvan-core.pc under ${WORK_DIR}/destdir/usr/lib")
endif()
list(GET pcfiles 0 pcfile)
get_filename_component(pcdir ${pcfile} DIRECTORY)
get_filename_component(libdir ${pcdir} DIRECTORY)
if(libdir STREQUAL "${WORK_DIR}/destdir/usr/lib")
  message(STATUS "no multiarch library directory on this system: the pkg-config file is checked in lib/")
endif()

# The pkg-config files point into their prefix, wherever it is; their flags
# force no language standard.
find_program(PKG_CONFIG pkg-config REQUIRED)
foreach(dir ${prefix}/lib/pkgconfig ${pcdir})
  set(ENV{PKG_CONFIG_PATH} ${dir})
  run(COMMAND ${PKG_CONFIG} --modversion orvan-core OUTPUT pkgversion)
  if(NOT pkgversion STREQUAL "7.6.3\n")
    message(FATAL_ERROR "pkg-config --modversion orvan-core printed: ${pkgversion}")
  endif()
  run(COMMAND ${PKG_CONFIG} --cflags --libs orvan-core OUTPUT flags)
  string(STRIP "${flags}" flags)
  if(flags MATCHES "-std=" OR NOT flags MATCHES "-pthread")
    message(FATAL_ERROR "pkg-config --cflags --libs orvan-core gave: ${flags}")
  endif()
endforeach()
set(ENV{PKG_CONFIG_PATH} ${pcdir})
run(COMMAND ${PKG_CONFIG} --variable=libdir orvan-core OUTPUT pclibdir)
string(STRIP "${pclibdir}" pclibdir)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(COMMAND ${CXX_COMPILER} -std=c++20 ${consumer}/main.cpp ${flags} -Wl,-rpath,${pclibdir}
            -o ${WORK_DIR}/pkgconfig-consumer)
run(COMMAND ${WORK_DIR}/pkgconfig-consumer OUTPUT output)
expect_output("${output}" "data.bin@127.0.0.1:4000&timeout=30 202002" "the pkg-config consumer")

# The lnav format is installed beside the package.
if(NOT EXISTS ${prefix}/share/orvan/lnav/orvan_log.json)
  message(FATAL_ERROR "the lnav format is not installed in share/orvan/lnav")
endif()

# So are the tool's manual page and bash completion.
foreach(file share/man/man1/orvan.1 share/bash-completion/completions/orvan)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "${file} is not installed")
  endif()
endforeach()

file(REMOVE_RECURSE ${WORK_DIR})
