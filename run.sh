#!/usr/bin/env bash
# Builds everything and lays the Windows binaries out in dist/, as an administrator copies them
# into one folder. Installs the toolchain first when it is missing.
set -euo pipefail
cd "$(dirname "$0")"

scripts/ensure-toolchain.sh
build=${VX_BUILD_DIR:-$PWD/build/windows}
cmake --preset windows -B "$build" >/dev/null
cmake --build "$build"

rm -rf dist
mkdir -p dist
for f in VXDA64.DLL VXHA64.DLL VXA64.EXE VantrelA64.EXE Vantrel.chm; do
  cp "$build/bin/$f" dist/
done
# The administrative templates, laid out as a PolicyDefinitions folder (the central store's shape).
cp -r packaging/policy dist/PolicyDefinitions
# The same files as one Windows Installer package, per machine (README: "Installing with the MSI").
scripts/build-msi.sh dist dist/Vantrel.msi
echo "Vantrel binaries in $(pwd)/dist:"
ls -lR dist

# The windows as a person sees them, into docs/screenshots/ (needs a virtual X screen, which the
# script installs). A failure here is reported but leaves the binaries in place.
scripts/screenshots.sh "$build" || echo "screenshots: FAILED (the binaries in dist/ are fine)" >&2

# The product at work: the service installed in a throwaway Wine prefix against a simulated
# terminal server with three sessions, its timeline printed as it happens (under three minutes).
# Exits non-zero when the product misbehaves.
scripts/demo.sh "$build"
