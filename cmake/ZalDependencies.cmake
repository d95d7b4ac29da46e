# The libraries under this one, as the imported targets zal::uv, zal::cjson and zal::uriparser. What is not there is named
# in ZAL_MISSING. The installed package file includes this one as well: who links the library needs the same.
#
# They are looked for by header and library, not by CMake files or pkg-config: Debian's libuv has none of the former, and
# uriparser's development package exists for one architecture at a time, so a cross build takes its headers from the build
# machine and links the runtime library itself.
set(ZAL_MISSING "")

# zal_dependency(<name> <header> <library>...)
function(zal_dependency name header)
  string(TOUPPER ZAL_${name} variable)
  find_path(${variable}_INCLUDE_DIR ${header})
  find_library(${variable}_LIBRARY NAMES ${ARGN})
  mark_as_advanced(${variable}_INCLUDE_DIR ${variable}_LIBRARY)
  if(NOT ${variable}_INCLUDE_DIR OR NOT ${variable}_LIBRARY)
    set(ZAL_MISSING ${ZAL_MISSING} ${name} PARENT_SCOPE)
    return()
  endif()
  if(NOT TARGET zal::${name})
    add_library(zal::${name} UNKNOWN IMPORTED GLOBAL)
  endif()
  set_target_properties(zal::${name} PROPERTIES IMPORTED_LOCATION ${${variable}_LIBRARY})
  if(NOT ${variable}_INCLUDE_DIR STREQUAL "/usr/include")
    set_target_properties(zal::${name} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${${variable}_INCLUDE_DIR})
  endif()
endfunction()

find_package(Threads REQUIRED GLOBAL)
zal_dependency(uv uv.h uv)
zal_dependency(cjson cjson/cJSON.h cjson)
zal_dependency(uriparser uriparser/Uri.h uriparser liburiparser.so.1)
