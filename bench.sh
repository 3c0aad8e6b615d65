#!/usr/bin/env bash
# Builds Vantrel and runs the benchmarks under Wine; each prints one summary line per figure.
set -euo pipefail
cd "$(dirname "$0")"
build=${VX_BUILD_DIR:-$PWD/build/windows}
scripts/ensure-toolchain.sh
cmake --preset windows -B "$build" >/dev/null
# All of it: the service benchmark runs the shipped binaries against the terminal server double.
cmake --build "$build"
prefix=$build/wineprefix
cmake/wine-run.sh "$prefix" --init
WINEPREFIX=$prefix WINEDEBUG=-all wine "$build/bin/engine_bench.exe" </dev/null
WINEPREFIX=$prefix WINEDEBUG=-all wine "$build/bin/monitor_bench.exe" </dev/null
# The running service per watched session, with its real monitor (about a minute).
bench/service_bench.sh "$build"
