#!/usr/bin/env bash
# The product end to end under Wine, as an administrator runs it: the service installed with
# "VXA64.EXE /load-silent" into Wine's real service manager, running against a simulated terminal
# server (the wtsapi32.dll double beside it), one simulated active session whose monitor really
# runs. Input injected with SendInput keeps the session alive past the idle timeout; then, with no
# input, the warning box counts down and the session is logged off. Checked: what the double
# recorded, the box's countdown text, the registry status values, the event ids the service
# reported (Wine's eventlog trace), and that "/unload-silent" leaves no product process behind.
#
# Usage: tests/e2e/run-e2e.sh <build folder>       (CTest runs it as the test "e2e")
# Everything happens in <build>/e2e-run: a throwaway Wine prefix of its own (deleted at the end
# unless VX_E2E_KEEP=1), the service's trace (trace.log) and the controller's output (steps.log).
# Exit codes: 0 passed, 1 failed, 77 skipped (the service host or hook library is not built).
set -euo pipefail
build=$(cd "${1:?usage: run-e2e.sh <build folder>}" && pwd)
bin=$build/bin
work=$build/e2e-run

for f in VXA64.EXE VXHA64.DLL; do
    if [ ! -f "$bin/$f" ]; then
        echo "SKIPPED: $bin/$f is not built yet; the end-to-end run needs the whole product"
        exit 77
    fi
done
for f in VXDA64.DLL wtsapi32.dll e2e_control.exe; do
    [ -f "$bin/$f" ] || { echo "missing $bin/$f: build first" >&2; exit 1; }
done

# A prefix of its own, never the unit tests' one, with its own server, stopped on every way out.
. "$(dirname "$0")/e2e-lib.sh"
trap e2e_cleanup EXIT

start=$(date +%s.%N)
elapsed() { awk -v s="$start" -v n="$(date +%s.%N)" 'BEGIN { printf "%.1f", n - s }'; }
log() { echo "[$(elapsed) s] $*"; }
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
# Seconds since the epoch, as a number awk can compare.
now() { date +%s.%N; }
diff_s() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.1f", b - a }'; }
at_least() { awk -v v="$1" -v m="$2" 'BEGIN { exit !(v >= m) }'; }

diagnose() {
    echo "---- simulated terminal server records"
    ctl records || true
    echo "---- product processes"
    ctl procs || true
    echo "---- status values"
    ctl status || true
    echo "---- event reports in the trace"
    grep -a -E 'ReportEventW|eventlog' "$work/trace.log" | tail -n 40 || true
    echo "---- last lines of the services' standard error"
    grep -a -v -E 'ReportEventW|eventlog' "$work/trace.log" | tail -n 20 || true
}

log "creating the prefix $work/wineprefix"
e2e_prefix "$work" "$bin"
log "prefix ready, services started with the eventlog trace"

# Settings as an administrator sets them: enabled, one minute of idle time, one minute of
# warning, and empty user lists (everybody is watched).
ctl settings Enable=1 Timeout=1 MessageTimeout=1 --empty-lists >/dev/null || fail "settings not written"
ctl reset
ctl add 1 alice active

log "installing the service: VXA64.EXE /load-silent"
rc=0
vxa64 /load-silent || rc=$?
[ $rc = 0 ] || fail "/load-silent exited with $rc"
if ! ctl wait service 30 running; then
    fail "the service is not running"
    diagnose
    exit 1
fi
log "service running"

# Admission: the service takes the session user's token and starts "/monitor:1" in the session.
ctl wait token 20 1 || fail "the service never asked for the token of session 1"
if out=$(ctl wait monitor 30); then
    log "$out"
    case $out in *"/monitor:1"*) ;; *) fail "the monitor window is not the one of \"/monitor:1\"" ;; esac
else
    fail "no monitor window: $out"
    diagnose
    exit 1
fi
admitted=$(now)
st=""
for _ in $(seq 1 50); do
    st=$(ctl status)
    case $st in *"SessionsMonitoring=1 "*) break ;; esac
    sleep 0.2
done
log "status after admission: $st"
case $st in *"SessionsMonitoring=1 "*) ;; *) fail "SessionsMonitoring is not 1 while one session is watched: $st" ;; esac

# Input keeps the session alive past the one-minute timeout.
log "injecting input every 10 s for 70 s"
last_input=$admitted
while ! at_least "$(diff_s "$admitted" "$(now)")" 70; do
    ctl input 1 >/dev/null || fail "SendInput did not take the input"
    last_input=$(now)
    if ctl box >/dev/null; then
        fail "a warning box appeared while input came in"
        break
    fi
    sleep 10
done
log "input stopped, $(diff_s "$admitted" "$last_input") s after admission"
[ "$(ctl count logoff 1)" = 0 ] || fail "session 1 was logged off while input came in"
ctl box >/dev/null && fail "a warning box is open although input came in less than a minute ago"
ctl wait monitor 1 >/dev/null || fail "the monitor is gone"

# No more input: after one minute the warning, with its countdown.
if out=$(ctl wait box 80); then
    warned=$(now)
    log "$out"
    quiet=$(diff_s "$last_input" "$warned")
    log "warning $quiet s after the last input"
    at_least "$quiet" 55 || fail "the warning came $quiet s after the last input (timeout 60 s): input was not seen as activity"
    at_least 75 "$quiet" || fail "the warning came $quiet s after the last input (timeout 60 s)"
    first=$(ctl box | sed -n 's/.*countdown=\(-\{0,1\}[0-9]*\).*/\1/p')
    sleep 3
    second=$(ctl box | sed -n 's/.*countdown=\(-\{0,1\}[0-9]*\).*/\1/p')
    log "countdown read twice, 3 s apart: ${first:-none} s, then ${second:-none} s"
    if [ -z "$first" ] || [ -z "$second" ] || [ "$first" -le 0 ] || [ "$first" -gt 60 ]; then
        fail "the box shows no countdown between 0:01 and 1:00"
    elif [ $((first - second)) -lt 2 ] || [ $((first - second)) -gt 4 ]; then
        fail "the countdown did not run: $first s then $second s"
    fi
    # The warning was shown by the in-session program, not by the terminal server's message box
    # (that is the way out when "/msg" cannot start).
    [ "$(ctl count message)" = 0 ] || fail "the warning went through WTSSendMessageW"
    # Two programs were started in the session: the monitor and the warning ("/msg:1").
    [ "$(ctl count token 1)" = 2 ] || fail "the service did not start the warning program in the session"
else
    fail "no warning box within 80 s after the last input: $out"
    diagnose
    exit 1
fi

# Then the logoff, one minute after the warning.
if out=$(ctl wait logoff 80 1); then
    loggedoff=$(now)
    gap=$(diff_s "$warned" "$loggedoff")
    log "logoff recorded by the terminal server, $gap s after the warning"
    at_least "$gap" 55 || fail "the logoff came $gap s after the warning (warning time 60 s)"
else
    fail "no logoff within 80 s after the warning: $out"
    diagnose
    exit 1
fi
ctl records | grep -q '^[0-9]* logoff session=1 wait=0 error=0$' || fail "the logoff record is not a plain logoff of session 1"

# The box stays after the deadline until someone closes it. The simulated logoff leaves the
# session's programs running (Windows would end them), so the removal below must end this
# monitor through the service's quit event, its open box included.
ctl box >/dev/null || fail "the warning box closed by itself"
# Wine's service manager sends no session changes: the settings-changed control makes the
# service rescan and write its status, as it does after a logoff on Windows.
ctl control 128 >/dev/null || fail "control 128 not delivered"
if out=$(ctl wait status-logoff 15 alice); then
    log "status: ${out#*: }"
    case $out in *"SessionsMonitoring=(absent)"*) ;; *) fail "SessionsMonitoring still set with nobody watched: $out" ;; esac
else
    fail "LastLogoff is not alice: $out"
fi

log "removing the service: VXA64.EXE /unload-silent"
rc=0
vxa64 /unload-silent || rc=$?
[ $rc = 0 ] || fail "/unload-silent exited with $rc"
ctl wait service 20 absent >/dev/null || fail "the service is still registered"
if out=$(ctl wait no-product 20); then log "$out"; else fail "product processes left: $out"; fi
# The monitor registered for its session's notifications through the terminal server and
# unregistered when it ended normally; the service ended normally too.
records=$(ctl records)
echo "$records" | grep -q ' attach pid=[0-9]* detached=1 registered=0 registrations=0 cmdline=.*VXA64.EXE" /service$' ||
    fail "the service did not end normally"
echo "$records" | grep -q ' attach pid=[0-9]* detached=1 registered=1 registrations=0 cmdline=.*VXA64.EXE /monitor:1$' ||
    fail "the monitor did not register and unregister its session notifications, or did not end normally"

# The events the running service reported, from Wine's trace of ReportEventW.
ids=$(e2e_event_ids)
log "event ids reported: ${ids:-none}"
for id in 0x60000001 0x60000006 0x6000000a 0x60000002 0x60000003; do
    case " $ids " in *" $id "*) ;; *) fail "event $id was not reported" ;; esac
done
for id in 0xe000000b 0xe000000f; do
    case " $ids " in *" $id "*) fail "error event $id was reported" ;; esac
done
# The user's name travels with "started monitoring" and "logged off".
e2e_event_names 0x60000006 alice || fail "event 0x60000006 does not name alice"
e2e_event_names 0x6000000a alice || fail "event 0x6000000a does not name alice"

if [ $failures -gt 0 ]; then
    diagnose
    echo "e2e: $failures check(s) failed"
    exit 1
fi
log "e2e: passed"
