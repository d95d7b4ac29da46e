# zal_module(<path> [ROOMS <room>...])
#
# Adds one module to the library: <path>.cpp, the front door, and <path>/<room>.cpp for each room. All of them log as
# <path>, whatever file a line stands in.
function(zal_module path)
  cmake_parse_arguments(PARSE_ARGV 1 module "" "" "ROOMS")
  set(sources ${PROJECT_SOURCE_DIR}/${path}.cpp)
  foreach(room IN LISTS module_ROOMS)
    list(APPEND sources ${PROJECT_SOURCE_DIR}/${path}/${room}.cpp)
  endforeach()
  target_sources(zal_objects PRIVATE ${sources})
  set_property(
    SOURCE ${sources}
    TARGET_DIRECTORY zal_objects
    APPEND PROPERTY COMPILE_DEFINITIONS ZAL_LOG_MODULE="${path}")
endfunction()
