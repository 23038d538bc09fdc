# Warning and sanitizer settings shared by every target of the project.

add_library(norvane_warnings INTERFACE)
target_compile_options(norvane_warnings INTERFACE -Wall -Wextra -Werror)

if(NORVANE_SANITIZE)
  set(_norvane_san -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_compile_options(${_norvane_san})
  add_link_options(${_norvane_san})
endif()

# The thread sanitizer build (the tsan preset) instruments everything; it runs the tests labelled
# "concurrency".
if(NORVANE_SANITIZE_THREAD)
  if(NORVANE_SANITIZE OR NORVANE_FUZZ)
    message(FATAL_ERROR "NORVANE_SANITIZE_THREAD cannot be combined with NORVANE_SANITIZE or NORVANE_FUZZ")
  endif()
  set(_norvane_san -fsanitize=thread -fno-omit-frame-pointer)
  add_compile_options(${_norvane_san})
  add_link_options(${_norvane_san})
endif()

# The fuzzing build (the fuzz preset, clang only): the library and the targets carry libFuzzer's
# coverage instrumentation with AddressSanitizer and UndefinedBehaviorSanitizer; only the fuzz
# targets link libFuzzer's main (fuzz/CMakeLists.txt).
if(NORVANE_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "NORVANE_FUZZ needs clang (libFuzzer)")
  endif()
  set(_norvane_san -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_compile_options(${_norvane_san})
  add_link_options(-fsanitize=address,undefined)
endif()

# Any sanitizer leaves runtime symbols for the executable to provide.
if(NORVANE_SANITIZE OR NORVANE_SANITIZE_THREAD OR NORVANE_FUZZ)
  set(NORVANE_SANITIZED ON)
else()
  set(NORVANE_SANITIZED OFF)
endif()

# norvane_add_test(<name> <sources>... [LABELS <label>...]): one GoogleTest program, its cases
# registered with CTest (with the labels given).
function(norvane_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 _t "" "" "LABELS")
  add_executable(${name} ${_t_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE norvane_internal norvane_testsupport norvane_warnings
                        GTest::gtest GTest::gtest_main)
  set(_props ENVIRONMENT "UBSAN_OPTIONS=print_stacktrace=1")
  if(_t_LABELS)
    list(APPEND _props LABELS "${_t_LABELS}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES ${_props})
endfunction()
