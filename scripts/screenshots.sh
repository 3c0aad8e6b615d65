#!/usr/bin/env bash
# Photographs the product's windows as a person sees them: each scene of ui_shots.exe runs in a
# Wine virtual desktop on a virtual X screen (Xvfb), and the window is cut out of a screenshot of
# the whole screen into docs/screenshots/<scene>.png. Installs Xvfb and ImageMagick when missing.
# Usage: scripts/screenshots.sh [build folder]   (the build must have run: ./run.sh does both)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${1:-${VX_BUILD_DIR:-$root/build/windows}}
out=$root/docs/screenshots

need=()
command -v xvfb-run >/dev/null 2>&1 || need+=(xvfb xauth)
# The machine's "convert" may be a stand-in: ImageMagick's own "import" is what is needed.
command -v import >/dev/null 2>&1 || need+=(imagemagick)
[ -f /usr/share/wine/fonts/tahoma.ttf ] || need+=(fonts-wine)
if [ ${#need[@]} -gt 0 ]; then
    echo "Installing screenshot tools: ${need[*]}"
    sudo=""
    [ "$(id -u)" = 0 ] || sudo="sudo"
    export DEBIAN_FRONTEND=noninteractive
    $sudo apt-get update -qq
    $sudo apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi

for f in ui_shots.exe VXDA64.DLL; do
    [ -f "$build/bin/$f" ] || { echo "missing $build/bin/$f: build first (./run.sh)" >&2; exit 1; }
done

# A prefix of its own with the ordinary display driver (the test prefix uses the headless one).
export WINEPREFIX=$build/wineprefix-display WINEDEBUG=-all WINEARCH=win64
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"

cat >"$work/scenes.sh" <<'EOF'
set -euo pipefail
# A server left from an interrupted run would hold the old desktop.
wineserver -k 2>/dev/null || true
wineserver -w 2>/dev/null || true
[ -f "$WINEPREFIX/.vantrel-ready" ] || { wineboot -i >/dev/null 2>&1 || true; touch "$WINEPREFIX/.vantrel-ready"; }
# Wine finds the faces of fonts-wine (Tahoma for "MS Shell Dlg", Marlett for the caption buttons)
# only in the prefix's own font folder; without them it draws with a substitute whose letters are
# wider than it measures them, and the windows would not look as they do on Windows.
cp -u /usr/share/wine/fonts/*.ttf "$WINEPREFIX/drive_c/windows/Fonts/" 2>/dev/null || true
# The main dialog's status panel shows the service live: run it for the scenes. A fresh prefix's
# service manager refuses starts while it is still starting its own services: try until it runs.
running=""
for _ in $(seq 1 30); do
    ( cd "$BUILD/bin" && wine VXA64.EXE /load-silent >/dev/null 2>&1 ) || true
    if wine sc query Vantrel 2>/dev/null | tr -d '\r' | grep -q "RUNNING"; then running=1; break; fi
    sleep 1
done
[ -n "$running" ] || echo "the service did not start: the main dialog shows it stopped" >&2
for scene in status msgbox schedule custommsg dataloss about gpobrowse pickusers main maingpo mainpolicy; do
    rect=$WORK/$scene.rect
    rm -f "$rect"
    ( cd "$BUILD/bin" && wine explorer /desktop=vantrel,1024x768 ui_shots.exe "$scene" "$(winepath -w "$rect")" \
        >/dev/null 2>&1 ) &
    pid=$!
    for _ in $(seq 1 300); do [ -s "$rect" ] && break; sleep 0.1; done
    if [ ! -s "$rect" ]; then echo "$scene: the scene did not show" >&2; wineserver -k || true; exit 1; fi
    sleep 0.5
    read -r left top right bottom < <(tr -d '\r' <"$rect")
    # No time stamps in the file: the same window gives the same bytes, run after run.
    import -window root -crop "$((right - left))x$((bottom - top))+$left+$top" +repage -strip \
        -define png:exclude-chunks=date,time "$OUT/$scene.png"
    # The scene closes itself a few seconds after its photograph.
    for _ in $(seq 1 150); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
    kill "$pid" 2>/dev/null || true
    echo "$OUT/$scene.png ($((right - left))x$((bottom - top)))"
done
( cd "$BUILD/bin" && wine VXA64.EXE /unload-silent >/dev/null 2>&1 ) || true
wineserver -k 2>/dev/null || true
EOF
WORK=$work BUILD=$build OUT=$out xvfb-run -a -s "-screen 0 1024x768x24" bash "$work/scenes.sh"
