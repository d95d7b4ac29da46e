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
  tpl_map_node* map;
  int32_t value = 5;

  CHECK(defaults.report_fn != NULL && defaults.fatal_fn != NULL);
  CHECK(defaults.alloc_fn != NULL && defaults.realloc_fn != NULL && defaults.free_fn != NULL);
  CHECK(defaults.gather_limit == 0);

  tpl_hook.report_fn = countReport;
  tpl_hook.alloc_fn = countAllocation;
  CHECK(tpl_map("Q", &value) == NULL);
  CHECK(reports > 0);
  map = tpl_map("i", &value);
  CHECK(map != NULL);
  CHECK(allocations > 0);
  tpl_free(map);
  CHECK(tpl_hook.report_fn == countReport && tpl_hook.alloc_fn == countAllocation);
  CHECK(tpl_hook.realloc_fn == defaults.realloc_fn && tpl_hook.fatal_fn == defaults.fatal_fn);

  tpl_hook = defaults;
  reports = 0;
  allocations = 0;
  map = tpl_map("i", &value);
  CHECK(map != NULL && allocations == 0);
  tpl_free(map);
}

static void environmentNamesAreTheLibrarysOwn(void) {
  static const char* const kDefaults[4] = {"ZAL_DEBUG_LEVEL", "ZAL_DEBUG_DIR", "ZAL_DEBUG_MAXBYTES",
                                           "ZAL_DEBUG_MAXFILES"};
  int i;
  for (i = 0; i < 4; ++i) CHECK(strcmp(debugEnvNames[i], kDefaults[i]) == 0);

  setenv("ZAL_DEBUG_LEVEL", "4", 1);
  setenv("GATEWAY_LOG_LEVEL", "5", 1);
  ZAL_Log_CheckEnv();
  CHECK(ZAL_Log_GetLevel() == 4);
  debugEnvNames[0] = "GATEWAY_LOG_LEVEL";
  ZAL_Log_CheckEnv();
  CHECK(ZAL_Log_GetLevel() == 5);
}

int main(void) {
  hookIsTheLibrarysOwn();
  environmentNamesAreTheLibrarysOwn();
  return 0;
}
