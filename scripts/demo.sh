#!/usr/bin/env bash
# Shows what the library does: a stand-in agent and a client, two processes that meet at a socket of their own.
# Every step checks what it shows; the status is 0 only when all of it was seen.
#
#   scripts/demo.sh BUILD_DIR
set -euo pipefail

build=$(cd "${1:?usage: demo.sh BUILD_DIR}" && pwd)
for program in tools/zalctl examples/gateway examples/documents; do
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
  local who=$1 descriptor=$2 line pattern missing
  shift 2
  block=''
  while ((SECONDS < deadline)); do
    IFS= read -r -t $((deadline - SECONDS)) -u "$descriptor" line || break
    [[ $quiet ]] || show "$who" "$line"
    block+=$line$'\n'
    missing=''
    for pattern in "$@"; do grep -Eq -- "$pattern" <<<"$block" || missing=$pattern; done
    if [[ ! $missing ]]; then return 0; fi
  done
  fail "${who% *} never says: $missing"
}
quiet=''
agent_until() { until_lines 'agent  |' "$agent_out" "$@"; }
client_until() { until_lines 'client |' "$client_out" "$@"; }
documents_until() { until_lines 'docs   |' "$documents_out" "$@"; }

tell() {
  show '   you >' "$1"
  printf '%s\n' "$1" >&"$agent_in"
}

# ask COMMAND: gives a call and shows its answer; `block` holds the answer's JSON.
ask() {
  tell "$1"
  agent_until '^reply to '
  agent_until '^    }$'
}

# keep_block TITLE: the block at the left margin, below a title.
keep_block() { printf '%s\n\n%s' "$1" "$block" | sed 's/^    //'; }

expect() { grep -Eq -- "$1" <<<"$block" || fail "missing: $1"; }
expect_not() { if grep -Eq -- "$1" <<<"$block"; then fail "not wanted: $1"; fi; }

start_agent() {
  "$build/tools/zalctl" agent --url "$url" --config "$1" <"$dir/agent.in" >"$dir/agent.out" 2>&1 &
  agent_pid=$!
  agent_until '^listening at '
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
kill -TERM "$client_pid"
client_until 'ending'
wait "$client_pid" || fail "the client ended with status $?"
client_pid=''
agent_until ' disconnected'
tell 'quit'
wait "$agent_pid" || fail "the agent ended with status $?"
agent_pid=''
[[ ! -e $dir/agent.sock ]] || fail 'the socket is left behind'
echo
echo 'Everything above was checked.'
