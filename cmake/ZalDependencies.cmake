# The libraries under this one, as the imported targets zal::uv, zal::cjson and zal::uriparser.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

pkg_check_modules(ZAL_UV REQUIRED IMPORTED_TARGET libuv)
add_library(zal::uv ALIAS PkgConfig::ZAL_UV)

pkg_check_modules(ZAL_CJSON REQUIRED IMPORTED_TARGET libcjson)
add_library(zal::cjson ALIAS PkgConfig::ZAL_CJSON)

# uriparser's development package exists for one architecture at a time, so a cross build takes the headers from the
# build machine and links the runtime library itself.
find_library(ZAL_URIPARSER_LIBRARY NAMES uriparser liburiparser.so.1 REQUIRED)
find_path(ZAL_URIPARSER_INCLUDE_DIR uriparser/Uri.h PATHS /usr/include REQUIRED)
add_library(zal_uriparser UNKNOWN IMPORTED)
set_target_properties(zal_uriparser PROPERTIES IMPORTED_LOCATION ${ZAL_URIPARSER_LIBRARY})
if(NOT ZAL_URIPARSER_INCLUDE_DIR STREQUAL "/usr/include")
  set_target_properties(zal_uriparser PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${ZAL_URIPARSER_INCLUDE_DIR})
endif()
add_library(zal::uriparser ALIAS zal_uriparser)
