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

# The event reports in trace lines <from>..<to>: "<thread>:fixme:advapi:ReportEventW (handle,type,
# category,id,...)", then "<thread>:...:eventlog:ReportEventW L"text"" per insertion string.
trace_events() {
    sed -n "$1,$2p" "$work/trace.log" | awk -F, '
        function out(t) { print "EVENTLOG   event " ev[t]; delete ev[t] }
        BEGIN { n["0x60000001"] = "service started"; n["0x60000002"] = "stop sequence initiated"
                n["0x60000003"] = "service stopped"; n["0x60000006"] = "started monitoring"
                n["0x6000000a"] = "logged off"; n["0xe000000b"] = "could not log off"
                n["0xe000000f"] = "could not start the monitor"; n["0xa0000016"] = "kept the most recent active user" }
        { t = substr($0, 1, index($0, ":") - 1) }
        /ReportEventW \(/ { if (t in ev) out(t); id = tolower($4); ev[t] = id " " n[id]; order[++k] = t; next }
        /:eventlog:ReportEventW / { if (t in ev) ev[t] = ev[t] " " substr($0, index($0, "ReportEventW ") + 13) }
        END { for (i = 1; i <= k; i++) if (order[i] in ev) out(order[i]) }' || true
}

# timeline <seconds> <input every s> <logoffs>: one line per change, alice's input on the way,
# until <logoffs> logoffs (then one more round for their events) or the time is up.
timeline() {
    local end=$((SECONDS + $1)) next=$SECONDS logoffs=0 seq=0 traced=0 total done=0
    local view line id monitor="" box="" left=999 status=""
    declare -A user
    while :; do
        if [ $SECONDS -ge $next ]; then
            say "input      $(ctl input)"
            next=$((SECONDS + $2))
        fi
        view=$(ctl look)
        local seen_monitor="" seen_box=""
        while IFS= read -r line; do
            if [[ $line =~ ^session\ id=([0-9]+)\ user=([^ ]*) ]]; then
                user[${BASH_REMATCH[1]}]=${BASH_REMATCH[2]}
            elif [[ $line =~ ^([0-9]+)\ (token|logoff|message)\ session=([0-9]+) ]]; then
                [ "${BASH_REMATCH[1]}" -gt $seq ] || continue
                seq=${BASH_REMATCH[1]}
                id=${BASH_REMATCH[3]}
                case ${BASH_REMATCH[2]} in
                token) say "token      the service took the user token of session $id to start a program in it" ;;
                logoff)
                    logoffs=$((logoffs + 1))
                    say "LOGOFF     session $id (${user[$id]:-?}) logged off through WTSLogoffSession" ;;
                *) say "MESSAGE    ${line#* }" ;;
                esac
            elif [[ $line == "monitor "* ]]; then
                seen_monitor=${line#monitor }
            elif [[ $line == "box "* ]]; then
                seen_box=${line#box }
            elif [[ $line == "status "* && $line != "$status" ]]; then
                status=$line
                say "status     ${line#status }"
            fi
        done <<<"$view"
        if [ "$seen_monitor" != "$monitor" ]; then
            monitor=$seen_monitor
            if [ -n "$monitor" ]; then say "monitor    VANTREL_MONITOR window of $monitor"; else say "monitor    no VANTREL_MONITOR window"; fi
        fi
        if [ -n "$seen_box" ] && [ -z "$box" ]; then
            say "WARNING    box shown by $seen_box"
            left=999
        elif [ -z "$seen_box" ] && [ -n "$box" ]; then
            say "WARNING    box closed"
        fi
        box=$seen_box
        # The countdown every 15 s is enough for a reader.
        if [[ $box =~ [^0-9]([0-9]+):([0-9][0-9])[^0-9] ]]; then
            local s=$((10#${BASH_REMATCH[1]} * 60 + 10#${BASH_REMATCH[2]}))
            if [ $left = 999 ] || [ $((left - s)) -ge 15 ]; then
                [ $left = 999 ] || say "countdown  ${BASH_REMATCH[1]}:${BASH_REMATCH[2]} left in the box"
                left=$s
            fi
        fi
        total=$(wc -l <"$work/trace.log")
        if [ "$total" -gt $traced ]; then
            trace_events $((traced + 1)) "$total" | while IFS= read -r line; do say "$line"; done
            traced=$total
        fi
        [ $done = 0 ] || return 0
        [ $logoffs -lt "$3" ] || done=1
        if [ $done = 0 ] && [ $SECONDS -ge $end ]; then
            say "watch      time is up"
            return 1
        fi
        sleep 0.5
        [ $done = 0 ] || sleep 1
    done
}

say "setup      a throwaway Wine prefix, services started with the eventlog trace"
e2e_prefix "$work" "$bin"
ctl settings Enable=1 Timeout=1 MessageTimeout=1 >/dev/null
say "settings   HKLM\\SOFTWARE\\Korvane\\Vantrel: Enable=1, Timeout=1, MessageTimeout=1 (minutes), ApplyTo and Exclude empty"
ctl add 1 alice active
say "table      session 1 (alice) is active"
vxa64 /load-silent || problem "VXA64.EXE /load-silent failed"
wait_for 30 '^service running$' >/dev/null || { problem "the service did not start"; exit 1; }
say "service    installed and started by VXA64.EXE /load-silent"
wait_for 30 '^monitor ' >/dev/null || problem "alice's monitor window did not appear"

# Bob and carol log on; the settings-changed control makes the service rescan the sessions
# (Wine's service manager delivers no logon notifications).
ctl add 2 bob active
ctl add 3 carol active
say "table      sessions 2 (bob) and 3 (carol) log on; control 128 makes the service rescan"
ctl control 128 >/dev/null || problem "control 128 not delivered"
wait_for 15 ' token session=3 error=0$' >/dev/null || problem "carol's session was not admitted"
ctl state 3 disconnected
say "table      carol disconnects (her session stays, nobody sees it)"

say "note       Wine has one desktop for all three sessions: bob's and carol's monitors find alice's"
say "           VANTREL_MONITOR window and end at once; bob's warning appears in alice's monitor"
say "           and her next input closes it, while the service's count for bob goes on."
timeline 150 25 2 | tee "$work/timeline.txt" || problem "the timeline ended before bob and carol were logged off"

# The status as the configuration utility shows it, after a rescan (Wine's service manager
# delivers no logoff notification, which would make the service write it on Windows).
ctl control 128 >/dev/null || problem "control 128 not delivered"
if out=$(wait_for 10 '^status .* LastLogoff=bob$'); then say "status     ${out#status }"; else problem "LastLogoff is not bob: $out"; fi
vxa64 /unload-silent || problem "VXA64.EXE /unload-silent failed"
wait_for 20 '^service absent$' >/dev/null || problem "the service is still registered"
say "service    stopped and removed by VXA64.EXE /unload-silent"
if out=$(wait_for 20 '^no product process$'); then say "processes  none left"; else problem "left behind: $out"; fi
sleep 0.5
ids=$(e2e_event_ids)
say "events     reported in order:$ids"

# What the product must have done.
view=$(ctl look)
has() { grep -q -E -- "$1" <<<"$view"; }
tokens() { grep -c -E "^[0-9]+ token session=$1 error=0$" <<<"$view" || true; }
has ' logoff session=2 wait=0 error=0$' || problem "bob was not logged off"
has ' logoff session=3 wait=0 error=0$' || problem "carol was not logged off"
has ' logoff session=1 ' && problem "alice was logged off despite her input"
grep -q 'WARNING    box shown' "$work/timeline.txt" || problem "no warning box appeared"
# Bob's session got its monitor and its warning program, carol's only the monitor (nobody could
# have seen a warning in a disconnected session), alice's only the monitor.
[ "$(tokens 2)" = 2 ] || problem "bob's session did not get a monitor and a warning program"
[ "$(tokens 3)" = 1 ] || problem "carol's session got more than its monitor"
[ "$(tokens 1)" = 1 ] || problem "alice's session got more than its monitor"
has ' message ' && problem "a warning went through WTSSendMessageW"
for id in 0x60000001 0x60000006 0x6000000a 0x60000003; do
    [[ $ids == *" $id"* ]] || problem "event $id was not reported"
done
e2e_event_names 0x6000000a bob || problem "no logoff event names bob"
e2e_event_names 0x6000000a carol || problem "no logoff event names carol"
if [ $problems -gt 0 ]; then
    echo "demo: the product misbehaved ($problems problem(s)); logs in $work" >&2
    exit 1
fi
say "demo       done: alice kept, bob warned and logged off, carol logged off without a warning"
