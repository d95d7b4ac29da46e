# Compares what the shared library exports with the checked-in list: the names of its version script.
#
#   cmake -D NM=<nm> -D LIBRARY=<file> -D LIST=<version script> -P exported_symbols.cmake
#
# Every symbol belongs to the version node ZAL_1.0; one of another node, or of none, shows up as unexpected, and a name of
# the script that the library does not define as missing.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${output}")
foreach(line IN LISTS lines)
  if(line MATCHES "^[0-9a-f]+ [A-Z] ZAL_1\\.0(@@ZAL_1\\.0)?$")
    continue() # the version node itself
  endif()
  string(REGEX REPLACE "^[0-9a-f]+ ([A-Za-z]) " "" symbol "${line}")
  string(REGEX REPLACE "@@ZAL_1\\.0$" "" name "${symbol}")
  if(name STREQUAL symbol)
    string(APPEND name " (outside ZAL_1.0)")
  endif()
  list(APPEND exported "${name}")
endforeach()

file(STRINGS ${LIST} expected REGEX "^    [A-Za-z0-9_]+;$")
list(TRANSFORM expected REPLACE "[ ;]" "")
set(unexpected ${exported})
list(REMOVE_ITEM unexpected ${expected})
set(missing ${expected})
list(REMOVE_ITEM missing ${exported})
if(unexpected OR missing)
  list(TRANSFORM unexpected PREPEND "\n  + ")
  list(TRANSFORM missing PREPEND "\n  - ")
  string(CONCAT difference ${missing} ${unexpected})
  message(FATAL_ERROR "the exported symbols differ from ${LIST}:${difference}")
endif()
list(LENGTH exported count)
message(STATUS "${count} exported symbols, all of them listed")
