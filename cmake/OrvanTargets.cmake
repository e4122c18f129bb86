# Settings shared by every target of the project. They are set on the
# project's own targets or its own directories, never as usage requirements:
# a project that uses these libraries gets none of them.

# Warnings on every compiler we build with; errors when
# ORVAN_WARNINGS_AS_ERRORS is on (this repository's own builds), never forced
# on a project that builds the libraries inside its own tree with a compiler
# we have not tried.
function(orvan_set_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 $<$<BOOL:${ORVAN_WARNINGS_AS_ERRORS}>:/WX>)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic $<$<BOOL:${ORVAN_WARNINGS_AS_ERRORS}>:-Werror>)
  endif()
endfunction()

# Assertion reports name files relative to the repository root, whatever the
# checkout's location.
if(NOT MSVC)
  add_compile_options("-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
endif()

# A stream holds its 1 MiB receive buffer inside, which puts its virtual
# std::basic_ios base more than 1 MiB after the object's start: further than
# UndefinedBehaviorSanitizer's vptr check assumes any base can be ("offset to
# top too big"), so the check reports every call on that base, in the
# library and in every program that reads such a stream (stream.good(),
# if (stream), ...). Sanitized builds of this project leave that one check
# out.
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=[^ ]*(undefined|vptr)")
  add_compile_options(-fno-sanitize=vptr)
endif()

# One of our shared libraries: version, export macro, warnings.
# BUILDING_MACRO is defined while the library itself is compiled, so that its
# export header switches from import to export.
function(orvan_add_library target)
  cmake_parse_arguments(ARG "" "ALIAS;OUTPUT_NAME;BUILDING_MACRO" "" ${ARGN})
  add_library(${target} SHARED)
  add_library(${ARG_ALIAS} ALIAS ${target})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME ${ARG_OUTPUT_NAME}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  if(NOT WIN32)
    # Installed side by side, each library finds its companions beside it.
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
  endif()
  if(WIN32)
    # The product's DLLs carry their plain names (Orvan_Core.dll).
    set_target_properties(${target} PROPERTIES PREFIX "" IMPORT_PREFIX "")
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32)
    # GNU "unique" symbols pin a shared object in memory for good; without
    # them the library can really be unloaded.
    target_compile_options(${target} PRIVATE -fno-gnu-unique)
  endif()
  target_compile_definitions(${target} PRIVATE ${ARG_BUILDING_MACRO})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:include>)
  target_compile_features(${target} PUBLIC cxx_std_17)
  orvan_set_warnings(${target})
endfunction()
