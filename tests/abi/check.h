/* The one assertion of the C programs: it names the place and ends the program as failed. */
#ifndef ZAL_TESTS_ABI_CHECK_H
#define ZAL_TESTS_ABI_CHECK_H

#include <stdio.h>
#include <stdlib.h>

#define CHECK(condition)                                                       \
  do {                                                                         \
    if (!(condition)) {                                                        \
      fprintf(stderr, "%s:%d: %s is false\n", __FILE__, __LINE__, #condition); \
      exit(1);                                                                 \
    }                                                                          \
  } while (0)

#endif
