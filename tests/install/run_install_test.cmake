# cmake -P script: install, then build and run the consumer with find_package and pkg-config, and
# build and test the examples against the installation. With -DPREFIX=<dir> (/usr for the Debian
# package) it checks what is installed there instead of installing the build.
cmake_minimum_required(VERSION 3.25)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    string(JOIN " " cmd ${ARGN})
    message(FATAL_ERROR "failed (${rc}): ${cmd}\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
if(PREFIX)
  set(prefix ${PREFIX})
else()
  set(prefix ${WORK_DIR}/prefix)
  run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
endif()

foreach(f include/norvane/norvane.h include/norvane/memory/memory_mgr.h bin/norvane
        share/bash-completion/completions/norvane)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "not installed: ${f}")
  endif()
endforeach()
file(GLOB man_page ${prefix}/share/man/man1/norvane.1*)
if(NOT man_page)
  message(FATAL_ERROR "not installed: share/man/man1/norvane.1")
endif()
file(GLOB_RECURSE private_files ${prefix}/include/norvane/*_internal.h ${prefix}/include/norvane/*_test_*.h)
file(GLOB_RECURSE everything LIST_DIRECTORIES true ${prefix}/include/norvane/*)
foreach(f IN LISTS everything)
  if(IS_DIRECTORY ${f})
    file(GLOB content ${f}/*)
    if(NOT content)
      list(APPEND private_files ${f})  # an empty folder, left by the tests' data
    endif()
  endif()
endforeach()
if(private_files)
  message(FATAL_ERROR "installed, but not for users: ${private_files}")
endif()
run(${prefix}/bin/norvane --version)

# Every installed header compiles on its own, so that it can be included first.
separate_arguments(cxx_flags UNIX_COMMAND "${CXX_FLAGS}")
file(GLOB_RECURSE headers RELATIVE ${prefix}/include ${prefix}/include/norvane/*.h)
file(MAKE_DIRECTORY ${WORK_DIR}/headers)
foreach(h IN LISTS headers)
  string(MAKE_C_IDENTIFIER ${h} name)
  file(WRITE ${WORK_DIR}/headers/${name}.cpp "#include <${h}>\n")
  run(${CXX} ${cxx_flags} -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I${prefix}/include
      ${WORK_DIR}/headers/${name}.cpp)
endforeach()

# find_package
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/cmake-build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run(${WORK_DIR}/cmake-build/consumer)
if(NOT run_output MATCHES "consumer ok")
  message(FATAL_ERROR "find_package consumer printed: ${run_output}")
endif()

# pkg-config
find_program(PKG_CONFIG pkg-config REQUIRED)
if(NOT PREFIX)  # a system-wide installation is on pkg-config's own path
  file(GLOB_RECURSE pc_files ${prefix}/norvane.pc)
  list(GET pc_files 0 pc_file)
  get_filename_component(pc_dir ${pc_file} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pc_dir})
endif()
run(${PKG_CONFIG} --cflags --libs norvane)
string(STRIP "${run_output}" pc_flags)
separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
run(${PKG_CONFIG} --variable=libdir norvane)
string(STRIP "${run_output}" libdir)
file(MAKE_DIRECTORY ${WORK_DIR}/pc-build)
run(${CXX} ${cxx_flags} -std=c++17 ${SOURCE_DIR}/main.cpp ${pc_flags} -Wl,-rpath,${libdir}
    -o ${WORK_DIR}/pc-build/consumer)
run(${WORK_DIR}/pc-build/consumer)
if(NOT run_output MATCHES "consumer ok")
  message(FATAL_ERROR "pkg-config consumer printed: ${run_output}")
endif()

# The README's example program, built as the README says and run: the SHA-256 digest of "abc".
file(READ ${README} readme)
string(REGEX MATCH "```cpp\n([^`]*)```" _ "${readme}")
if(NOT CMAKE_MATCH_1)
  message(FATAL_ERROR "no C++ example in ${README}")
endif()
file(WRITE ${WORK_DIR}/pc-build/app.cpp "${CMAKE_MATCH_1}")
run(${CXX} ${cxx_flags} -std=c++17 ${WORK_DIR}/pc-build/app.cpp ${pc_flags} -Wl,-rpath,${libdir}
    -o ${WORK_DIR}/pc-build/app)
run(${WORK_DIR}/pc-build/app abc)
if(NOT run_output STREQUAL "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n")
  message(FATAL_ERROR "the README's example printed: ${run_output}")
endif()

# The examples, a project of their own, built and tested against the installation.
get_filename_component(cmake_dir ${CMAKE_COMMAND} DIRECTORY)
run(${CMAKE_COMMAND} -S ${EXAMPLES_DIR} -B ${WORK_DIR}/examples -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/examples)
run(${cmake_dir}/ctest --test-dir ${WORK_DIR}/examples --output-on-failure)
