# cmake -P script behind the example.* tests: runs PROGRAM (under EMULATOR, when a cross build
# gives one) with ARGS (a list; @DATA@ is replaced by DATA) in WORK_DIR and checks that it exits
# with 0, that its standard output matches EXPECTED (each line a regular expression for the whole
# line) and, when OUTPUT is set, that the file out.txt it wrote equals DATA/OUTPUT byte for byte.
cmake_minimum_required(VERSION 3.25)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
string(REPLACE "@DATA@" "${DATA}" args "${ARGS}")
execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${args} WORKING_DIRECTORY ${WORK_DIR}
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} exited with ${rc}\n${out}\n${err}")
endif()

file(STRINGS ${EXPECTED} expected)
string(REGEX REPLACE "\n$" "" out_trimmed "${out}")
string(REPLACE ";" "\\;" out_trimmed "${out_trimmed}")
string(REPLACE "\n" ";" actual "${out_trimmed}")
list(LENGTH expected expected_count)
list(LENGTH actual actual_count)
if(NOT expected_count EQUAL actual_count)
  message(FATAL_ERROR "${PROGRAM} printed ${actual_count} lines, expected ${expected_count}:\n${out}")
endif()
foreach(i RANGE 1 ${expected_count})
  math(EXPR k "${i} - 1")
  list(GET expected ${k} pattern)
  list(GET actual ${k} line)
  if(NOT line MATCHES "^${pattern}$")
    message(FATAL_ERROR "line ${i} of the output is\n  ${line}\nnot\n  ${pattern}\nwhole output:\n${out}")
  endif()
endforeach()

if(OUTPUT)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK_DIR}/out.txt ${DATA}/${OUTPUT}
                  RESULT_VARIABLE different)
  if(different)
    message(FATAL_ERROR "out.txt differs from ${DATA}/${OUTPUT}")
  endif()
endif()
