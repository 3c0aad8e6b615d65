#!/usr/bin/env bash
# Installs what building and testing Vantrel needs on a Debian machine, and nothing else.
# Quiet and quick when everything is already there, so every build may call it.
set -euo pipefail

need=()
have() { command -v "$1" >/dev/null 2>&1; }
have x86_64-w64-mingw32-g++-posix || need+=(g++-mingw-w64-x86-64-posix)
have x86_64-w64-mingw32-windres   || need+=(binutils-mingw-w64-x86-64)
have x86_64-w64-mingw32-windmc    || need+=(binutils-mingw-w64-x86-64)
have wine                          || need+=(wine)
have wine64 || [ -x /usr/lib/wine/wine64 ] || need+=(wine64)
have cmake                         || need+=(cmake)
have ninja                         || need+=(ninja-build)
[ -f /usr/src/googletest/CMakeLists.txt ] || need+=(googletest)
have xmllint                       || need+=(libxml2-utils)
# The compiled help file Vantrel.chm (packaging/help): Free Pascal's CHM compiler.
have chmcmd                        || need+=(fp-utils)
# The MSI package (scripts/build-msi.sh): wixl builds it from WiX XML; msitools' msiinfo reads
# its tables back in the package test.
have wixl                          || need+=(wixl)
have msiinfo                       || need+=(msitools)
# Wine's own fonts (Tahoma, Marlett for the caption buttons): without them windows draw with a
# substitute face, and text measured in tests and screenshots differs from what Windows shows.
[ -f /usr/share/wine/fonts/tahoma.ttf ] || need+=(fonts-wine)
# The native sanitizer and fuzzing build of the parsers (scripts/fuzz.sh): clang-14 with its
# libFuzzer and sanitizer runtimes.
have clang++-14                    || need+=(clang-14)
compgen -G '/usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a' >/dev/null || need+=(libclang-rt-14-dev)

if [ ${#need[@]} -eq 0 ]; then exit 0; fi

# De-duplicate while keeping the order.
mapfile -t need < <(printf '%s\n' "${need[@]}" | awk '!seen[$0]++')
echo "Installing build tools: ${need[*]}"
sudo=""
[ "$(id -u)" = 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
