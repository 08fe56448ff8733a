# Compiler and linker settings shared by every target of the project.

set(QEL_WARNINGS -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wundef)
if(QEL_WERROR)
  list(APPEND QEL_WARNINGS -Werror)
endif()
add_compile_options("$<$<COMPILE_LANGUAGE:C,CXX>:${QEL_WARNINGS}>")

if(QEL_SANITIZE)
  add_compile_options(-fsanitize=${QEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QEL_SANITIZE})
endif()

# What the headers require of a caller and the library does not answer with a
# defined result (a NULL object) is checked in Debug and sanitizer builds
# (QEL_REQUIRE aborts naming it) and compiled out of every other build.
if(QEL_SANITIZE)
  add_compile_definitions(QEL_CHECK_REQUIRES=1)
else()
  add_compile_definitions($<$<CONFIG:Debug>:QEL_CHECK_REQUIRES=1>)
endif()

# The shared objects: C ABI outside, no exceptions, no RTTI, only the marked
# functions exported, and no run-time dependency on libstdc++ or libgcc_s.
# They are linked by the C driver so libstdc++ is never pulled in, and
# --no-undefined turns any accidental use of it into a link error.
function(qel_library_settings target)
  # -fno-semantic-interposition and -Bsymbolic-functions: a library's calls
  # to its own exported functions bind to them directly (no PLT, and within
  # a file they may be inlined); an export is never replaced from outside.
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics -fvisibility-inlines-hidden>
    -fvisibility=hidden -fno-semantic-interposition)
  set_target_properties(${target} PROPERTIES
    LINKER_LANGUAGE C
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    C_VISIBILITY_PRESET hidden
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_link_options(${target} PRIVATE -Wl,-Bsymbolic-functions)
  if(NOT QEL_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined -Wl,--as-needed)
  endif()
endfunction()

# An interchange format: an object library of its own folder under src/, built
# into libqel with the libraries' settings (hidden symbols, no exceptions, no
# RTTI); it sees the core's internal headers, and the core never uses it.
function(qel_format_library target)
  add_library(${target} OBJECT ${ARGN})
  target_include_directories(${target} PRIVATE
    ${PROJECT_SOURCE_DIR}/include ${PROJECT_BINARY_DIR}/include ${PROJECT_SOURCE_DIR}/std
    ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/std/internal)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics -fvisibility-inlines-hidden>
    -fvisibility=hidden -fno-semantic-interposition)
endfunction()
