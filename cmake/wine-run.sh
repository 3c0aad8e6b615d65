#!/usr/bin/env bash
# Runs a Windows program of the build under Wine, in the build tree's own throwaway prefix.
#   wine-run.sh PREFIX --init        create the prefix if it is missing, then return
#   wine-run.sh PREFIX PROGRAM ARGS  run PROGRAM (creating the prefix first if needed)
# CTest uses it as the emulator for every test executable.
set -euo pipefail
prefix=$1; shift
export WINEPREFIX=$prefix
export WINEDEBUG=${WINEDEBUG:--all}
export WINEARCH=win64

init_prefix() {
  [ -f "$WINEPREFIX/.vantrel-ready" ] && return 0
  mkdir -p "$(dirname "$WINEPREFIX")"
  exec 9>"$WINEPREFIX.lock"
  flock 9
  if [ ! -f "$WINEPREFIX/.vantrel-ready" ]; then
    # No display for tests: windows, dialogs and timers still work with the null driver.
    DISPLAY= wineboot -i >/dev/null 2>&1 || true
    DISPLAY= wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1
    touch "$WINEPREFIX/.vantrel-ready"
  fi
  flock -u 9
}

init_prefix
[ "${1:-}" = "--init" ] && exit 0
exec wine "$@"
