#!/usr/bin/env bash
# A standard XML tool reads the settings files Vantrel writes: the storage tests leave their
# exported files in the Wine prefix's temporary folder, and xmllint must find each well-formed.
set -euo pipefail
prefix=$1
shopt -s nullglob
files=("$prefix"/drive_c/users/*/Temp/vantrel-xmllint/*.xml "$prefix"/drive_c/users/*/AppData/Local/Temp/vantrel-xmllint/*.xml)
if [ ${#files[@]} -eq 0 ]; then
  echo "no exported settings files found under $prefix (did storage_tests run?)"
  exit 1
fi
for f in "${files[@]}"; do
  xmllint --noout "$f"
  echo "well-formed: $(basename "$f")"
done
