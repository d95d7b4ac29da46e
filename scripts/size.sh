#!/usr/bin/env bash
# What the library costs a device, in bytes of files and kilobytes of memory.
#
#   scripts/size.sh BUILD_DIR TRIPLET [memory]      memory: also starts a client, which the machine must be able to run
set -euo pipefail
build=$1 libraries=/usr/lib/$2
dir=$(mktemp -d)
agent='' client=''

cleanup() {
  for pid in $agent $client; do kill -KILL "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$dir"
}
trap cleanup EXIT

row() { printf '  %-36s %9s\n' "$1" "$2"; }
needed() { readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'; }

# closure FILE: the libraries that it needs, directly or not, without those of the C library.
closure() {
  local library
  for library in $(needed "$1"); do
    case $library in libc.so.* | libm.so.* | ld-linux*) continue ;; esac
    printf '%s\n' "$library"
    closure "$libraries/$library"
  done
}

"$2-strip" -o "$dir/stripped" "$build/libzal-client.so"
total=$(stat -c %s "$dir/stripped")
row 'libzal-client, stripped' "$total"
for library in $(closure "$dir/stripped" | sort -u); do
  size=$(stat -L -c %s "$libraries/$library")
  row "$library" "$size"
  total=$((total + size))
done
row 'together, beside the C library' "$total"
row 'written to while it is loaded' "$("$2-size" "$dir/stripped" | awk 'NR == 2 { print $2 + $3 }')"
[[ ${3:-} == memory ]] || exit 0

url=file://$dir/agent.sock
"$build/tools/zalctl" agent --url "$url" --stay -c 'wait-for telemetry inventory' -c list >"$dir/agent.out" 2>&1 &
agent=$!
"$build/examples/documents" "$url" >/dev/null &
client=$!
deadline=$((SECONDS + 10))
until grep -q '^> list' "$dir/agent.out"; do
  ((SECONDS < deadline)) || { echo 'size: the client did not connect' >&2 && exit 1; }
  sleep 0.1
done
awk '/^(Rss|Pss|Private_Clean|Private_Dirty):/ { kb[$1] = $2 }
     END { printf "  idle client: %d kB resident, %d kB in proportion, %d kB of its own\n",
                  kb["Rss:"], kb["Pss:"], kb["Private_Clean:"] + kb["Private_Dirty:"] }' "/proc/$client/smaps_rollup"
