#!/usr/bin/env bash
# What one watched session costs the running service, with its real in-session monitor: the
# unmodified service installed in a throwaway Wine prefix against the simulated terminal server
# (tests/e2e/), measured from Linux (CPU seconds and resident memory of the Wine processes, read
# from /proc) for a stretch with no session, then for the same stretch with one active session
# whose monitor runs. Figures are per session against the same service with none, in this run.
# Wine gives every simulated session the one desktop, so one session (one monitor) is measured.
# Usage: bench/service_bench.sh [build folder] [seconds per stretch, default 20]
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=$(cd "${1:-${VX_BUILD_DIR:-$root/build/windows}}" && pwd)
seconds=${2:-20}
bin=$build/bin
for f in VXA64.EXE VXDA64.DLL VXHA64.DLL wtsapi32.dll e2e_control.exe; do
    [ -f "$bin/$f" ] || { echo "service_bench: $bin/$f is missing; build first" >&2; exit 1; }
done
. "$root/tests/e2e/e2e-lib.sh"
trap e2e_cleanup EXIT
e2e_prefix "$build/bench-run" "$bin"
ctl settings Enable=1 Timeout=60 MessageTimeout=5 --empty-lists >/dev/null
ctl reset

# CPU clock ticks (user + system) and resident kilobytes of the processes whose command line
# matches a pattern, summed.
ticks() { local t=0; for p in $(pgrep -f "$1" || true); do t=$((t + $(awk '{ print $14 + $15 }' "/proc/$p/stat" 2>/dev/null || echo 0))); done; echo $t; }
rss() { local k=0; for p in $(pgrep -f "$1" || true); do k=$((k + $(awk '/^VmRSS/ { print $2 }' "/proc/$p/status" 2>/dev/null || echo 0))); done; echo $k; }
hz=$(getconf CLK_TCK)
# One stretch: CPU seconds per hour and resident kilobytes of the matching processes.
measure() {
    local a b
    a=$(ticks "$1")
    sleep "$seconds"
    b=$(ticks "$1")
    awk -v d=$((b - a)) -v hz="$hz" -v s="$seconds" 'BEGIN { printf "%.2f", d / hz * 3600 / s }'
    printf ' %s\n' "$(rss "$1")"
}

vxa64 /load-silent || { echo "service_bench: the service did not install" >&2; exit 1; }
ctl wait service 30 running >/dev/null || { echo "service_bench: the service did not start" >&2; exit 1; }
sleep 2
read -r cpu0 rss0 < <(measure 'VXA64.EXE /service')

ctl add 1 alice active
ctl control 128 >/dev/null
ctl wait monitor 30 >/dev/null || { echo "service_bench: the monitor did not start" >&2; exit 1; }
sleep 2
read -r cpu1 rss1 < <(measure 'VXA64.EXE /service')
read -r mcpu mrss < <(measure 'VXA64.EXE /monitor')
vxa64 /unload-silent || true

awk -v c0="$cpu0" -v c1="$cpu1" -v r0="$rss0" -v r1="$rss1" -v mc="$mcpu" -v mr="$mrss" 'BEGIN {
    printf "service idle: %.2f CPU s per hour, %d KB resident\n", c0, r0
    printf "service per watched session: %+.2f CPU s per hour, %+d KB resident (%.2fx the idle service memory)\n", c1 - c0, r1 - r0, r0 ? r1 / r0 : 0
    printf "monitor process per session: %.2f CPU s per hour, %d KB resident (%.2fx the idle service memory)\n", mc, mr, r0 ? mr / r0 : 0
}'
