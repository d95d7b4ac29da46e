# Compares what the shared library exports with the checked-in list: the names of its version script.
#
#   cmake -D NM=<nm> -D LIBRARY=<file> -D LIST=<version script> -P exported_symbols.cmake
#
# A symbol counts with its version node: one of another node, or of none, shows up as unexpected, and a name of the script
# that the library does not define as missing.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" exported "${output}")
list(FILTER exported EXCLUDE REGEX "^[0-9a-f]+ A ZAL_[0-9.]+$") # the version nodes themselves
list(TRANSFORM exported REPLACE "^[0-9a-f]+ [A-Za-z] " "")

file(STRINGS ${LIST} lines REGEX "^(ZAL_[0-9.]+ {|    [A-Za-z0-9_]+;)$")
foreach(line IN LISTS lines)
  string(REGEX MATCH "[A-Za-z0-9_.]+" name "${line}")
  if(line MATCHES "{$")
    set(node ${name})
  else()
    list(APPEND expected ${name}@@${node})
  endif()
endforeach()

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
