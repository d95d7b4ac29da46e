/* The two exported variables, as a program uses them: the library starts with its own defaults, and acts on what the
   program writes. A library that bound the variables to itself at link time would keep reading its own copy. */
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zal/zal.h>

#include "check.h"

static int reports;
static int allocations;

static int countReport(const char* format, ...) {
  (void)format;
  ++reports;
  return 0;
}

static void* countAllocation(size_t size) {
  ++allocations;
  return malloc(size);
}

static void hookIsTheLibrarysOwn(void) {
  const tpl_hook_record defaults = tpl_hook;
  int32_t value = 5;

  CHECK(defaults.report_fn != NULL && defaults.fatal_fn != NULL && defaults.gather_limit == 0);
  CHECK(defaults.alloc_fn != NULL && defaults.realloc_fn != NULL && defaults.free_fn != NULL);

  tpl_hook.report_fn = countReport;
  tpl_hook.alloc_fn = countAllocation;
  CHECK(tpl_map("Q", &value) == NULL);
  CHECK(reports > 0);
  tpl_free(tpl_map("i", &value));
  CHECK(allocations > 0);

  tpl_hook = defaults;
  allocations = 0;
  tpl_free(tpl_map("i", &value));
  CHECK(allocations == 0);
}

static void environmentNamesAreTheLibrarysOwn(void) {
  CHECK(strcmp(debugEnvNames[0], "ZAL_DEBUG_LEVEL") == 0);
  CHECK(strcmp(debugEnvNames[3], "ZAL_DEBUG_MAXFILES") == 0);

  setenv("GATEWAY_LOG_LEVEL", "5", 1);
  debugEnvNames[0] = "GATEWAY_LOG_LEVEL";
  ZAL_Log_CheckEnv();
  CHECK(ZAL_Log_GetLevel() == 5);
}

int main(void) {
  hookIsTheLibrarysOwn();
  environmentNamesAreTheLibrarysOwn();
  return 0;
}
