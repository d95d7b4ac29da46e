/* The two exported variables, as a program uses them: the library starts with its own defaults, and acts on what the
   program writes. A library that bound the variables to itself at link time would keep reading its own copy. */
#undef NDEBUG /* in every build */
#include <assert.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zal/zal.h>

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

  assert(defaults.report_fn != NULL && defaults.fatal_fn != NULL && defaults.gather_limit == 0);
  assert(defaults.alloc_fn != NULL && defaults.realloc_fn != NULL && defaults.free_fn != NULL);

  tpl_hook.report_fn = countReport;
  tpl_hook.alloc_fn = countAllocation;
  assert(tpl_map("Q", &value) == NULL);
  assert(reports > 0);
  tpl_free(tpl_map("i", &value));
  assert(allocations > 0);

  tpl_hook = defaults;
  allocations = 0;
  tpl_free(tpl_map("i", &value));
  assert(allocations == 0);
}

static void environmentNamesAreTheLibrarysOwn(void) {
  assert(strcmp(debugEnvNames[0], "ZAL_DEBUG_LEVEL") == 0);
  assert(strcmp(debugEnvNames[3], "ZAL_DEBUG_MAXFILES") == 0);

  setenv("GATEWAY_LOG_LEVEL", "5", 1);
  debugEnvNames[0] = "GATEWAY_LOG_LEVEL";
  ZAL_Log_CheckEnv();
  assert(ZAL_Log_GetLevel() == 5);
}

int main(void) {
  hookIsTheLibrarysOwn();
  environmentNamesAreTheLibrarysOwn();
  return 0;
}
