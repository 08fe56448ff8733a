# Builds cpp_misuse.cpp once per misuse with -fsyntax-only -Werror: MISUSE=0
# must build, every other number must fail.  Inputs: CXX, INCLUDES (a list),
# SOURCE, COUNT (the number of misuses).
foreach(i RANGE 0 ${COUNT})
  set(args -std=c++20 -fsyntax-only -Wall -Wextra -Werror -DMISUSE=${i})
  foreach(dir IN LISTS INCLUDES)
    list(APPEND args -I${dir})
  endforeach()
  execute_process(COMMAND ${CXX} ${args} ${SOURCE} RESULT_VARIABLE rc ERROR_VARIABLE err OUTPUT_QUIET)
  if(i EQUAL 0 AND NOT rc EQUAL 0)
    message(FATAL_ERROR "the correct use does not build:\n${err}")
  elseif(i GREATER 0 AND rc EQUAL 0)
    message(FATAL_ERROR "misuse ${i} of cpp_misuse.cpp builds")
  elseif(i GREATER 0 AND err MATCHES "unused-(variable|but-set)")
    message(FATAL_ERROR "misuse ${i} of cpp_misuse.cpp fails for another reason:\n${err}")
  endif()
endforeach()
message(STATUS "${COUNT} misuses refused")
