# Tests that cannot run under the processor emulator of a cross build are listed, each with its
# reason, in tests/cross_exclusions.txt; CTest skips them through CTestCustom.cmake in the build
# tree. Everything else must pass under the emulator.
if(CMAKE_CROSSCOMPILING AND (NORVANE_BUILD_TESTS OR NORVANE_FUZZ))
  file(STRINGS ${PROJECT_SOURCE_DIR}/tests/cross_exclusions.txt _norvane_lines REGEX "^[^# \t]")
  set(_norvane_skipped "")
  foreach(_line IN LISTS _norvane_lines)
    string(REGEX MATCH "^[^ \t]+" _name "${_line}")
    string(APPEND _norvane_skipped " \"${_name}\"")
  endforeach()
  file(WRITE ${PROJECT_BINARY_DIR}/CTestCustom.cmake
       "# Written by cmake/NorvaneCrossTests.cmake from tests/cross_exclusions.txt.\n"
       "set(CTEST_CUSTOM_TESTS_IGNORE${_norvane_skipped})\n")
endif()
