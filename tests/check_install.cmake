# Installs the build into a scratch prefix, then builds and runs a small C
# program against it as the README says: through pkg-config (found by
# PKG_CONFIG_PATH, the libraries by an rpath or by LD_LIBRARY_PATH) and
# through find_package; and a C and a C++ program through the README's CMake
# lines.  The package's version (pkg-config and CMake) must be the project's,
# VERSION, which the C program checks against its headers and the library.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
foreach(f include/qel.h include/qel_std.h include/qel.hpp include/qel/var.hpp lib/pkgconfig/qel.pc lib/cmake/qel/qelConfig.cmake)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "not installed: ${f}")
  endif()
endforeach()

# pkg-config
set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig)
run(pkg-config --modversion qel)
string(STRIP "${run_output}" version)
if(NOT version STREQUAL VERSION)
  message(FATAL_ERROR "pkg-config says version ${version}, the project is ${VERSION}")
endif()
run(pkg-config --cflags --libs qel)
string(STRIP "${run_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${C_COMPILER} -std=c99 ${SOURCE_DIR}/consumer.c ${flags} -Wl,-rpath,${prefix}/lib -o ${WORK_DIR}/consumer_pc)
run(${WORK_DIR}/consumer_pc ${version})
run(${C_COMPILER} -std=c99 ${SOURCE_DIR}/consumer.c ${flags} -o ${WORK_DIR}/consumer_env)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/lib ${WORK_DIR}/consumer_env ${version})

# find_package
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${C_COMPILER}
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    -DCMAKE_BUILD_RPATH=${prefix}/lib -DQEL_WANTED=${VERSION})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer ${VERSION})

# The README's CMake lines, verbatim, in a C project and in a C++ one (which
# sets no standard: qel::qel brings C++20).
file(READ ${SOURCE_DIR}/../../README.md readme)
string(REGEX MATCH "```cmake\n([^`]*)```" found "${readme}")
if(NOT found)
  message(FATAL_ERROR "README.md has no cmake block")
endif()
foreach(lang C CXX)
  set(dir ${WORK_DIR}/readme_${lang})
  set(snippet "${CMAKE_MATCH_1}")
  if(lang STREQUAL "C")
    configure_file(${SOURCE_DIR}/consumer.c ${dir}/app.c COPYONLY)
  else()
    string(REPLACE "app.c)" "app.cpp)" snippet "${snippet}")
    configure_file(${SOURCE_DIR}/consumer.cpp ${dir}/app.cpp COPYONLY)
  endif()
  file(WRITE ${dir}/CMakeLists.txt "cmake_minimum_required(VERSION 3.25)\nproject(app LANGUAGES ${lang})\n${snippet}")
  run(${CMAKE_COMMAND} -S ${dir} -B ${dir}/build -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${C_COMPILER}
      -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_BUILD_RPATH=${prefix}/lib)
  run(${CMAKE_COMMAND} --build ${dir}/build)
  if(lang STREQUAL "C")
    run(${dir}/build/app ${VERSION})
  else()
    run(${dir}/build/app)
  endif()
endforeach()
message(STATUS "pkg-config and find_package consumers, and the README's CMake lines in C and C++, built and ran")
