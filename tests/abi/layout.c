/* Where the members of the records that callers allocate stand; the sizes are frozen in the headers. Compiled as C and,
   through layout.cpp, as C++: to move a member, one of the two must fail. */
#include <stddef.h>
#include <zal/zal.h>

#define ZAL_FROZEN_OFFSET(record, member, offset32, offset64)                               \
  ZAL_STATIC_ASSERT(offsetof(record, member) == (sizeof(void*) == 4 ? offset32 : offset64), \
                    record##_##member##_is_where_it_was)

ZAL_FROZEN_OFFSET(ZAL_ClientOptions, url, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_ClientOptions, interval, 256, 256);

ZAL_FROZEN_OFFSET(ZAL_IpcCommand, code, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_IpcCommand, service, 4, 4);
ZAL_FROZEN_OFFSET(ZAL_IpcCommand, name, 260, 260);
ZAL_FROZEN_OFFSET(ZAL_IpcCommand, uid, 516, 516);
ZAL_FROZEN_OFFSET(ZAL_IpcCommand, optionalParam, 772, 772);
ZAL_FROZEN_OFFSET(ZAL_IpcCommand, payload, 788, 792);
ZAL_FROZEN_OFFSET(ZAL_IpcCommand, payloadSize, 792, 800);
ZAL_FROZEN_OFFSET(ZAL_IpcCommand, requestId, 796, 804);
ZAL_FROZEN_OFFSET(ZAL_IpcCommand, next, 800, 808);

ZAL_FROZEN_OFFSET(vorn_uri_parts, scheme, 0, 0);
ZAL_FROZEN_OFFSET(vorn_uri_parts, host, 16, 16);
ZAL_FROZEN_OFFSET(vorn_uri_parts, port, 1040, 1040);
ZAL_FROZEN_OFFSET(vorn_uri_parts, path, 1044, 1044);
ZAL_FROZEN_OFFSET(vorn_uri_parts, query, 2068, 2068);
ZAL_FROZEN_OFFSET(vorn_uri_parts, fragment, 3092, 3092);

ZAL_FROZEN_OFFSET(tpl_blob, address, 0, 0);
ZAL_FROZEN_OFFSET(tpl_blob, length, 4, 8);

ZAL_FROZEN_OFFSET(tpl_gather_state, bytes, 0, 0);
ZAL_FROZEN_OFFSET(tpl_gather_state, length, 4, 8);

ZAL_FROZEN_OFFSET(tpl_hook_record, report_fn, 0, 0);
ZAL_FROZEN_OFFSET(tpl_hook_record, alloc_fn, 4, 8);
ZAL_FROZEN_OFFSET(tpl_hook_record, realloc_fn, 8, 16);
ZAL_FROZEN_OFFSET(tpl_hook_record, free_fn, 12, 24);
ZAL_FROZEN_OFFSET(tpl_hook_record, fatal_fn, 16, 32);
ZAL_FROZEN_OFFSET(tpl_hook_record, gather_limit, 20, 40);

ZAL_FROZEN_OFFSET(ZAL_CpuStat, valid, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_CpuStat, idle, 8, 8);
ZAL_FROZEN_OFFSET(ZAL_CpuStat, user, 16, 16);
ZAL_FROZEN_OFFSET(ZAL_CpuStat, system, 24, 24);
ZAL_FROZEN_OFFSET(ZAL_CpuStat, nice, 32, 32);
ZAL_FROZEN_OFFSET(ZAL_CpuStat, iowait, 40, 40);
ZAL_FROZEN_OFFSET(ZAL_CpuStat, irq, 48, 48);
ZAL_FROZEN_OFFSET(ZAL_CpuStat, softirq, 56, 56);
ZAL_FROZEN_OFFSET(ZAL_CpuStat, steal, 64, 64);

ZAL_FROZEN_OFFSET(ZAL_CpuLoad, usage, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_CpuLoad, user, 8, 8);
ZAL_FROZEN_OFFSET(ZAL_CpuLoad, system, 16, 16);
ZAL_FROZEN_OFFSET(ZAL_CpuLoad, iowait, 24, 24);
ZAL_FROZEN_OFFSET(ZAL_CpuLoad, irq, 32, 32);
ZAL_FROZEN_OFFSET(ZAL_CpuLoad, softirq, 40, 40);
ZAL_FROZEN_OFFSET(ZAL_CpuLoad, valid, 48, 48);

ZAL_FROZEN_OFFSET(ZAL_CpuSummary, numCpus, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_CpuSummary, cpu, 8, 8);

ZAL_FROZEN_OFFSET(ZAL_ProcessInfo, pid, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_ProcessInfo, comm, 4, 4);
ZAL_FROZEN_OFFSET(ZAL_ProcessInfo, cmdline, 20, 20);
ZAL_FROZEN_OFFSET(ZAL_ProcessInfo, cpuUsage, 276, 276);
ZAL_FROZEN_OFFSET(ZAL_ProcessInfo, utime, 280, 280);
ZAL_FROZEN_OFFSET(ZAL_ProcessInfo, stime, 284, 284);
ZAL_FROZEN_OFFSET(ZAL_ProcessInfo, vsize, 288, 288);
ZAL_FROZEN_OFFSET(ZAL_ProcessInfo, rss, 292, 292);
ZAL_FROZEN_OFFSET(ZAL_ProcessInfo, threads, 296, 296);
ZAL_FROZEN_OFFSET(ZAL_ProcessInfo, state, 300, 300);

ZAL_FROZEN_OFFSET(ZAL_InterruptCpu, present, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_InterruptCpu, count, 4, 4);

ZAL_FROZEN_OFFSET(ZAL_InterruptType, count, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_InterruptType, name, 32, 32);
ZAL_FROZEN_OFFSET(ZAL_InterruptType, description, 42, 42);

ZAL_FROZEN_OFFSET(ZAL_InterruptInfo, totalInterrupts, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_InterruptInfo, contextSwitches, 4, 4);
ZAL_FROZEN_OFFSET(ZAL_InterruptInfo, cpu, 8, 8);
ZAL_FROZEN_OFFSET(ZAL_InterruptInfo, types, 72, 72);

ZAL_FROZEN_OFFSET(ZAL_MemoryInfo, total, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_MemoryInfo, free, 8, 8);
ZAL_FROZEN_OFFSET(ZAL_MemoryInfo, available, 16, 16);

ZAL_FROZEN_OFFSET(ZAL_AddressInfo, port, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_AddressInfo, reserved, 4, 4);
ZAL_FROZEN_OFFSET(ZAL_AddressInfo, address, 20, 20);
ZAL_FROZEN_OFFSET(ZAL_AddressInfo, addressV6, 66, 66);
ZAL_FROZEN_OFFSET(ZAL_AddressInfo, name, 112, 112);

ZAL_FROZEN_OFFSET(ZAL_ProcSocketEntry, pid, 0, 0);
ZAL_FROZEN_OFFSET(ZAL_ProcSocketEntry, sockets, 4, 4);
ZAL_FROZEN_OFFSET(ZAL_ProcSocketEntry, socketTimes, 804, 804);
ZAL_FROZEN_OFFSET(ZAL_ProcSocketEntry, name, 1604, 1604);
