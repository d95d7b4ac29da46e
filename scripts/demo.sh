#!/usr/bin/env bash
# Shows what the library does: a stand-in agent and its clients, processes that meet at a socket of their own.
# Every step checks what it shows; the status is 0 only when all of it was seen.
#
#   scripts/demo.sh BUILD_DIR
set -euo pipefail
unset LC_ALL
export LC_NUMERIC=C # the decimal point of JSON is that of printf

build=$(cd "${1:?usage: demo.sh BUILD_DIR}" && pwd)
for program in tools/zalctl examples/gateway examples/documents examples/device_gateway; do
  [[ -x $build/$program ]] || { echo "demo: $build/$program is not built" >&2 && exit 2; }
done
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$(mktemp -d)
url=file://$dir/agent.sock
deadline=$((SECONDS + 18))
agent_pid='' client_pid='' documents_pid=''

cleanup() {
  local status=$?
  trap - EXIT
  for pid in $agent_pid $client_pid $documents_pid; do kill -KILL "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$dir"
  exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

explain() { printf '\n%s\n\n' "$1"; }
show() { printf '%s %s\n' "$1" "$2"; }
fail() {
  printf 'demo: %s\n' "$1" >&2
  exit 1
}

# until_lines WHO DESCRIPTOR PATTERN...: shows the lines that come until each pattern has met one; `block` holds them.
until_lines() {
  local who=$1 descriptor=$2 line i
  shift 2
  local -a missing=("$@")
  block=''
  while ((SECONDS < deadline)); do
    IFS= read -r -t $((deadline - SECONDS)) -u "$descriptor" line || break
    [[ $quiet ]] || show "$who" "$line"
    block+=$line$'\n'
    for i in "${!missing[@]}"; do if [[ $line =~ ${missing[i]} ]]; then unset "missing[$i]"; fi; done
    if ((${#missing[@]} == 0)); then return 0; fi
  done
  fail "${who% *} never says: ${missing[*]}"
}
quiet=''
agent_until() { until_lines 'agent  |' "$agent_out" "$@"; }
client_until() { until_lines 'client |' "$client_out" "$@"; }
documents_until() { until_lines 'docs   |' "$documents_out" "$@"; }

tell() {
  show '   you >' "$1"
  printf '%s\n' "$1" >&"$agent_in"
}

# ask COMMAND: gives a call and shows its answer; `reply` holds the answer's title, `block` its JSON.
ask() {
  tell "$1"
  agent_until '^reply to '
  reply=$(grep '^reply to ' <<<"$block")
  agent_until '^    }$'
}

# keep_block TITLE: the block at the left margin, below a title.
keep_block() { printf '%s\n\n%s' "$1" "$block" | sed 's/^    //'; }

# rows MEMBER...: the objects in the block that have one of these members at least, a line each. "local.port" is the
# member "port" of a member "local"; what an object lacks is empty.
rows() {
  awk -v members="$*" '
    BEGIN { count = split(members, wanted, " "); inner = "" }
    function flush(  i, line, any) {
      for (i = 1; i <= count; ++i) {
        any = any || (wanted[i] in value) # before it is read, which makes it
        line = line (i > 1 ? "\037" : "") value[wanted[i]]
      }
      if (any) print line
      split("", value)
    }
    /^ *"[^"]*": \{$/ { split($0, part, "\""); inner = part[2] "."; next }
    /[[{]$/ { inner = ""; next }
    /^ *\}/ { if (inner != "") inner = ""; else flush(); next }
    /^ *"[^"]*": / {
      split($0, part, "\"")
      sub(/^ *"[^"]*": "?/, "")
      sub(/"?,?$/, "")
      value[inner part[2]] = $0
    }' <<<"$block"
}

# mebibytes KIB: as a person reads it.
mebibytes() { printf '%d.%d MiB' $(($1 / 1024)) $(($1 % 1024 * 10 / 1024)); }

# free_port: a TCP port of the loopback that nobody listens at, one that bears a name where there is such a one.
free_port() {
  local port
  for port in $(awk '$2 ~ /^[0-9]+\/tcp$/ && $2 + 0 > 1024 { print $2 + 0 }' /etc/services 2>/dev/null | shuf -n 20) \
    $(shuf -i 20000-29999 -n 20); do
    if ! (: <>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
      echo "$port"
      return
    fi
  done
}

expect() { grep -Eq -- "$1" <<<"$block" || fail "missing: $1"; }
expect_not() { if grep -Eq -- "$1" <<<"$block"; then fail "not wanted: $1"; fi; }

start_agent() {
  "$build/tools/zalctl" agent --url "$url" --config "$1" <"$dir/agent.in" >"$dir/agent.out" 2>&1 &
  agent_pid=$!
  agent_until '^listening at '
}

end_client() {
  kill -TERM "$client_pid"
  wait "$client_pid" || fail "the client ended with status $?"
  client_pid=''
  agent_until ' disconnected'
}

end_agent() {
  tell 'quit'
  wait "$agent_pid" || fail "the agent ended with status $?"
  agent_pid=''
}

# Open for reading and writing here, so that the pipes outlive each process at their other end.
mkfifo "$dir/agent.in" "$dir/agent.out" "$dir/client.out" "$dir/documents.out"
exec {agent_in}<>"$dir/agent.in" {agent_out}<>"$dir/agent.out" {client_out}<>"$dir/client.out"
exec {documents_out}<>"$dir/documents.out"
config=$root/examples/gateway-config.json
sed 's/"enabled": true/"enabled": false/' "$config" >"$dir/quiet.json"

explain "1. On a gateway a central process, the agent, serves a local socket. Here zalctl stands in for it.
   A client links libzal-client: it connects and gets its configuration, and so the settings of its events."
start_agent "$dir/quiet.json"
"$build/examples/gateway" "$url" >"$dir/client.out" 2>&1 &
client_pid=$!
agent_until ' asked for its configuration'
client_until 'connected \(0\)' 'wants no heartbeat'

explain "2. The client's methods are subscribed now. And this client asks a question: the agent passes a gateway
   request on to another party, and the answer comes back to a callback. The stand-in echoes the question."
tell 'wait-for network getStatus'
agent_until ' gateway request cloud lookup' '^    }$' '^network getStatus is subscribed'
client_until 'the cloud answered \{"device":"gateway"\}'

explain "3. The agent calls a method. The library parses the request, runs the client's handler on a worker
   thread, and sends what the handler puts into its response."
ask 'call network getStatus {"name": "eth0"}'
expect '"name": "eth0"'
expect_not '"name": "wlan0"'

explain "   A handler may refuse, and a method that nobody offers is answered, too."
ask 'call network setInterface {"name": "ppp0", "up": true}'
expect '"code": 404'
tell 'call network reboot'
agent_until '^no such method: network reboot'

explain "4. A telemetry dataset is read whole, or narrowed by a path and a query. The handler is the same:
   it adds all that it has, and the library leaves out what was not asked for."
quiet=yes
ask 'call telemetry device'
expect '"hostname"' && expect '"temp"' && expect '"network"'
keep_block 'device:' >"$dir/whole"
ask 'call telemetry device/system?include=cpu+memory/free&exclude=cpu/temp'
expect '"load"' && expect '"free"'
expect_not '"(hostname|temp|total|network)"'
keep_block 'device/system?include=...&exclude=...:' >"$dir/narrowed"
quiet=''
echo
pr -m -t -w 90 "$dir/whole" "$dir/narrowed" | expand

explain "5. A second client builds its documents itself: with a header, and under two filters, the request's and
   one of its configuration. It cuts arrays to a range, and says what a request asks for in vain."
"$build/examples/documents" "$url" >"$dir/documents.out" 2>&1 &
documents_pid=$!
documents_until 'connected \(0\)' 'hides nothing'
quiet=yes
tell 'wait-for telemetry inventory'
agent_until '^telemetry inventory is subscribed'
ask 'call telemetry inventory/device'
expect '"description"' && expect '"serial"'
keep_block 'device:' >"$dir/device"
ask 'call telemetry inventory/ports?range=1:1'
expect '"eth1"' && expect_not '"eth0"' && expect_not '"wlan0"'
keep_block 'ports?range=1:1:' >"$dir/ports"
quiet=''
echo
pr -m -t -w 100 "$dir/device" "$dir/ports" | expand
echo
ask 'call telemetry inventory/fans'
expect '"code": 404' && expect 'Invalid resource:fans'

explain "   A change of the configuration reaches it while it runs: from now on the serial number is hidden."
quiet=yes
documents_until 'invalid range filter' # of the message, which finds no array where it looks
quiet=''
tell "config $root/examples/documents-config.json"
agent_until '^configuration remembered'
tell 'notify onProfileChanged telemetry'
documents_until 'profile of telemetry changed' 'hides .*device/serial'
quiet=yes
client_until 'profile of telemetry changed' 'wants no heartbeat' # the other client hears of it, too
quiet=''
ask 'call telemetry inventory/device'
expect '"started"' && expect_not '"serial"'
kill -TERM "$documents_pid"
wait "$documents_pid" || fail "the client of documents ended with status $?"
documents_pid=''
agent_until ' disconnected'

explain "6. The agent keeps the configuration. When it changes, the client hears of it and reads the new
   setting of its event, and from now on the event comes."
tell "config $config"
agent_until '^configuration remembered'
tell 'notify onProfileChanged network'
client_until 'profile of network changed' 'heartbeat every 300 ms'
agent_until ' event system heartbeat'
agent_until '^    }$'
expect '"count"'

explain "7. The agent dies without a word, and comes back. The client sees the end of the connection, tries
   again by itself, and subscribes its methods anew."
{ kill -KILL "$agent_pid" && wait "$agent_pid"; } 2>/dev/null || true # the shell would report the death
client_until 'disconnected \(1\)'
start_agent "$dir/quiet.json"
tell 'wait-for network getStatus'
agent_until ' gateway request cloud lookup' '^    }$' '^network getStatus is subscribed'
client_until 'connected \(0\)' 'the cloud answered'
ask 'call network getStatus {"name": "wlan0"}'
expect '"name": "wlan0"'

explain "8. Both end: the client on SIGTERM, the agent at quit."
end_client
client_until 'ending'
end_agent
[[ ! -e $dir/agent.sock ]] || fail 'the socket is left behind'

explain "9. A client in C++ offers the machine itself; it meets its agent at a TCP port of the loopback. Load is measured
   for half a second, but only for a request that wants it: look how long the answers take."
url=tcp://127.0.0.1:$(free_port)
start_agent "$dir/quiet.json"
"$build/examples/device_gateway" "$url" >"$dir/client.out" 2>&1 &
client_pid=$!
quiet=yes
tell 'wait-for telemetry processes'
agent_until '^telemetry processes is subscribed'
ask 'call telemetry device/system?include=memory'
expect '"total"' && expect_not '"(cpu|uptime|network)"'
show 'agent  |' "$reply"
ask 'call telemetry device/system?include=cpu+memory/free'
expect '"usage"' && expect '"free"' && expect_not '"(total|uptime|network)"'
show 'agent  |' "$reply"
number=0
while IFS=$'\037' read -r usage user system; do
  printf '         processor %d   %6.2f %% busy: %6.2f %% user, %6.2f %% system\n' $((number++)) "$usage" "$user" "$system"
done < <(rows usage user system)
printf '         memory        %s free\n' "$(mebibytes "$(rows memory.free | tail -n 1)")"

explain "   The busiest processes: the array is sorted by the client, and cut to five by the library."
ask 'call telemetry processes?include=list&range=0:5'
rows pid name cpu resident state >"$dir/busiest"
(($(wc -l <"$dir/busiest") <= 5)) || fail 'more than five processes'
cut -d $'\037' -f 3 "$dir/busiest" | sort -c -g -r || fail 'the busiest process is not the first'
while IFS=$'\037' read -r pid name cpu resident state; do
  printf '         %7d  %-16s  %6.2f %%  %10s  %s\n' "$pid" "$name" "$cpu" "$(mebibytes "$resident")" "$state"
done <"$dir/busiest"

explain "   And the sockets of one process, the agent: where it listens, and its end of the connection to this client."
ask 'call telemetry device/network'
rows process.pid process.name state local.name local.port localService remote.name remote.port |
  grep "^$agent_pid"$'\037' >"$dir/sockets" || fail 'the agent has no sockets'
while IFS=$'\037' read -r pid name state local port service remote remote_port; do
  printf '         %s (%d)  %-11s  at %s, port %d (%s)' "$name" "$pid" "$state" "$local" "$port" "$service"
  [[ $state != established ]] || printf '  with %s, port %d' "$remote" "$remote_port"
  echo
done <"$dir/sockets" | tee "$dir/told"
for state in listening established; do
  grep -q "^ *zalctl ($agent_pid)  $state  *at localhost, port ${url##*:} " "$dir/told" || fail "no socket is $state"
done
end_client
end_agent
echo
echo 'Everything above was checked.'
