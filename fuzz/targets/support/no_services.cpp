// The services database left out: it is read anew for each URI with a scheme, and a filter is such a one each time that
// it is tested. The linker has everything in the program call this instead of fopen().
#include <cstdio>
#include <string_view>

extern "C" std::FILE* __real_fopen(const char* path, const char* mode);

extern "C" std::FILE* __wrap_fopen(const char* path, const char* mode) {
  return std::string_view{path} == "/etc/services" ? nullptr : __real_fopen(path, mode);
}
