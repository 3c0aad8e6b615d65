#!/usr/bin/env bash
# Builds Vantrel and runs the benchmarks under Wine; each prints one summary line per figure.
set -euo pipefail
cd "$(dirname "$0")"
build=${VX_BUILD_DIR:-$PWD/build/windows}
scripts/ensure-toolchain.sh
cmake --preset windows -B "$build" >/dev/null
cmake --build "$build" --target engine_bench monitor_bench
prefix=$build/wineprefix
cmake/wine-run.sh "$prefix" --init
WINEPREFIX=$prefix WINEDEBUG=-all wine "$build/bin/engine_bench.exe" </dev/null
WINEPREFIX=$prefix WINEDEBUG=-all wine "$build/bin/monitor_bench.exe" </dev/null
