#!/usr/bin/env bash
# The Windows Installer package as an administrator's software distribution uses it, in a
# throwaway Wine prefix: "msiexec /i ... /qn" of an older version, the newer one over it (the
# settings stay, one product remains, the older one cannot come back over it), then
# "msiexec /x ... /qn", which leaves no file, service or event source, but the settings.
# Usage: run-msi.sh <build folder> (CTest's "msi_package"), in <build>/msi-run. Exit 0, 1 or 77.
set -euo pipefail
build=$(cd "${1:?usage: run-msi.sh <build folder>}" && pwd)
root=$(cd "$(dirname "$0")/../.." && pwd)
bin=$build/bin
files=(VXDA64.DLL VXHA64.DLL VXA64.EXE VantrelA64.EXE Vantrel.chm)
for f in "${files[@]}"; do
    [ -f "$bin/$f" ] || { echo "SKIPPED: $bin/$f is not built"; exit 77; }
done

work=$build/msi-run
export WINEPREFIX=$work/wineprefix WINEARCH=win64 WINEDEBUG=-all
unset WINEDLLOVERRIDES
cleanup() {
    wineserver -k 2>/dev/null || true
    wineserver -w 2>/dev/null || true
    if [ "${VX_MSI_KEEP:-0}" != 1 ]; then rm -rf "$WINEPREFIX"; fi
}
trap cleanup EXIT
cleanup
rm -rf "$work"
mkdir -p "$work"

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
log() { echo "[${SECONDS} s] $*"; }
# Wine's programs print CR LF.
w() { wine "$@" </dev/null 2>/dev/null | tr -d '\r'; }
# The data of one registry value ("" when the key or value is missing).
regval() { w reg query "$1" /v "$2" | awk -v v="$2" '$1 == v { $1 = ""; $2 = ""; sub(/^  /, ""); print }'; }
haskey() { wine reg query "$1" </dev/null >/dev/null 2>&1; }
state() { w sc query Vantrel | awk '$1 == "STATE" { print $4 }'; }
# wait_until <seconds> <command...>: Wine's msiexec may return before the service manager has
# finished what the package asked of it.
wait_until() {
    local end=$((SECONDS + $1)); shift
    until "$@"; do [ $SECONDS -lt "$end" ] || return 1; sleep 0.3; done
}
running() { [ "$(state)" = RUNNING ]; }
# The Linux process id of this prefix's service process (other prefixes may run one too).
service_pid() {
    local p
    for p in $(pgrep -f 'VXA64.EXE /service' || true); do
        grep -zqxF "WINEPREFIX=$WINEPREFIX" "/proc/$p/environ" 2>/dev/null && echo "$p"
    done
    return 0
}
gone() { ! haskey 'HKLM\System\CurrentControlSet\Services\Vantrel'; }
package() { # package <msiexec switch> <package> <log name>: msiexec's exit code
    local rc=0
    wine msiexec "$1" "$(winepath -w "$2")" /qn /l*v "C:\\$3.log" </dev/null >/dev/null 2>&1 || rc=$?
    tr -d '\r' <"$WINEPREFIX/drive_c/$3.log" >"$work/$3.log" 2>/dev/null || true
    return $rc
}

# Two versions of the same package.
old=$work/Vantrel-1.0.0.msi new=$work/Vantrel-1.1.0.msi
"$root/scripts/build-msi.sh" "$bin" "$old" 1.0.0 >/dev/null
"$root/scripts/build-msi.sh" "$bin" "$new" 1.1.0 >/dev/null

# What Wine's installer does not check: a per-machine 64-bit package whose service actions run
# as the installer's system account (deferred 0x400, not impersonated 0x800, exe from an
# installed file 18; "/uninstall-msi" ignores its exit code 0x40).
[ "$(msiinfo suminfo "$new" | tr -d '\r' | sed -n 's/^Template: //p')" = "x64;1033" ] || fail "not an x64 package"
[ "$(msiinfo export "$new" Property | awk '$1 == "ALLUSERS" { print $2 }' | tr -d '\r')" = 1 ] ||
    fail "not per machine"
actions=$(msiinfo export "$new" CustomAction | tr -d '\r' | awk -F'\t' 'NR > 3 { print $1, $2, $4 }' | sort)
expected=$'ServiceLoad 3090 /load-silent\nServiceRelease 3154 /uninstall-msi\nServiceUnload 3090 /unload-silent'
[ "$actions" = "$expected" ] || fail "custom actions: $actions"

log "creating the prefix"
( DISPLAY= wineboot -i >/dev/null 2>&1 </dev/null ) || true
wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1 </dev/null
wineserver -k 2>/dev/null || true
wineserver -w 2>/dev/null || true
wineserver -p >/dev/null 2>&1 </dev/null
# Wine's own services first: while the service manager starts them it refuses other starts.
wine wineboot >/dev/null 2>&1 </dev/null || true

dir='C:\Program Files\Vantrel'
unix_dir=$WINEPREFIX/drive_c/Program\ Files/Vantrel
policy=$WINEPREFIX/drive_c/windows/PolicyDefinitions
source_key='HKLM\System\CurrentControlSet\Services\EventLog\Application\Vantrel'
settings_key='HKLM\SOFTWARE\Korvane\Vantrel'
uninstall_key='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall'
# The products named Vantrel in the list of installed programs: "<count> <last one's version>".
versions() {
    w reg query "$uninstall_key" /s | awk '
        function flush() { if (name == "Vantrel") { n++; v = ver } name = ver = "" }
        /^HKEY_/ { flush() } $1 == "DisplayName" { name = $3 } $1 == "DisplayVersion" { ver = $3 }
        END { flush(); print n + 0, v }'
}

# Everything an installed package must have put in place.
check_installed() { # <version>
    for f in "${files[@]}"; do
        cmp -s "$bin/$f" "$unix_dir/$f" || fail "$1: $dir\\$f missing or different"
    done
    cmp -s "$root/packaging/policy/Vantrel.admx" "$policy/Vantrel.admx" || fail "$1: Vantrel.admx not in PolicyDefinitions"
    cmp -s "$root/packaging/policy/en-US/Vantrel.adml" "$policy/en-US/Vantrel.adml" || fail "$1: Vantrel.adml not in PolicyDefinitions\\en-US"
    wait_until 20 running || fail "$1: service state '$(state)', not RUNNING"
    local svc='HKLM\System\CurrentControlSet\Services\Vantrel'
    [ "$(regval "$svc" ImagePath)" = "\"$dir\\VXA64.EXE\" /service" ] || fail "$1: image path '$(regval "$svc" ImagePath)'"
    [ "$(regval "$svc" Start)" = 0x2 ] || fail "$1: start type '$(regval "$svc" Start)', not automatic"
    [ "$(regval "$source_key" EventMessageFile)" = "$dir\\VXDA64.DLL" ] ||
        fail "$1: event message file '$(regval "$source_key" EventMessageFile)'"
    [ "$(regval "$source_key" TypesSupported)" = 0x7 ] || fail "$1: event types '$(regval "$source_key" TypesSupported)'"
    [ "$(versions)" = "1 $1" ] || fail "$1: installed products (count, version): $(versions)"
}

log "installing 1.0.0"
package /i "$old" install-old || fail "install of 1.0.0 failed with $?"
check_installed 1.0.0
wine reg add "$settings_key" /v MsiTestSetting /t REG_DWORD /d 7 /f >/dev/null 2>&1 </dev/null

log "upgrading to 1.1.0"
pid=$(service_pid)
package /i "$new" install-new || fail "upgrade to 1.1.0 failed with $?"
check_installed 1.1.0
# The older package's removal stopped its service; the newer one started a process of its own.
[ -n "$pid" ] && [ -n "$(service_pid)" ] && [ "$(service_pid)" != "$pid" ] ||
    fail "service process before the upgrade '$pid', after '$(service_pid)'"
[ "$(regval "$settings_key" MsiTestSetting)" = 0x7 ] || fail "the upgrade lost the settings"

log "the older package over the newer one"
if package /i "$old" downgrade; then fail "1.0.0 installed over 1.1.0"; fi
[ "$(versions)" = "1 1.1.0" ] || fail "after the refused downgrade: $(versions)"

log "removing"
package /x "$new" remove || fail "removal failed with $?"
# Wine logs each deferred action twice (scheduled, then run): the order of first appearance.
order=$(sed -n 's/^Action start .*: \(ServiceRelease\|ServiceUnload\|RemoveFiles\)\.$/\1/p' "$work/remove.log" |
        awk '!seen[$0]++' | tr '\n' ' ')
[ "$order" = "ServiceRelease ServiceUnload RemoveFiles " ] || fail "removal order: $order"
wait_until 20 gone || fail "the service is still registered (state '$(state)')"
[ ! -e "$unix_dir" ] || fail "left in $dir: $(ls "$unix_dir")"
[ ! -e "$policy/Vantrel.admx" ] && [ ! -e "$policy/en-US/Vantrel.adml" ] || fail "policy templates left"
! haskey "$source_key" || fail "event source left"
[ "$(versions)" = "0 " ] || fail "still installed: $(versions)"
[ "$(regval "$settings_key" MsiTestSetting)" = 0x7 ] || fail "the removal took the settings"

if [ $failures -ne 0 ]; then
    echo "installer logs in $work (VX_MSI_KEEP=1 keeps the prefix)"
    exit 1
fi
log "MSI install, upgrade and removal: all checks passed"
