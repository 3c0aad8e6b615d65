#!/usr/bin/env bash
# Builds the parsers that are free of Windows calls (INI reader, XML settings file, weekly
# schedule) natively with clang's AddressSanitizer and UndefinedBehaviorSanitizer, runs them once
# over the committed corpus (native/corpus), then fuzzes each with libFuzzer for a bounded time.
# Exits non-zero on any crash, sanitizer report or broken parser rule.
#
# VX_FUZZ_SECONDS  seconds per fuzz target (default 60); 0 builds and runs the corpus check only.
# The build goes to build/native, or to $VX_BUILD_DIR/native when VX_BUILD_DIR is set, so that
# developers who build in their own folders do not share one native build either.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
seconds=${VX_FUZZ_SECONDS:-60}
if ! [[ $seconds =~ ^[0-9]+$ ]]; then
    echo "VX_FUZZ_SECONDS must be a whole number of seconds, not '$seconds'" >&2
    exit 2
fi
native=${VX_BUILD_DIR:+$VX_BUILD_DIR/native}
native=${native:-$root/build/native}

scripts/ensure-toolchain.sh
cmake -S native -B "$native" -G Ninja -DCMAKE_CXX_COMPILER=clang++-14 >/dev/null
cmake --build "$native"

# UndefinedBehaviorSanitizer prints no stack unless asked; every report ends the run (the build
# also says so with -fno-sanitize-recover=all).
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}

"$native/corpus_smoke" native/corpus
# The rich-text markup's rules over its own corpus (each file once, no fuzzing).
"$native/html_fuzz" -runs=0 native/corpus/html >"$native/html_corpus.log" 2>&1 || {
    echo "html_fuzz: the corpus breaks a rule:"; grep -v -e '^#[0-9]' -e '^INFO:' "$native/html_corpus.log" | head -40; exit 1; }

if [ "$seconds" = 0 ]; then
    echo "fuzzing skipped (VX_FUZZ_SECONDS=0)"
    exit 0
fi

status=0
mkdir -p "$native/crashes"
for kind in ini xml schedule html; do
    target=${kind}_fuzz
    # libFuzzer adds the inputs it finds to its corpus folder: it works on a copy, so the
    # committed corpus never changes. Inputs found by earlier runs in this build folder stay.
    work=$native/corpus/$kind
    mkdir -p "$work"
    cp native/corpus/$kind/* "$work"/
    log=$native/$target.log
    rc=0
    "$native/$target" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
        -dict="native/fuzz/$kind.dict" -artifact_prefix="$native/crashes/$target-" "$work" >"$log" 2>&1 || rc=$?
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    files=$(find "$work" -type f | wc -l)
    if [ "$rc" -ne 0 ]; then
        echo "$target: FAILED (exit $rc) after ${execs:-?} executions; report follows, input in $native/crashes/"
        # From the first report line on: the sanitizer's or the rule's message and its stack.
        sed -n '/ERROR:\|runtime error\|rule broken/,$p' "$log" | grep -v -e '^#[0-9]' -e '^INFO:' | head -60
        status=1
    else
        echo "$target: ${execs:-?} executions in $seconds s, $files corpus files"
    fi
done
exit $status
