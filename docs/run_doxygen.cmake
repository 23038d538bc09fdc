# cmake -P script behind the docs target: runs Doxygen and fails on any warning it writes, except
# that a member of a class may go without a comment of its own (the class comment and the comments
# of member families carry the contract). Every class, flat function, macro, type and variable of
# the public headers needs one.
#   -DDOXYGEN=<doxygen> -DDOXYFILE=<Doxyfile> -DLOG=<warning log named in the Doxyfile>
cmake_minimum_required(VERSION 3.25)
file(REMOVE ${LOG})
execute_process(COMMAND ${DOXYGEN} ${DOXYFILE} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "doxygen failed (${rc})")
endif()
file(STRINGS ${LOG} lines)
set(problems "")
foreach(line IN LISTS lines)
  if(line MATCHES "warning: Member .* of (class|struct|union) .* is not documented\\.$")
    continue()
  endif()
  string(APPEND problems "${line}\n")
endforeach()
if(problems)
  message(FATAL_ERROR "The API reference has warnings:\n${problems}")
endif()
