// The same program as a C++ compiler sees it.
#include "consumer.c"
