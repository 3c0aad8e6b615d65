#!/usr/bin/env bash
# The product end to end under Wine: the unmodified service installed by "VXA64.EXE /load-silent"
# in Wine's service manager against the simulated terminal server, one active session whose
# monitor runs. Input through SendInput keeps it past the one-minute timeout. Then the user kills the
# monitor: the service, which no longer hears of any input, still counts, warns through "/msg:1"
# (which, with no monitor left, shows the box itself; countdown read from it) and logs the session
# off a minute later. A second session, admitted once the first is warned, has its warning shown by
# its own monitor. Then the status values, the reported events, and "/unload-silent" leaving no
# process behind.
# Usage: run-e2e.sh <build folder> (CTest's "e2e"), in <build>/e2e-run. Exit 0, 1, or 77 (skipped).
set -euo pipefail
build=$(cd "${1:?usage: run-e2e.sh <build folder>}" && pwd)
bin=$build/bin
for f in VXA64.EXE VXHA64.DLL; do
    [ -f "$bin/$f" ] || { echo "SKIPPED: $bin/$f is not built"; exit 77; }
done
for f in VXDA64.DLL wtsapi32.dll e2e_control.exe; do
    [ -f "$bin/$f" ] || { echo "missing $bin/$f: build first" >&2; exit 1; }
done
. "$(dirname "$0")/e2e-lib.sh"
trap e2e_cleanup EXIT

t0=$(date +%s.%N)
now() { awk -v s="$t0" -v n="$(date +%s.%N)" 'BEGIN { printf "%.1f", n - s }'; }
since() { awk -v a="$1" -v b="$(now)" 'BEGIN { printf "%.1f", b - a }'; }
within() { awk -v v="$1" -v a="$2" -v b="$3" 'BEGIN { exit !(v >= a && v <= b) }'; }
log() { echo "[$(now) s] $*"; }
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
diagnose() {
    ctl look || true
    grep -a -E 'ReportEventW|eventlog' "$E2E_WORK/trace.log" | tail -n 40 || true
    grep -a -v -E 'ReportEventW|eventlog' "$E2E_WORK/trace.log" | tail -n 20 || true
}
die() { fail "$*"; diagnose; exit 1; }
count() { ctl look | grep -c -E -- "$1" || true; }
# gone <seconds> <regex>: polls "ctl look" until no line matches.
gone() {
    local end=$((SECONDS + $1))
    until [ "$(count "$2")" = 0 ]; do [ $SECONDS -lt $end ] || return 1; sleep 0.2; done
}
# The pid of a "monitor", "box" or "process" line.
pid_of() { sed -n 's/^[a-z]* pid=\([0-9]*\) .*/\1/p' <<<"$1"; }
# The countdown "m:ss" of the box of process <pid>, in seconds.
countdown() { wait_for 0 "^box pid=$1 " | sed -n 's/.*[^0-9]\([0-9]\{1,\}\):\([0-9][0-9]\)[^0-9].*/\1 \2/p' | awk '{ print $1 * 60 + $2 }'; }

e2e_prefix "$build/e2e-run" "$bin"
log "prefix ready, services started with the eventlog trace"
ctl settings Enable=1 Timeout=1 MessageTimeout=1 || fail "settings not written"
ctl add 1 alice active
vxa64 /load-silent || fail "/load-silent failed"
wait_for 30 '^service running$' >/dev/null || die "the service is not running"
# Admission: the service takes alice's token and starts "/monitor:1" in her session.
out=$(wait_for 30 '^monitor ') || die "no monitor window: $out"
log "$out"
[[ $out == *" /monitor:1" ]] || fail "the monitor window is not that of \"/monitor:1\""
admitted=$(now)
out=$(wait_for 10 '^status SessionsMonitoring=1 LastLogoff=\(absent\)$') || fail "status after admission: $out"

log "injecting input every 10 s for 70 s"
while within "$(since "$admitted")" 0 70; do
    ctl input >/dev/null || fail "SendInput did not take the input"
    last_input=$(now)
    [ "$(count '^[0-9]+ token ')" = 1 ] || { fail "a warning came although input came in"; break; }
    sleep 10
done
[ "$(count ' logoff ')" = 0 ] || fail "session 1 was logged off while input came in"
[ "$(count '^monitor |^summary registrations=1 ')" = 2 ] || fail "the monitor is gone or not registered"

# Killing the monitor must not make the session immune: nothing restarts the monitor, but the
# service keeps counting without it.
monitor=$(pid_of "$(wait_for 0 '^monitor ')")
[ "$(count "^process pid=$monitor .* /monitor:1$")" = 1 ] || die "no \"/monitor:1\" process with pid ${monitor:-?}"
wine taskkill /f /pid "$monitor" >>"$E2E_WORK/control.err" 2>&1 </dev/null || die "taskkill of the monitor failed"
gone 10 '^monitor |/monitor:1$' || die "the monitor still runs after taskkill"
log "monitor (pid $monitor) killed"

out=$(wait_for 80 '^box ') || die "no warning box within 80 s after the last input: $out"
warned=$(now)
quiet=$(since "$last_input")
log "warning after $quiet s without input: $out"
within "$quiet" 55 75 || fail "the warning came $quiet s after the last input (timeout 60 s)"
box=$(pid_of "$out")
[ "$(count "^process pid=$box .* /msg:1$")" = 1 ] || fail "the box is not shown by the \"/msg:1\" process"
# Now, with no monitor window left, bob's monitor takes the desktop's one monitor window.
ctl add 2 bob active || die "session 2 not added"
ctl control 128 || fail "control 128 not delivered"
out=$(wait_for 30 '^monitor ') || die "no monitor window for bob: $out"
bob_admitted=$(now)
[[ $out == *" /monitor:2" ]] || fail "the monitor window is not that of \"/monitor:2\""
bob=$(pid_of "$out")
first=$(countdown "$box")
sleep 3
second=$(countdown "$box")
log "countdown read 3 s apart: ${first:-none} s, then ${second:-none} s"
within "${first:-0}" 1 60 && within "$((first - ${second:-99}))" 2 4 || fail "the countdown does not run"
# The in-session program ("/msg:1", a second token) showed it, not the terminal server's box.
[ "$(count '^[0-9]+ token session=1 error=0$')" = 2 ] || fail "the warning program was not started"
[ "$(count ' message ')" = 0 ] || fail "the warning went through WTSSendMessageW"

out=$(wait_for 80 ' logoff ') || die "no logoff within 80 s after the warning: $out"
gap=$(since "$warned")
log "$gap s after the warning: $out"
within "$gap" 55 80 || fail "the logoff came $gap s after the warning (warning time 60 s)"
[[ $out =~ ^[0-9]+\ logoff\ session=1\ wait=0\ error=0$ ]] || fail "not a plain logoff of session 1"
# The box stays past the deadline; the service's quit event must end its program.
[ "$(count "^box pid=$box ")" = 1 ] || fail "the warning box closed by itself"
# Wine sends no session changes: control 128 makes the service rescan and write its status.
ctl control 128 || fail "control 128 not delivered"
out=$(wait_for 15 '^status SessionsMonitoring=1 LastLogoff=alice$') || fail "status after the logoff: $out"

# Bob's monitor runs: "/msg:2" hands the warning to it, and the box is the monitor's.
out=$(wait_for 30 "^box pid=$bob ") || die "no warning box in bob's monitor: $out"
quiet=$(since "$bob_admitted")
log "bob warned by his monitor $quiet s after his admission"
within "$quiet" 55 75 || fail "bob's warning came $quiet s after his admission (timeout 60 s)"
[ "$(count '^[0-9]+ token session=2 error=0$')" = 2 ] || fail "bob's warning program was not started"

vxa64 /unload-silent || fail "/unload-silent failed"
wait_for 20 '^service absent$' >/dev/null || fail "the service is still registered"
out=$(wait_for 20 '^no product process$') || fail "product processes left: $out"
# Every terminal server buffer freed, every notification registration removed but that of the
# killed monitor (the double counts registrations; a real one ends with its window).
out=$(wait_for 0 '^summary ')
[[ $out == "summary registrations=1 allocations=0 badfrees=0 dropped=0" ]] || fail "$out"

ids=$(e2e_event_ids)
log "event ids:$ids"
[[ $ids == *0x60000001*0x60000006*0x6000000a*0x60000002*0x60000003* ]] ||
    fail "not started, monitoring, logged off, stopping, stopped in order"
[[ $ids != *0xe* ]] || fail "an error event was reported"
e2e_event_names 0x60000006 alice || fail "the event \"started monitoring\" does not name alice"
e2e_event_names 0x6000000a alice || fail "the event \"logged off\" does not name alice"
[ $failures = 0 ] || { diagnose; echo "e2e: $failures check(s) failed"; exit 1; }
log "e2e: passed"
