#!/bin/sh
# Compares the host build's and the ARM build's catalogue: the generated JSON
# documents and the layouts the two compiled programs print.
# Usage: compare_layouts.sh NATIVE_BUILD_DIR ARM_BUILD_DIR EMULATOR...
set -eu
native=$1
arm=$2
shift 2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
if [ ! -x "$native/gen/tests/catalogue_layout" ]; then
    echo "no host build's catalogue_layout in $native" >&2
    exit 1
fi
cmp "$native/gen/code/generated/catalogue.json" "$arm/gen/code/generated/catalogue.json"
"$native/gen/tests/catalogue_layout" > "$tmp/native"
"$@" "$arm/gen/tests/catalogue_layout" > "$tmp/arm"
diff -u "$tmp/native" "$tmp/arm"
echo "identical: catalogue.json and $(wc -l < "$tmp/arm") lines of compiled layout"
