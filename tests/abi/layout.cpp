// The same layouts as a C++ compiler sees them.
#include "layout.c"
