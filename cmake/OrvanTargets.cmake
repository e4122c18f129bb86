# Settings shared by every target of the project.

# Warnings are errors on every compiler we build with.
function(orvan_set_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /WX)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror)
  endif()
endfunction()

# Assertion reports name files relative to the repository root, whatever the
# checkout's location.
if(NOT MSVC)
  add_compile_options("-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
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
