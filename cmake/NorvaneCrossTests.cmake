# Tests that cannot run under the processor emulator of a cross build are listed, each with its
# reason, in tests/cross_exclusions.txt; CTest skips them through CTestCustom.cmake in the build
# tree. Everything else must pass under the emulator. A listed name may end in '*' to skip every
# test added with add_test whose name starts so (GoogleTest cases, named only when the tests run,
# are listed in full).
function(_norvane_collect_tests dir out)
  get_property(tests DIRECTORY ${dir} PROPERTY TESTS)
  get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
  foreach(sub IN LISTS subdirs)
    _norvane_collect_tests(${sub} sub_tests)
    list(APPEND tests ${sub_tests})
  endforeach()
  set(${out} ${tests} PARENT_SCOPE)
endfunction()

if(CMAKE_CROSSCOMPILING AND (NORVANE_BUILD_TESTS OR NORVANE_FUZZ))
  _norvane_collect_tests(${PROJECT_SOURCE_DIR} _norvane_all_tests)
  file(STRINGS ${PROJECT_SOURCE_DIR}/tests/cross_exclusions.txt _norvane_lines REGEX "^[^# \t]")
  set(_norvane_skipped "")
  foreach(_line IN LISTS _norvane_lines)
    string(REGEX MATCH "^[^ \t]+" _name "${_line}")
    if(_name MATCHES "\\*$")
      string(REGEX REPLACE "\\*$" "" _prefix "${_name}")
      foreach(_test IN LISTS _norvane_all_tests)
        string(FIND "${_test}" "${_prefix}" _at)
        if(_at EQUAL 0)
          string(APPEND _norvane_skipped " \"${_test}\"")
        endif()
      endforeach()
    else()
      string(APPEND _norvane_skipped " \"${_name}\"")
    endif()
  endforeach()
  file(WRITE ${PROJECT_BINARY_DIR}/CTestCustom.cmake
       "# Written by cmake/NorvaneCrossTests.cmake from tests/cross_exclusions.txt.\n"
       "set(CTEST_CUSTOM_TESTS_IGNORE${_norvane_skipped})\n")
endif()
