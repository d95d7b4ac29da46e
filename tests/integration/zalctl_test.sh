#!/usr/bin/env bash
# zalctl's stand-in agent against the example clients: what it prints and the status that it ends with.
#
#   zalctl_test.sh ZALCTL GATEWAY DOCUMENTS       ZAL_EMULATOR holds the words before each program in a cross build
set -euo pipefail

read -r -a emulator <<<"${ZAL_EMULATOR:-}"
zalctl=("${emulator[@]}" "$1")
gateway=("${emulator[@]}" "$2")
documents=("${emulator[@]}" "$3")
dir=$(mktemp -d)
url=file://$dir/agent.sock
declare -A pids

cleanup() {
  local status=$?
  trap - EXIT
  kill -KILL "${pids[@]}" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$dir"
  exit "$status"
}
trap cleanup EXIT

fail() {
  printf 'FAILED: %s\n' "$1" >&2
  tail -n 40 "$dir"/*.out >&2 || true
  exit 1
}

# A sanitizer's own status can be one that is expected, so its reports are looked for.
no_reports() { if grep -q 'Sanitizer\|runtime error' "$dir"/*.out; then fail 'a sanitizer reports'; fi; }

# check STATUS PATTERN ARGUMENT...: runs the agent to its end; its status, and a line of what it prints.
check() {
  local status=0
  "${zalctl[@]}" "${@:3}" >"$dir/run.out" 2>&1 </dev/null || status=$?
  [[ $status == $1 ]] || fail "status $status, not $1: ${*:3}"
  grep -Eq -- "$2" "$dir/run.out" || fail "no line like '$2': ${*:3}"
  no_reports
}
agent() { check "$1" "$2" agent --url "$url" "${@:3}"; }

# wait_for PATTERN FILE: until the file has such a line.
wait_for() {
  local deadline=$((SECONDS + 60))
  until grep -Eq -- "$1" "$2"; do
    ((SECONDS < deadline)) || fail "no line like '$1' in $2"
    sleep 0.02
  done
}

# start NAME PROGRAM ARGUMENT...: what it prints goes to NAME.out.
start() {
  "${@:2}" >"$dir/$1.out" 2>&1 &
  pids[$1]=$!
}

# end NAME: SIGTERM ends it with status 0, and so without leaks where a sanitizer looks.
end() {
  kill -TERM "${pids[$1]}"
  wait "${pids[$1]}" || fail "$1 ended with status $?"
}

echo '{"events": ' >"$dir/broken.json"
echo '{"events": {}}' >"$dir/good.json"

# Wrong usage, and nobody there.
check 0 'wait-for' agent --help
check 2 'subcommand' --url "$url"
agent 2 'no valid JSON' --config "$dir/broken.json"
agent 2 'cannot read .*none' --script "$dir/none"
check 2 'cannot listen' agent --url "file://$dir/none/agent.sock"
agent 1 'no client is connected' -c 'call network getStatus'
agent 1 'not subscribed after 20 ms' -c 'wait-for --timeout 20 network getStatus'
agent 0 'no client is connected' -c '# a comment' -c '' -c list

# Commands that cannot be understood: each is reported, and the next one still runs.
while IFS='|' read -r message command; do
  agent 2 "$message" -c "$command" -c list
  grep -q '^no client is connected' "$dir/run.out" || fail "nothing runs after: $command"
done <<EOT
unknown command frob|frob network
call: NAME is missing|call network
call: no number: 5s|call --timeout 5s network getStatus
call: no valid JSON: it ends|call network getStatus {"name":
notify: unknown notification onFire|notify onFire network
config: cannot read|config $dir/none.json
EOT

# At a terminal: a line that is edited, if the program can.
typed='list\n'
if ldd "$1" 2>/dev/null | grep -q libedit; then typed='ist\001l\n'; fi
mkfifo "$dir/keys"
exec {keys}<>"$dir/keys"
HOME=$dir TERM=xterm script -qefc "${zalctl[*]} agent --url $url" "$dir/typed.out" <"$dir/keys" >/dev/null 2>&1 &
pids[terminal]=$!
wait_for 'listening at' "$dir/typed.out"
printf '%b' "$typed" >&"$keys"
wait_for '^no client is connected' "$dir/typed.out"
echo quit >&"$keys"
wait "${pids[terminal]}" || fail "the agent at a terminal ended with status $?"

# Calls to the example, from a script.
start gateway "${gateway[@]}" "$url"
cat >"$dir/calls" <<'EOT'
# known methods alone
wait-for --timeout 60000 network getStatus
call --timeout 60000 network getStatus {"name": "eth0"}
call --timeout 60000 --raw system getInfo {"data": 1}
call --timeout 60000 "network" setInterface {}
EOT
agent 0 '"name": "eth0"' --config "$dir/good.json" --script "$dir/calls"
grep -q '"client": "gateway"' "$dir/run.out" || fail 'no answer to the call without an envelope'
grep -q '"code": 400' "$dir/run.out" || fail "the method's own error is missing"
echo 'call network' >>"$dir/calls"
agent 2 "calls:6: call: NAME is missing" --script "$dir/calls"
sed -i '$d' "$dir/calls"
agent 1 '^no such method: a\\x01b getStatus' --script "$dir/calls" -c $'call a\x01b getStatus'

# The example on bare documents: cut to a range, refused, and told to hide something while it runs.
start documents "${documents[@]}" "$url"
echo '{"inventory": {"hide": "ports/mac"}}' >"$dir/hide.json"
agent 0 'Invalid resource:fans' -c 'wait-for --timeout 60000 telemetry inventory' \
  -c 'call --timeout 60000 telemetry inventory/fans' -c "config $dir/hide.json" -c 'notify onProfileChanged telemetry' \
  -c 'call --timeout 60000 telemetry inventory/ports?range=1'
grep -q '"ports":.*"name": *"eth1"' <(tr -d '\n' <"$dir/run.out") || fail 'the port that was asked for is missing'
if grep -q 'eth0\|"mac"' "$dir/run.out"; then fail 'a port or a member too many'; fi
wait_for 'documents: the profile of telemetry changed' "$dir/documents.out"
wait_for 'documents: the configuration hides .*ports/mac' "$dir/documents.out"
end documents

# From other terminals: through the control socket of a running agent, or listening for the client themselves.
cat >"$dir/beat.json" <<<'{"events": {"settings": {"heartbeat": {"enabled": true, "interval": 50}}}}'
commands() { # commands OPTION...: each of them once, over the link that the options choose
  check 0 '^\{"outcome":"answered",.*"data":\{"interfaces"' call --timeout 60000 "$@" network getStatus
  check 3 '"payload":\{"error":\{"code":400' call --timeout 60000 "$@" network setInterface '{}'
  check 0 '^\{"client":[0-9]+,.*\{"service":"system","method":"getInfo"\}' list "$@"
  check 0 '^\{"clients":1\}' config "$@" "$dir/beat.json"
}
commands --url "$url" --wait 60000 --json
check 1 'no client has subscribed network frob' call --url "$url" --wait 20 network frob
check 2 'no socket' agent --url "$url" --control "$dir/good.json" -c list
control=(--control "$dir/agent.sock.ctl")
check 4 'no agent at' list "${control[@]}"
start desk "${zalctl[@]}" agent --url "$url" --stay -c 'wait-for --timeout 60000 network getStatus'
wait_for '^network getStatus is subscribed' "$dir/desk.out"
[[ $(stat -c %a "$dir/agent.sock.ctl") == 600 ]] || fail 'the control socket is open to others'
start listen "${zalctl[@]}" listen "${control[@]}" --json --kind event
commands "${control[@]}" --json
check 1 '^no such method: network frob' call "${control[@]}" --timeout 60000 network frob
check 1 '^no reply to network getStatus within 0 ms' call "${control[@]}" --timeout 0 network getStatus
wait_for '"client":1,.*"kind":"event","service":"system","name":"heartbeat","payload":\{' "$dir/listen.out"
check 0 'client 1 .*event system heartbeat' listen "${control[@]}" --count 1 --timeout 60000
check 2 'unknown-kind' listen "${control[@]}" --kind unknown-kind
if grep -q '"kind":"response"' "$dir/listen.out"; then fail 'the filter lets a response pass'; fi
end listen
end desk
[[ ! -e $dir/agent.sock.ctl ]] || fail 'the control socket is left behind'
ln -s "$dir/good.json" "$dir/agent.sock.ctl"
agent 0 'no control socket: .* no socket' -c list
grep -q events "$dir/good.json" || fail 'a link was followed'
rm "$dir/agent.sock.ctl"

# Gateway requests, answered by rules.
cat >"$dir/answers.json" <<'EOT'
[{"service": "cloud", "name": "look*", "when": {"device": "another"}, "drop": true},
 {"service": "cloud", "name": "look*", "when": {"device": "gateway"}, "answer": {"found": [1]}, "delay": 20}]
EOT
sed 's/delay/dealy/' "$dir/answers.json" >"$dir/broken.json"
agent 2 'broken.json: rule 2 has an unknown member "dealy"' --answers "$dir/broken.json"
start answers "${zalctl[@]}" agent --url "$url" --stay --answers "$dir/answers.json"
wait_for 'gateway request cloud lookup .*answered by rule 2' "$dir/answers.out"
wait_for 'the cloud answered \{"found":\[1\]\}' "$dir/gateway.out"
end answers

# Between a client and its agent: what passes is printed and recorded, and the recording serves again.
kill -STOP "${pids[gateway]}" # it would take the calls
start agent "${zalctl[@]}" agent --url "$url" --stay --config "$dir/good.json"
start monitor "${zalctl[@]}" monitor --url "file://$dir/monitor.sock" --agent "$url" --json --record "$dir/recording" \
  --service network,cloud --kind request,response,empty,gateway-response
start monitored "${gateway[@]}" "file://$dir/monitor.sock"
wait_for 'subscribed network getStatus' "$dir/agent.out"
wait_for '"to":"client","kind":"gateway-response","service":"cloud","name":"lookup",.*"milliseconds":' "$dir/monitor.out"
for method in getStatus frob setInterface; do
  check '[013]' network call "${control[@]}" --timeout 60000 network $method
done
wait_for '"kind":"empty","service":"network","name":"frob",.*"milliseconds":' "$dir/monitor.out"
wait_for '"to":"agent","kind":"response","service":"network","name":"setInterface",.*"milliseconds":' "$dir/monitor.out"
if grep -q subscribe "$dir/monitor.out"; then fail 'the filter lets a subscription pass'; fi
end monitor
end agent
check 2 'another one' monitor --url "$url" --agent "$url"
check 0 '^\{"time":[0-9.]+,"client":1,"to":"agent","kind":"subscribe","service":"network"' decode "$dir/recording"
check 0 '^00000000  74 70 6c 00 .*\|tpl' decode --text --hex "$dir/recording"
{ head -c 5000 /dev/urandom && cat "$dir/recording"; } >"$dir/noise"
check 2 '"kind":"request","service":"network","name":"getStatus","id":1' decode "$dir/noise"
head -c 700 "$dir/recording" >"$dir/cut"
check 2 'not all of it' decode "$dir/cut"
image='74706c005a0000004128694242424269290002000000050000000400000073766300040000006765740001000000000200000'
image+='07b7d07000000030000000400000073766300040000007365740001000000000000000000000000'
printf '%b' "$(sed 's/../\\x&/g' <<<"$image")" >"$dir/capture"
check 0 '"kind":"request","service":"svc","name":"get","id":7,"payload":\{\}\}$' decode "$dir/capture"
check 0 '^\{"sent":5,"same":3,"different":0,"missing":0\}$' replay "$dir/recording" --json --speed 0 \
  --url "file://$dir/monitor.sock" --wait 60000 --timeout 60000
sed 's/eth0/eth9/g' "$dir/recording" >"$dir/altered"
check 1 '^different: response network getStatus' replay "$dir/altered" --strict --speed 0 \
  --url "file://$dir/monitor.sock" --wait 60000 --timeout 60000

# Load.
load() { check "$1" "$2" bench --url "file://$dir/monitor.sock" --timeout 60000 "${@:3}"; }
load 0 '"requests":50,"refused":0,"unanswered":0,.*"histogram":\[\{' network getStatus --requests 50 --in-flight 4 --json
load 3 '^2 answered with an error' network setInterface '{}' --requests 2
load 0 'p99 .*max' system getInfo --seconds 0.05
load 1 'no client has subscribed' network frob --wait 20
end monitored
kill -CONT "${pids[gateway]}"

# An agent that lasts: commands from standard input, two clients, connections that end, a killed client and one that does not answer.
mkfifo "$dir/in"
exec {input}<>"$dir/in"
"${zalctl[@]}" agent --url "$url" --timeout 60000 <"$dir/in" >"$dir/agent.out" 2>&1 &
pids[agent]=$!
wait_for 'client 1 subscribed telemetry device' "$dir/agent.out"
start second "${gateway[@]}" "$url"
wait_for 'client 2 subscribed telemetry device' "$dir/agent.out"
echo kill >&"$input"
wait_for '^ended 2 connections' "$dir/agent.out"
wait_for 'client 4 subscribed telemetry device' "$dir/agent.out"
wait_for 'gateway request cloud lookup .*answered with its own data' "$dir/agent.out"
wait_for 'the cloud answered \{"device":"gateway"\}' "$dir/gateway.out"
kill -KILL "${pids[second]}"
wait_for 'client [34] disconnected' "$dir/agent.out"
echo 'call system getInfo' >&"$input"
wait_for '"client": "gateway"' "$dir/agent.out"
kill -STOP "${pids[gateway]}"
wait_for '^State:.T' "/proc/${pids[gateway]}/status"
echo 'call --timeout 50 network getStatus' >&"$input"
wait_for '^no reply to network getStatus within 50 ms' "$dir/agent.out"
# The answer without an id is the second call's, whichever of the two comes first.
echo 'call network frob' >&"$input"
kill -CONT "${pids[gateway]}"
wait_for 'answered after the time-out: network getStatus' "$dir/agent.out"
wait_for '^no such method: network frob' "$dir/agent.out"
status=0
kill -TERM "${pids[agent]}"
wait "${pids[agent]}" || status=$?
[[ $status == 1 ]] || fail "the agent ended with status $status after unanswered calls"
[[ ! -e $dir/agent.sock ]] || fail 'the socket is left behind'
end gateway
no_reports
