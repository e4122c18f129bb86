# Turns every ```cpp block of a Markdown file into a source file of its own,
# so that the build proves the examples compile as a reader would paste
# them: the block's #include lines at the top, after them the namespace
# aliases that the README says every example assumes (their namespaces are
# opened first, so that an alias never stands in for a missing #include),
# and the rest of the block as the body of a function (local classes,
# aliases and statements are all allowed there).
#
#   orvan_readme_snippets(<markdown file> <output directory> <variable>)
#
# sets <variable> to the list of files written. A file is rewritten only
# when its text changes, so that an edit elsewhere in the README rebuilds
# nothing.
function(orvan_readme_snippets markdown output_dir result)
  file(READ ${markdown} text)
  # CMake lists split on ';' and keep '[...]' together: hide both, so that a
  # line is one list element whatever it holds.
  string(REPLACE ";" "<orvan-semicolon>" text "${text}")
  string(REPLACE "[" "<orvan-open>" text "${text}")
  string(REPLACE "]" "<orvan-close>" text "${text}")
  string(REPLACE "\n" ";" lines "${text}")

  set(files)
  set(index 0)
  set(inside FALSE)
  set(line_number 0)
  foreach(line IN LISTS lines)
    math(EXPR line_number "${line_number} + 1")
    if(NOT inside AND line MATCHES "^```cpp[ \t]*$")
      set(inside TRUE)
      set(first_line ${line_number})
      set(includes "")
      set(body "")
    elseif(inside AND line MATCHES "^```[ \t]*$")
      set(inside FALSE)
      math(EXPR index "${index} + 1")
      get_filename_component(name ${markdown} NAME)
      set(source "// Example ${index} of ${name}, from its line ${first_line}.\n${includes}\n")
      string(APPEND source "namespace Orvan::Core::Logging {\n}\nnamespace Core = Orvan::Core;\n")
      string(APPEND source "namespace Logging = Orvan::Core::Logging;\n\n")
      math(EXPR body_line "${first_line} + 1")
      string(APPEND source "void readmeExample${index}()\n{\n#line ${body_line} \"${markdown}\"\n${body}}\n")
      string(REPLACE "<orvan-semicolon>" ";" source "${source}")
      string(REPLACE "<orvan-open>" "[" source "${source}")
      string(REPLACE "<orvan-close>" "]" source "${source}")
      set(file ${output_dir}/ReadmeExample${index}.cpp)
      set(old "")
      if(EXISTS ${file})
        file(READ ${file} old)
      endif()
      if(NOT old STREQUAL source)
        file(WRITE ${file} "${source}")
      endif()
      list(APPEND files ${file})
    elseif(inside AND line MATCHES "^#include")
      string(APPEND includes "${line}\n")
      string(APPEND body "\n") # keeps the body's line numbers those of the README
    elseif(inside)
      string(APPEND body "${line}\n")
    endif()
  endforeach()
  if(inside)
    message(FATAL_ERROR "${markdown}: the ```cpp block of line ${first_line} is never closed")
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${markdown})
  set(${result} ${files} PARENT_SCOPE)
endfunction()
