# Shared by tests/e2e/run-e2e.sh and scripts/demo.sh (sourced, not run): a throwaway Wine prefix
# in which the product runs against the simulated terminal server.
#
#   e2e_prefix <work folder> <bin folder>   create the prefix in <work>/wineprefix and start its
#                                           services with the eventlog trace in <work>/trace.log
#   ctl <command> [args]                    the controller (e2e_control.exe), output without CRs
#   e2e_cleanup                             stop the prefix's server; delete the prefix unless
#                                           VX_E2E_KEEP=1
# Nothing started here holds the caller's output open (CTest waits for its pipe to close).

e2e_prefix() {
    E2E_WORK=$1
    E2E_BIN=$2
    export WINEPREFIX=$E2E_WORK/wineprefix WINEARCH=win64 WINEDEBUG=-all
    # The double beside VXA64.EXE is preferred to Wine's own wtsapi32 in every process of the
    # prefix: the variable reaches the first process (and through it services.exe and the
    # services), the registry value every later one.
    export WINEDLLOVERRIDES="wtsapi32=n,b"
    wineserver -k 2>/dev/null || true
    wineserver -w 2>/dev/null || true
    rm -rf "$E2E_WORK"
    mkdir -p "$E2E_WORK"
    ( DISPLAY= wineboot -i >"$E2E_WORK/create.log" 2>&1 </dev/null ) || true
    # No display: the headless driver gives windows, dialogs, timers and low-level hooks.
    wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1 </dev/null
    wine reg add 'HKCU\Software\Wine\DllOverrides' /v wtsapi32 /d native,builtin /f >/dev/null 2>&1 </dev/null
    wineserver -k 2>/dev/null || true
    wineserver -w 2>/dev/null || true
    # The process that starts the prefix's services runs with the eventlog trace and its
    # standard error in a file: services.exe and the service inherit both, so each ReportEventW
    # of the running service is traced there.
    wineserver -p >/dev/null 2>&1 </dev/null
    WINEDEBUG=+eventlog wine wineboot >"$E2E_WORK/boot.log" 2>"$E2E_WORK/trace.log" </dev/null || true
}

ctl() {
    wine "$E2E_BIN/e2e_control.exe" "$@" </dev/null 2>>"$E2E_WORK/control.err" | sed -u 's/\r$//'
    return "${PIPESTATUS[0]}"
}

# Runs VXA64.EXE from the bin folder with one switch; its exit code.
vxa64() {
    local rc=0
    ( cd "$E2E_BIN" && wine VXA64.EXE "$@" >>"$E2E_WORK/vxa64.log" 2>&1 </dev/null ) || rc=$?
    return $rc
}

# The event ids of the service's ReportEventW calls in the trace, lower case, one line.
e2e_event_ids() {
    grep -a -o 'ReportEventW ([^)]*' "$E2E_WORK/trace.log" | awk -F, '{ print tolower($4) }' | tr '\n' ' ' || true
}

# Whether the trace has event <id> with the insertion string <text> right after it.
e2e_event_names() {
    grep -a -A3 "ReportEventW ([^,]*,[^,]*,[^,]*,$1" "$E2E_WORK/trace.log" | grep -q "eventlog:ReportEventW L\"$2\""
}

e2e_cleanup() {
    wineserver -k 2>/dev/null || true
    wineserver -w 2>/dev/null || true
    if [ "${VX_E2E_KEEP:-0}" != 1 ] && [ -n "${WINEPREFIX:-}" ]; then rm -rf "$WINEPREFIX"; fi
}
