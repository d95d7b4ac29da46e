/*
 * The device seen through Linux: processors, processes, interrupts, memory and uptime, sockets and their owners, names
 * of addresses and ports, and the public address.
 *
 * Everything is read at the call, from proc(5) and sysfs(5); nothing is watched. Tables that a function allocates are
 * the caller's, who frees them with free(). Results and outputs are not null unless a comment says otherwise.
 */
#ifndef ZAL_SYSTEM_H
#define ZAL_SYSTEM_H

#include <cjson/cJSON.h>
#include <stddef.h>
#include <stdint.h>

#include <zal/zal_export.h>
#include <zal/zal_object.h>

ZAL_BEGIN_DECLS

/* ---- Processors ------------------------------------------------------------------------------------------------ */

/** Processors that are handled; those beyond are not seen. */
#define ZAL_CPU_MAX 16

/** Time counters of one processor since boot, in clock ticks. */
typedef struct {
  uint8_t valid;    /**< 1 when the system reports the processor */
  uint64_t idle;    /**< without work */
  uint64_t user;    /**< processes, guests among them */
  uint64_t system;  /**< the kernel for processes */
  uint64_t nice;    /**< processes of low priority */
  uint64_t iowait;  /**< without work but for disk transfers that are waited for */
  uint64_t irq;     /**< interrupts */
  uint64_t softirq; /**< soft interrupts */
  uint64_t steal;   /**< taken by other guests of the machine */
} ZAL_CpuStat;
ZAL_FROZEN_SIZE(ZAL_CpuStat, 72, 72);

/** Load of one processor, in percent, cut to hundredths. */
typedef struct {
  double usage;   /**< all that is not idle */
  double user;    /**< processes */
  double system;  /**< the kernel for processes */
  double iowait;  /**< waiting for disk transfers */
  double irq;     /**< interrupts */
  double softirq; /**< soft interrupts */
  uint8_t valid;  /**< 1 when the second sample had the processor */
} ZAL_CpuLoad;
ZAL_FROZEN_SIZE(ZAL_CpuLoad, 56, 56);

/** Load of all processors. */
typedef struct {
  uint8_t numCpus;              /**< processors that `cpu` tells of */
  ZAL_CpuLoad cpu[ZAL_CPU_MAX]; /**< in the order of the processors */
} ZAL_CpuSummary;
ZAL_FROZEN_SIZE(ZAL_CpuSummary, 904, 904);

/**
 * Counts the online processors.
 *
 * Threads: any thread.
 * Source:  sysconf(3), _SC_NPROCESSORS_ONLN.
 *
 * @return the number, at most ZAL_CPU_MAX
 */
ZAL_EXPORT int ZAL_GetNumOfCpu(void) ZAL_NOEXCEPT;

/**
 * Reads the time that all processors together spent since boot. `total` counts user, nice, system, idle, iowait, irq,
 * softirq and steal; guest time is part of user time.
 *
 * Threads: any thread.
 * Units:   clock ticks; either output may be null.
 * Errors:  the file cannot be opened or read: both 0, and a log line. Counters that the line lacks count as 0.
 * Source:  the first line of /proc/stat, proc(5).
 */
ZAL_EXPORT void ZAL_GetTotalCpuTime(uint64_t* total, uint64_t* idle) ZAL_NOEXCEPT;

/**
 * Reads the time counters of each processor, ZAL_GetNumOfCpu records in the order of the processors. The array has room
 * for ZAL_CPU_MAX, so a processor that joins meanwhile is not beyond it; records without a processor are zero.
 *
 * Ownership: the array in `stats` is the caller's.
 * Threads:   any thread.
 * Limits:    the first 1023 bytes of the file; a counter that is cut there is read as it is.
 * Errors:    a processor that is not found stays zero, with `valid` 0; a file that cannot be opened leaves all of them
 *            so and is reported on standard error.
 * Source:    the lines "cpu0", "cpu1" ... of /proc/stat, proc(5).
 *
 * @return 0; -1, with null in `stats`, when memory runs out
 */
ZAL_EXPORT int ZAL_GetCpuStat(ZAL_CpuStat** stats) ZAL_NOEXCEPT;

/**
 * Measures the load of each processor for half a second, in which the calling thread sleeps. Each share is cut to
 * hundredths; one that is negative, since a kernel may take back some of a counter, counts as 0.
 *
 * A processor without a tick between the samples has all shares 0, as has one that left in between; one that joined in
 * between shows its load since boot. Entries from `numCpus` on are zero.
 *
 * Threads: any thread.
 * Errors:  as ZAL_GetCpuStat.
 */
ZAL_EXPORT void ZAL_GetCpuSummary(ZAL_CpuSummary* summary) ZAL_NOEXCEPT;

/**
 * Reads the current frequency of a processor. Every index, valid or not, gives the frequency of policy 0, which governs
 * all processors of a device with one clock. Where processors have policies of their own, read
 * /sys/devices/system/cpu/cpuN/cpufreq/scaling_cur_freq for the others.
 *
 * Threads: any thread.
 * Units:   MHz, without the rest in kHz.
 * Source:  /sys/devices/system/cpu/cpufreq/policy0/scaling_cur_freq, the cpufreq documentation of the kernel.
 *
 * @return the frequency; 0 when the file cannot be opened or read or holds no number of 32 bits
 */
ZAL_EXPORT uint32_t ZAL_GetCpuFrequency(int index) ZAL_NOEXCEPT;

/**
 * Reads the frequency of every configured processor, online or not, with ZAL_GetCpuFrequency. `list` has room for
 * ZAL_CPU_MAX entries.
 *
 * Threads: any thread.
 * Units:   kHz in whole MHz: the last three digits are 0.
 *
 * @return the number of entries filled; below 1, with none filled, what sysconf(3) said of _SC_NPROCESSORS_CONF
 */
ZAL_EXPORT int ZAL_GetCpuFreqList(uint32_t* list) ZAL_NOEXCEPT;

/* ---- Processes ------------------------------------------------------------------------------------------------- */

/** Processes that a table holds at most. */
#define ZAL_PROCESSES_MAX 200

/** One process. */
typedef struct {
  int32_t pid;       /**< process id; 0 in a record without a process */
  char comm[16];     /**< command name */
  char cmdline[256]; /**< first argument of the command line; empty when it cannot be read */
  float cpuUsage;    /**< percent of one processor; filled by ZAL_GetProcessSummary alone */
  uint32_t utime;    /**< user time, clock ticks */
  uint32_t stime;    /**< system time, clock ticks */
  uint32_t vsize;    /**< virtual size: 1000 for each KiB */
  uint32_t rss;      /**< resident size, KiB */
  int32_t threads;   /**< number of its threads */
  char state;        /**< letter; ZAL_ConvertStateToString names it */
} ZAL_ProcessInfo;
ZAL_FROZEN_SIZE(ZAL_ProcessInfo, 304, 304);

/**
 * Reads the record of one process. `pid` is the name of its directory in /proc: a number or, for example, "self".
 *
 * The command name is the text between the first "(" and the last ")" of the stat line, whatever bytes it holds; the
 * first argument is taken with its line ends. Numbers of more than 32 bits keep their low 32 bits, a negative resident
 * size counts as 0, and `cpuUsage` is 0.
 *
 * Threads: any thread.
 * Limits:  paths of 255 characters; a `pid` that makes a longer one names no process.
 * Errors:  an argument is null, the process ended meanwhile, its stat line is not as in proc(5): the record is left
 *          alone.
 * Source:  /proc/PID/stat and /proc/PID/cmdline, proc(5).
 *
 * @return 0, or -1 on failure
 */
ZAL_EXPORT int ZAL_GetProcPid(ZAL_ProcessInfo* process, const char* pid) ZAL_NOEXCEPT;

/** ZAL_GetProcPid with the number of the process. */
ZAL_EXPORT int ZAL_GetProcPidByInt(ZAL_ProcessInfo* process, int32_t pid) ZAL_NOEXCEPT;

/**
 * Reads the records of all processes, in the order of /proc. `count` is the number of processes found; for those that
 * end while the others are read, there are zeroed records, with `pid` 0, at the end.
 *
 * Ownership: the array in `table` is the caller's.
 * Threads:   any thread.
 * Limits:    ZAL_PROCESSES_MAX processes; those behind them are not seen.
 * Errors:    /proc cannot be opened (logged), memory runs out: null in `table`, 0 in `count`.
 * Source:    proc(5).
 *
 * @return 0, or -1 on failure
 */
ZAL_EXPORT int ZAL_GetProcesses(ZAL_ProcessInfo** table, uint32_t* count) ZAL_NOEXCEPT;

/**
 * Measures the CPU share of each process for half a second, in which the calling thread sleeps. The records are those
 * of the end of that time, sorted by pid, with `cpuUsage` and with `utime` and `stime` 0. A share is 0 when no tick
 * passed, and for a pid whose times went back because another process took it over.
 *
 * `count` is the smaller of the numbers of processes found before and after; for those that were not there both times,
 * there are zeroed records, with `pid` 0, at the end.
 *
 * Ownership: the array in `table` is the caller's.
 * Threads:   any thread.
 * Limits:    as ZAL_GetProcesses, each time.
 * Errors:    /proc cannot be read, memory runs out: a log line, null in `table`, 0 in `count`.
 * Source:    proc(5).
 */
ZAL_EXPORT void ZAL_GetProcessSummary(ZAL_ProcessInfo** table, uint32_t* count) ZAL_NOEXCEPT;

/**
 * Compares two ZAL_ProcessInfo by pid, for qsort(3) and bsearch(3).
 *
 * @return -1, 0 or 1: `left` is less than, equal to or greater than `right`
 */
ZAL_EXPORT int proc_comp_tid(const void* left, const void* right) ZAL_NOEXCEPT;

/**
 * Names the state of a process: "uninterruptableSleep" (D), "lowPriority" (N), "runQueue" (R), "sleeping" (S),
 * "stopped" (T), "zombie" (Z), or "unknown" for every other letter. At most `size` - 1 characters are stored, and
 * terminated; with a null buffer or a size of 0 nothing is.
 *
 * Threads: any thread.
 */
ZAL_EXPORT void ZAL_ConvertStateToString(char state, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Counts the open descriptors of a process. One that counts its own counts the one that it reads them with, too.
 *
 * Threads: any thread.
 * Source:  /proc/PID/fd, proc(5).
 *
 * @return the number; 0 for pid 0, for one that does not exist and for one that the caller may not look into
 */
ZAL_EXPORT uint32_t ZAL_CountOpenFileDescriptors(uint32_t pid) ZAL_NOEXCEPT;

/**
 * Finds a process by the first argument of its command line: with `exact` the whole of it, without it a part. A process
 * without command line, such as a thread of the kernel, is found by a part of its command name, with `exact` too. The
 * empty text is a part of every text. Pids below 100 are not considered.
 *
 * Threads: any thread.
 * Limits:  511 bytes of a command line, 127 of a command name; what is behind them is not seen.
 * Source:  /proc/PID/cmdline and /proc/PID/comm, proc(5).
 *
 * @return the first pid in the order of /proc; 0 when there is none or `name` is null
 */
ZAL_EXPORT int32_t ZAL_GetProcessPidOf(const char* name, int exact) ZAL_NOEXCEPT;

/**
 * Lists the processes whose command line, its arguments joined by blanks, contains a text: one line each of "root    ",
 * the pid, "   " and the command line, with a newline between two. The empty text is a part of every command line, also
 * of an empty one.
 *
 * Ownership: the list is the caller's.
 * Threads:   any thread.
 * Limits:    511 bytes of a command line, and of the list, which is cut there.
 * Source:    /proc/PID/cmdline, proc(5).
 *
 * @return the list; null when no process matches, `pattern` is null or memory runs out
 */
ZAL_EXPORT char* ZAL_GetProcessCmdline(const char* pattern) ZAL_NOEXCEPT;

/* ---- Interrupts ------------------------------------------------------------------------------------------------ */

/** Lines of the interrupt table that are kept; those beyond are reported on standard error and skipped. */
#define ZAL_INTERRUPTS_MAX_TYPES 120
/** Processors whose interrupts are counted. */
#define ZAL_INTERRUPTS_MAX_CPUS 8

/** Interrupts of one processor. */
typedef struct {
  uint8_t present; /**< 1 when the table has a column for it */
  uint32_t count;  /**< sum of its column, over all readings */
} ZAL_InterruptCpu;
ZAL_FROZEN_SIZE(ZAL_InterruptCpu, 8, 8);

/** One line of the interrupt table. */
typedef struct {
  uint32_t count[ZAL_INTERRUPTS_MAX_CPUS]; /**< of each processor */
  char name[10];                           /**< label, for example the interrupt number, with the blanks before it */
  char description[96];                    /**< controller, trigger, device; empty when the line has none */
} ZAL_InterruptType;
ZAL_FROZEN_SIZE(ZAL_InterruptType, 140, 140);

/** Interrupt counters; zeroed by the caller before the first call. */
typedef struct {
  uint32_t totalInterrupts;                          /**< since boot; ZAL_GetInterruptCount adds a reading to it */
  uint32_t contextSwitches;                          /**< since boot; see ZAL_GetProcStatInfo */
  ZAL_InterruptCpu cpu[ZAL_INTERRUPTS_MAX_CPUS];     /**< the columns of the table */
  ZAL_InterruptType types[ZAL_INTERRUPTS_MAX_TYPES]; /**< its lines */
} ZAL_InterruptInfo;
ZAL_FROZEN_SIZE(ZAL_InterruptInfo, 16872, 16872);

/**
 * Reads the interrupt table. Line n after the header fills entry n - 1, the processors with a column are marked, and
 * the counters are added to those of the processors and to `totalInterrupts`: with each call on the same record the
 * sums grow by a whole reading, while the entries are replaced.
 *
 * Units:   interrupts since boot, the low 32 bits of every count. A line without a counter for a column counts 0 there;
 *          signs are not read. `totalInterrupts` grows by count[0] to count[columns - 1] of every entry: it misses a
 *          processor whose number is not below the number of columns, since one before it is offline.
 * Limits:  the first 10239 bytes of the table; a line that is cut there is read as it is. Lines beyond
 *          ZAL_INTERRUPTS_MAX_TYPES are reported on standard error, one by one; entries that no line fills stay.
 * Errors:  -1 for null, and when the table cannot be read, which is told on standard output.
 * Threads: any, one for a record. Sets the numeric locale of the process from its environment (setlocale(3)), so no
 *          other thread may format or read numbers by the locale meanwhile. The library itself reads and writes numbers
 *          the same way in every locale.
 * Source:  "/proc/interrupts", proc(5).
 *
 * @return 0, or -1
 */
ZAL_EXPORT int ZAL_GetInterruptCount(ZAL_InterruptInfo* info) ZAL_NOEXCEPT;

/**
 * Stores the totals of interrupts and context switches since boot in `totalInterrupts` and `contextSwitches`.
 *
 * Units:   the low 32 bits of each.
 * Errors:  -1 for null. When "/proc/stat" cannot be opened, that is told on standard error; a total that the file lacks
 *          is left as it was.
 * Threads: any, one for a record.
 * Source:  proc(5).
 *
 * @return 0, or -1
 */
ZAL_EXPORT int ZAL_GetProcStatInfo(ZAL_InterruptInfo* info) ZAL_NOEXCEPT;

/**
 * Finds the interrupt number of a serial port, as text.
 *
 * A line of the driver's table is about `port` when `port` begins with what stands before its ":", a number as in "0".
 * The last such line wins: "10" meets those of 1 and of 10.
 *
 * Ownership: `text` is the caller's and gets what the line says up to a blank, with a terminator: a few characters, and
 *            never more than 1024.
 * Threads:   any thread.
 * Errors:    -1 for null, and when the table cannot be opened, which is told on standard error and may be a matter of
 *            privileges. A port that is not found leaves `text` alone.
 * Source:    "/proc/tty/driver/serial".
 *
 * @return 0, or -1
 */
ZAL_EXPORT int ZAL_GetProcSerialIrqNum(const char* port, char* text) ZAL_NOEXCEPT;

/* ---- Memory and uptime ----------------------------------------------------------------------------------------- */

/** Memory of the device, in kB as meminfo counts them (1024 bytes). */
typedef struct {
  uint64_t total;     /**< usable by the system */
  uint64_t free;      /**< used for nothing */
  uint64_t available; /**< to be had without swapping, the kernel's estimate */
} ZAL_MemoryInfo;
ZAL_FROZEN_SIZE(ZAL_MemoryInfo, 24, 24);

/**
 * Gives the time since boot.
 *
 * Units:   seconds, to the nearest single-precision number: about 7 digits.
 * Threads: any thread.
 * Errors:  -1, with a line on standard error, when "/proc/uptime" cannot be opened. Nothing is stored then, nor when
 *          the file holds no number. Null does nothing.
 * Source:  proc(5), read without regard to the locale.
 *
 * @return 0, or -1
 */
ZAL_EXPORT int ZAL_GetUptimeFloat(float* seconds) ZAL_NOEXCEPT;

/** ZAL_GetUptimeFloat under another name. */
ZAL_EXPORT int ZAL_GetUpTimerFloat(float* seconds) ZAL_NOEXCEPT;

/**
 * Gives the time since boot in milliseconds.
 *
 * Units:   milliseconds, computed in single precision: they step by 1 in the first hours, by 32 after four days, and by
 *          a second after 100 days.
 * Threads: any thread.
 * Errors:  0 is stored when the time cannot be read, which is told on standard error as by ZAL_GetUptimeFloat. Null
 *          does nothing.
 *
 * @return 0 in every case
 */
ZAL_EXPORT int ZAL_GetUptime(uint64_t* milliseconds) ZAL_NOEXCEPT;

/** ZAL_GetUptime under another name. */
ZAL_EXPORT int ZAL_GetUpTime(uint64_t* milliseconds) ZAL_NOEXCEPT;

/**
 * Reads the memory figures of the device.
 *
 * Threads: any thread.
 * Errors:  a figure that "/proc/meminfo" lacks is left as it was, as "available" on kernels before 3.14; so are all
 *          when the file cannot be read. Null does nothing.
 * Source:  proc(5), the first 4095 bytes of the file.
 *
 * @return 0 in every case
 */
ZAL_EXPORT int ZAL_Osl_GetMemoryInfo(ZAL_MemoryInfo* info) ZAL_NOEXCEPT;

/* ---- Addresses, ports and sockets ------------------------------------------------------------------------------ */

/** Entries of a socket table. */
#define ZAL_PROC_SOCKET_ENTRIES 300
/** Sockets of one entry. */
#define ZAL_PROC_SOCKETS 200

/** One end of a connection, filled by the application. */
typedef struct {
  int32_t port;         /**< number of the port */
  uint8_t reserved[16]; /**< not read */
  char address[46];     /**< as text */
  char addressV6[46];   /**< the address of IPv6 as text; empty when there is none */
  char name[256];       /**< for example what ZAL_ConvertDotAddressToDescription gives */
} ZAL_AddressInfo;
ZAL_FROZEN_SIZE(ZAL_AddressInfo, 368, 368);

/** One process and its sockets. */
typedef struct {
  int32_t pid;                            /**< 0 ends the table */
  uint32_t sockets[ZAL_PROC_SOCKETS];     /**< inode numbers in the order found; 0 in the slots beyond */
  uint32_t socketTimes[ZAL_PROC_SOCKETS]; /**< change time of each socket's descriptor link, seconds */
  char name[64];                          /**< command name */
} ZAL_ProcSocketEntry;
ZAL_FROZEN_SIZE(ZAL_ProcSocketEntry, 1668, 1668);

/**
 * Describes an IPv4 address: "unknown" for 0.0.0.0, "localhost" for 127.0.0.1, else its name by a reverse lookup.
 *
 * The names of 50 addresses are kept for the life of the process, each as it was written into the buffer of
 * the call that looked it up, and cut to 45 characters; an address that has no name is kept as "unknown". After a
 * lookup that failed and took more than 2 seconds no other is made for 300 seconds; the first one after that which
 * succeeds, or fails fast, empties the cache.
 *
 * Threads: any thread, also at the same time. One lookup runs at a time and blocks its caller alone: an address that is
 *          not in the cache is "unknown" to the others meanwhile. No lock is held while it runs.
 * Units:   `size` in bytes; a longer description is cut and terminated. A null buffer stores nothing.
 * Errors:  no lookup is made for a text that is no dotted IPv4 address, or null: "unknown" and EAI_NONAME. An address
 *          that may not be looked up now is "unknown" and 0, and is not kept so.
 * Source:  getnameinfo(3), without flags: for an address without a name the system may give the address itself.
 *
 * @return 0, or the code of the lookup that failed, with the description "unknown"
 */
ZAL_EXPORT int ZAL_ConvertDotAddressToDescription(const char* address, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Gives the name of a port's service, such as "ssh".
 *
 * A port that has no name, or one that does not fit the buffer, is "unknown", which is cut when it does not fit either;
 * so is everything outside of 1 to 65535.
 *
 * Threads: any thread.
 * Units:   `port` in the byte order of the machine; `protocol` such as "tcp", null for any; `size` in bytes. A null
 *          buffer or a size of 0 stores nothing.
 * Errors:  memory ran out: "unknown", and a line on standard error.
 * Source:  /etc/services, services(5).
 *
 * @return 0
 */
ZAL_EXPORT int ZAL_ConvertPortToDescription(int32_t port, const char* protocol, char* buffer, size_t size) ZAL_NOEXCEPT;

/**
 * Adds an address as the member `key`: an object with "name", "address", "addressV6" (null when it is empty) and
 * "port". What the filter of the handle's tree rejects is left out, be it all of it.
 *
 * Ownership: the record is only read, no text beyond its field; null for any argument adds nothing.
 * Threads:   those that may use `handle`.
 *
 * @return 0
 */
ZAL_EXPORT int ZAL_ZalObjectAddAddressStructure(const ZAL_AddressInfo* info, const char* key,
                                                ZAL_ObjectHandle handle) ZAL_NOEXCEPT;

/**
 * Adds the same object to a bare node of the document below `top`, filtered as by json_AddObject.
 *
 * Ownership: the document owns what is added; null for any argument but `filterB` adds nothing.
 * Threads:   those that may use the document.
 *
 * @return 0
 */
ZAL_EXPORT int ZAL_JsonAddAddressStructure(const ZAL_AddressInfo* info, const char* key, const char* filterA,
                                           const char* filterB, cJSON* parent, cJSON* top) ZAL_NOEXCEPT;

/**
 * Finds the processes of the system: stores pid and command name of up to 300 of them, in the order of /proc, in the
 * first entries of a table, whose other entries end with pid 0. What these entries held before is dropped.
 *
 * `table` has ZAL_PROC_SOCKET_ENTRIES entries and is zeroed by the caller before the first call; a null one is left
 * alone. It takes half a megabyte: more than the stack of many a thread has to give.
 *
 * Ownership: the table stays the caller's.
 * Threads:   any thread, each with a table of its own.
 * Errors:    /proc cannot be opened: a line on standard error, and the table stays as it is. A process that ends
 *            meanwhile is left out.
 * Source:    proc(5), /proc/[pid]/comm. A command name may hold any byte but NUL.
 *
 * @return 0
 */
ZAL_EXPORT int ZAL_GatherProcPids(ZAL_ProcSocketEntry* table) ZAL_NOEXCEPT;

/**
 * Finds the sockets of the processes in a table that ZAL_GatherProcPids filled: the inode number of each descriptor
 * above 2 whose link has the form "socket:[inode]", and the link's change time. What the entries held before is
 * dropped.
 *
 * Threads: any thread, each with a table of its own; a null table is left alone.
 * Errors:  a process that has ended, or whose descriptors this one may not see, has no sockets. Sockets beyond the
 *          200th of a process are logged at ZAL_LOG_INFO and left out.
 * Source:  proc(5), /proc/[pid]/fd.
 *
 * @return 0
 */
ZAL_EXPORT int ZAL_GatherProcPidsSymlinks(ZAL_ProcSocketEntry* table) ZAL_NOEXCEPT;

/**
 * Finds the process that holds a socket. Inode 0 stands in every free slot and is no socket: do not look for it.
 *
 * @return the index of the first entry that holds the inode, or -1, also for a null table
 */
ZAL_EXPORT int ZAL_FindInodeSocket(uint32_t inode, const ZAL_ProcSocketEntry* table) ZAL_NOEXCEPT;

/** @return the slot of a socket in the sockets of entry `index`, or -1; also for a null table, an index that the table
 * does not have and inode 0. */
ZAL_EXPORT int ZAL_FindSocketIdx(const ZAL_ProcSocketEntry* table, int32_t index, uint32_t inode) ZAL_NOEXCEPT;

/* ---- Public address -------------------------------------------------------------------------------------------- */

/**
 * Learns the address under which the outside sees this device, from STUN servers, and keeps it for
 * ZAL_GetPublicIpAddress.
 *
 * The servers are asked in their order until one tells the address; those behind it are not asked. A server that cannot
 * be asked, does not answer or answers without an address is passed over, and an address learnt earlier is kept.
 *
 * Servers are "host" or "host:port"; without a port it is 3478, and of a number the low 16 bits count. A host is a
 * dotted IPv4 address or a name, of 8 to 45 characters: shorter ones are refused, and of longer ones the first 45 are
 * taken.
 *
 * Ownership: the texts stay the caller's, and a ":" in them is overwritten with a terminator.
 * Threads:   one at a time. Blocks for up to 3.5 s a server, and while names are looked up.
 * Limits:    one call in 10 seconds, by the wall clock; after the clock was set back, none before it has caught up.
 *            Calls without servers count, refused ones do not.
 * Errors:    told on standard error: a call too early, a name that is not found, a local port (8000 to 8999, at random)
 *            that is in use, a question that cannot be sent, an answer that is no success, and no answer.
 * Source:    RFC 5389, Binding over UDP, IPv4 only; MAPPED-ADDRESS or XOR-MAPPED-ADDRESS, whichever comes first.
 *            Neither the sender of the answer nor its transaction id is checked: do not rely on the address for
 *            security.
 *
 * @return what became of the last server that was asked: 1 it answered (and told the address, unless it was the last of
 *         all), 0 it could not be asked, -1 it did not answer or its text is null or too short. -1 also for a call too
 *         early, and without servers
 */
ZAL_EXPORT int ZAL_SetPublicIpAddress(char** servers, uint32_t count) ZAL_NOEXCEPT;

/**
 * Gives the public address learnt last, in dotted form, cut to `size` - 1 characters.
 *
 * Errors:  before an address was learnt the buffer is left alone: that is how a caller tells, and ZAL_IsValidIp4. A
 *          null buffer and a size of 0 do nothing.
 * Threads: any, also while ZAL_SetPublicIpAddress runs.
 *
 * @return 0 in every case
 */
ZAL_EXPORT int ZAL_GetPublicIpAddress(char* buffer, size_t size) ZAL_NOEXCEPT;

/** @return 1 for four numbers of 0 to 255 joined by dots, with or without leading zeros, else 0; null gives 0 */
ZAL_EXPORT int ZAL_IsValidIp4(const char* text) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
