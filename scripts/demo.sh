#!/usr/bin/env bash
# The product at work, end to end under Wine, with a timeline printed as it happens: the service
# installed with "VXA64.EXE /load-silent" in a throwaway prefix, three simulated sessions on the
# simulated terminal server (tests/e2e/), one minute of idle time and one minute of warning.
#   alice (session 1): active; input is injected every 25 s, so she is never logged off.
#   bob   (session 2): active and idle: warned after a minute, logged off a minute later.
#   carol (session 3): admitted, then disconnected: logged off after a minute without a warning
#                      (nobody could see one).
# Wine runs every simulated session on its one desktop, so only the first monitor window
# survives: bob's and carol's monitors find alice's window of the same class and end at once,
# as a second monitor in one session does. Bob's warning therefore appears in alice's monitor,
# and alice's next input closes it (activity closes the warning box); bob's own count goes on
# in the service and logs him off. The timeline shows all of it.
# Usage: scripts/demo.sh [build folder]   (run.sh calls it after the build). Under three minutes;
# exits non-zero when the product does not do the above.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=$(cd "${1:-${VX_BUILD_DIR:-$root/build/windows}}" && pwd)
bin=$build/bin
work=$build/demo-run
for f in VXA64.EXE VXDA64.DLL VXHA64.DLL wtsapi32.dll e2e_control.exe; do
    [ -f "$bin/$f" ] || { echo "demo: $bin/$f is missing; build first (./run.sh)" >&2; exit 1; }
done

. "$root/tests/e2e/e2e-lib.sh"
trap e2e_cleanup EXIT
start=$(date +%s.%N)
say() { printf '%6.1f s  %s\n' "$(awk -v s="$start" -v n="$(date +%s.%N)" 'BEGIN { print n - s }')" "$*"; }
problems=0
problem() { say "PROBLEM    $*"; problems=$((problems + 1)); }

say "setup      a throwaway Wine prefix, services started with the eventlog trace"
e2e_prefix "$work" "$bin"
ctl settings Enable=1 Timeout=1 MessageTimeout=1 --empty-lists >/dev/null
say "settings   HKLM\\SOFTWARE\\Korvane\\Vantrel: Enable=1, Timeout=1, MessageTimeout=1 (minutes), ApplyTo and Exclude empty"
ctl reset
ctl add 1 alice active
say "table      session 1 (alice) is active"
vxa64 /load-silent || problem "VXA64.EXE /load-silent failed"
ctl wait service 30 running >/dev/null || { problem "the service did not start"; exit 1; }
say "service    installed and started by VXA64.EXE /load-silent"
ctl wait monitor 30 >/dev/null || problem "alice's monitor window did not appear"

# Bob and carol log on; the settings-changed control makes the service rescan the sessions
# (Wine's service manager delivers no logon notifications).
ctl add 2 bob active
ctl add 3 carol active
say "table      sessions 2 (bob) and 3 (carol) log on; control 128 makes the service rescan"
ctl control 128 >/dev/null || problem "control 128 not delivered"
ctl wait token 15 3 >/dev/null || problem "carol's session was not admitted"
ctl state 3 disconnected
say "table      carol disconnects (her session stays, nobody sees it)"

say "note       Wine has one desktop for all three sessions: bob's and carol's monitors find alice's"
say "           VANTREL_MONITOR window and end at once; bob's warning appears in alice's monitor"
say "           and her next input closes it, while the service's count for bob goes on."
# The timeline until both idle sessions are logged off (at most 150 s).
winetrace=$(winepath -w "$work/trace.log" 2>/dev/null)
ctl watch 150 --since "$start" --trace "$winetrace" --input-every 25 --input-until 1000 --until-logoffs 2 |
    tee "$work/timeline.txt" || problem "the watch ended before bob and carol were logged off"

# The status as the configuration utility shows it, after a rescan (Wine's service manager
# delivers no logoff notification, which would make the service write it on Windows).
ctl control 128 >/dev/null || problem "control 128 not delivered"
if out=$(ctl wait status-logoff 10 bob); then
    say "status     ${out#*: }"
else
    problem "LastLogoff is not bob: $out"
fi
vxa64 /unload-silent || problem "VXA64.EXE /unload-silent failed"
ctl wait service 20 absent >/dev/null || problem "the service is still registered"
say "service    stopped and removed by VXA64.EXE /unload-silent"
if out=$(ctl wait no-product 20); then say "processes  ${out#*: } left"; else problem "left behind: $out"; fi
sleep 0.5
ids=$(e2e_event_ids)
say "events     reported in order: $ids"

# What the product must have done.
records=$(ctl records)
echo "$records" | grep -q ' logoff session=2 wait=0 error=0$' || problem "bob was not logged off"
echo "$records" | grep -q ' logoff session=3 wait=0 error=0$' || problem "carol was not logged off"
echo "$records" | grep -q ' logoff session=1 ' && problem "alice was logged off despite her input"
grep -q 'WARNING    box .*shown' "$work/timeline.txt" || problem "no warning box appeared"
# Bob's session got its monitor and its warning program, carol's only the monitor (nobody could
# have seen a warning in a disconnected session), alice's only the monitor.
[ "$(ctl count token 2)" = 2 ] || problem "bob's session did not get a monitor and a warning program"
[ "$(ctl count token 3)" = 1 ] || problem "carol's session got more than its monitor"
[ "$(ctl count token 1)" = 1 ] || problem "alice's session got more than its monitor"
[ "$(ctl count message)" = 0 ] || problem "a warning went through WTSSendMessageW"
for id in 0x60000001 0x60000006 0x6000000a 0x60000003; do
    case " $ids " in *" $id "*) ;; *) problem "event $id was not reported" ;; esac
done
e2e_event_names 0x6000000a bob || problem "no logoff event names bob"
e2e_event_names 0x6000000a carol || problem "no logoff event names carol"
if [ $problems -gt 0 ]; then
    echo "demo: the product misbehaved ($problems problem(s)); logs in $work" >&2
    exit 1
fi
say "demo       done: alice kept, bob warned and logged off, carol logged off without a warning"
