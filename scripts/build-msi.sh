#!/usr/bin/env bash
# Builds the Vantrel Windows Installer package from packaging/msi/Vantrel.wxs with wixl.
#   build-msi.sh BINDIR OUTPUT.msi [VERSION]
# BINDIR holds the shipped binaries (dist/ or a build's bin/); the administrative templates come
# from packaging/policy. VERSION (major.minor.build, as Windows Installer compares them) defaults
# to the project's version in CMakeLists.txt.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
usage="usage: build-msi.sh BINDIR OUTPUT.msi [VERSION]"
[ $# -ge 2 ] && [ $# -le 3 ] || { echo "$usage" >&2; exit 2; }
[ -d "$1" ] || { echo "build-msi: no folder $1" >&2; exit 2; }
bindir=$(cd "$1" && pwd)
out=$(realpath -m "$2")
version=${3:-$(sed -n 's/^project(Vantrel VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")}

# Windows Installer's limits: 255.255.65535. A version outside them would not compare as newer.
if ! [[ $version =~ ^([0-9]{1,3})\.([0-9]{1,3})\.([0-9]{1,5})$ ]] ||
   [ "${BASH_REMATCH[1]}" -gt 255 ] || [ "${BASH_REMATCH[2]}" -gt 255 ] || [ "${BASH_REMATCH[3]}" -gt 65535 ]; then
  echo "build-msi: version '$version' is not major.minor.build within 255.255.65535" >&2
  exit 2
fi

mkdir -p "$(dirname "$out")"
# wixl looks for each Source relative to the folder it runs in and refuses absolute paths.
cd "$root"
wixl -a x64 -D Version="$version" \
     -D BinDir="$(realpath --relative-to=. "$bindir")" \
     -D PolicyDir=packaging/policy \
     -o "$out" packaging/msi/Vantrel.wxs
echo "MSI $version: $out"
