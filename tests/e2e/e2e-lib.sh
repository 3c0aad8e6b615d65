# Sourced by tests/e2e/run-e2e.sh and scripts/demo.sh: a throwaway Wine prefix in which the product
# runs against the simulated terminal server. Nothing started here holds the caller's output open
# (CTest waits for its pipe to close).

# e2e_prefix <work folder> <bin folder>: a new prefix in <work>/wineprefix, its services started
# with the eventlog trace in <work>/trace.log.
e2e_prefix() {
    E2E_WORK=$1
    E2E_BIN=$2
    export WINEPREFIX=$E2E_WORK/wineprefix WINEARCH=win64 WINEDEBUG=-all
    # The double beside VXA64.EXE before Wine's own wtsapi32: the variable reaches the first process
    # (and through it services.exe and the service), the registry value every later one.
    export WINEDLLOVERRIDES="wtsapi32=n,b"
    wineserver -k 2>/dev/null || true
    wineserver -w 2>/dev/null || true
    rm -rf "$E2E_WORK"
    mkdir -p "$E2E_WORK"
    ( DISPLAY= wineboot -i >"$E2E_WORK/create.log" 2>&1 </dev/null ) || true
    wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1 </dev/null
    wine reg add 'HKCU\Software\Wine\DllOverrides' /v wtsapi32 /d native,builtin /f >/dev/null 2>&1 </dev/null
    wineserver -k 2>/dev/null || true
    wineserver -w 2>/dev/null || true
    # services.exe and the service inherit the trace and the standard error of the process that
    # starts them.
    wineserver -p >/dev/null 2>&1 </dev/null
    WINEDEBUG=+eventlog wine wineboot >"$E2E_WORK/boot.log" 2>"$E2E_WORK/trace.log" </dev/null || true
}

# The controller (e2e_control.exe), its output without CRs.
ctl() {
    wine "$E2E_BIN/e2e_control.exe" "$@" </dev/null 2>>"$E2E_WORK/control.err" | sed -u 's/\r$//'
    return "${PIPESTATUS[0]}"
}

# wait_for <seconds> <regex>: polls "ctl look" until a line matches and prints it; on time-out
# prints the last look and fails. 0 seconds looks once.
wait_for() {
    local end=$((SECONDS + $1)) view
    while view=$(ctl look); ! grep -m1 -E -- "$2" <<<"$view"; do
        [ $SECONDS -lt "$end" ] || { echo "$view"; return 1; }
        sleep 0.2
    done
}

# VXA64.EXE from the bin folder with one switch.
vxa64() { ( cd "$E2E_BIN" && wine VXA64.EXE "$@" >>"$E2E_WORK/vxa64.log" 2>&1 </dev/null ); }

# The ids of the service's events in the order of the trace, lower case, each after a blank.
e2e_event_ids() {
    grep -a -o 'ReportEventW ([^)]*' "$E2E_WORK/trace.log" | awk -F, '{ printf " %s", tolower($4) }' || true
}

# Whether event <id> was reported with the insertion string <text> (which follows it at once).
e2e_event_names() {
    grep -a -A3 "ReportEventW ([^,]*,[^,]*,[^,]*,$1" "$E2E_WORK/trace.log" | grep -q "eventlog:ReportEventW L\"$2\""
}

# Stops the prefix's server; deletes the prefix unless VX_E2E_KEEP=1.
e2e_cleanup() {
    wineserver -k 2>/dev/null || true
    wineserver -w 2>/dev/null || true
    if [ "${VX_E2E_KEEP:-0}" != 1 ] && [ -n "${WINEPREFIX:-}" ]; then rm -rf "$WINEPREFIX"; fi
}
