#!/usr/bin/env bash
# Builds Vantrel and runs every test under Wine. Installs the toolchain first when it is missing.
# Usage: ./test.sh [ctest arguments...]     e.g. ./test.sh -R storage_tests
# VX_BUILD_DIR chooses another build folder (default build/windows).
set -euo pipefail
cd "$(dirname "$0")"
root=$PWD
build=${VX_BUILD_DIR:-$root/build/windows}

scripts/ensure-toolchain.sh
cmake --preset windows -B "$build" >/dev/null
cmake --build "$build"

# The parsers built natively with sanitizers, then fuzzed: VX_FUZZ_SECONDS per target (default 60).
scripts/fuzz.sh

prefix=$build/wineprefix
cmake/wine-run.sh "$prefix" --init
# One persistent Wine server for the whole run: each test launch then costs milliseconds.
# A server left over from creating the prefix is replaced by a persistent one.
export WINEPREFIX=$prefix WINEDEBUG=-all
wineserver -k 2>/dev/null || true
wineserver -w 2>/dev/null || true
wineserver -p >/dev/null 2>&1 </dev/null
# Start Wine's own system processes now, detached from our output: started by the first test
# they would inherit CTest's output pipe and keep it open, and CTest would wait for them.
wine wineboot >/dev/null 2>&1 </dev/null || true
trap 'WINEPREFIX=$prefix wineserver -k 2>/dev/null || true' EXIT

status=0
ctest --test-dir "$build" --output-on-failure --timeout 600 -j2 "$@" || status=$?
exit $status
