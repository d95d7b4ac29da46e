#!/usr/bin/env bash
# coverage.sh [BUILD]: runs what the test command runs, and fails memory and system calls in the short forms of ./dev torture,
# on an instrumented build of clang's (./dev coverage makes it). Prints how many lines and branches of each source of core/
# were reached, and fails below the shares that are asked for, or where a line of the engine, the records, the transport or the
# URIs was not reached that is not among those below.
#
# Left out are the tests that run none of the library's code (exported symbols, ABI, installation). The counters live in mapped
# files (%c), so that a process that is killed or aborts has counted as well.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build=${1:-build/coverage}
least_lines=95
least_branches=85

# The first line of each run of lines that nothing reaches in the modules that are to be reached whole.
complete='base/(zal_tpl|zal_ipc|vorn_uri|zal_uriparser)'
unreached=(
  # what cannot be: callbacks without their data, a read of more than was asked for
  'ZAL_LOG(ZAL_LOG_ERROR, "invalid handle\n");' 'tpl_hook.report_fn("internal error\n");'
  # images of more than 4 GiB
  'tpl_hook.report_fn("tpl_dump: image exceeds %u bytes\n"'
  # the socket that a test would take from the desk's agent
  'case kNoTransport:' 'return unixDomain(kDefaultSocketPath);'
  # for invariants alone, which are not checked here
  '[[nodiscard]] inline bool isOnLoop('
  # a macro, which counts where it stands
  '#define ZAL_TPL_FATAL('
)

# llvm-cov is llvm-cov-14 where only a version of it is installed.
tool() { command -v "$1" || compgen -c "$1-" | sort -V | tail -n 1; }

rm -rf "$build/profiles"
mkdir -p "$build/profiles"
export LLVM_PROFILE_FILE=$PWD/$build/profiles/%c%4m.profraw
ctest --test-dir "$build" -j "$(nproc)" --timeout 600 --output-on-failure -E '^(ExportedSymbols|abi_baseline|install)' |
  grep -v ' Passed \|  *Start '
"$build/fuzz/faults/zal_faults_memory" --quick
"$build/fuzz/faults/zal_faults_calls" --most 3
"$(tool llvm-profdata)" merge -sparse "$build"/profiles/*.profraw -o "$build/tests.profdata"

cov=$(tool llvm-cov)
result=0
# The shared library has every source once; what the tests ran of the static one counts for the same functions.
"$cov" report "$build/libzal-client.so" -instr-profile="$build/tests.profdata" --show-branch-summary \
  --show-region-summary=false core |
  awk -v lines=$least_lines -v branches=$least_branches '
    function share(total, missed) { return total == 0 ? 100 : 100 * (total - missed) / total }
    NF == 10 && $2 ~ /^[0-9]+$/ {
      printf "%-45s %6d lines %7.2f %%   %6d branches %7.2f %%\n", $1, $5, share($5, $6), $8, share($8, $9)
    }
    $1 == "TOTAL" { isEnough = share($5, $6) >= lines && share($8, $9) >= branches; seen = 1 }
    END {
      if (!seen || !isEnough) { printf "below %d %% of lines or %d %% of branches\n", lines, branches; exit 1 }
    }' || result=1

# A brace alone is nothing to reach: behind a return in a case it counts as not reached.
"$cov" show "$build/libzal-client.so" -instr-profile="$build/tests.profdata" |
  awk -v complete="$complete" '
    /^\/.*:$/ { file = $0; last = 0; isAsked = $0 ~ complete; wasAsked += isAsked }
    isAsked && /^ *[0-9]+\| +0\|/ && !/\| *[{}]+$/ { if ($1 + 0 != last + 1) print file " " $0; last = $1 + 0 }
    END { if (!wasAsked) print "any source of these" }' |
  grep -vFf <(printf '%s\n' "${unreached[@]}") && { echo "not reached"; result=1; }
exit $result
