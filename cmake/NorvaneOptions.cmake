# Warning and sanitizer settings shared by every target of the project.

add_library(norvane_warnings INTERFACE)
target_compile_options(norvane_warnings INTERFACE -Wall -Wextra -Werror)

if(NORVANE_SANITIZE)
  set(_norvane_san -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_compile_options(${_norvane_san})
  add_link_options(${_norvane_san})
endif()

# norvane_add_test(<name> <sources>...): one GoogleTest program, its cases registered with CTest.
function(norvane_add_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE norvane_internal norvane_testsupport norvane_warnings
                        GTest::gtest GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
                       PROPERTIES ENVIRONMENT "UBSAN_OPTIONS=print_stacktrace=1")
endfunction()
