#!/bin/sh
# The three catalogue libraries depend in one direction: introspection_gen on
# introspection_enum, introspection_enum on introspection. Fails, naming the
# symbols, when a library needs a symbol that only a library above it defines.
# Usage: library_graph.sh NM LIBINTROSPECTION LIBINTROSPECTION_ENUM LIBINTROSPECTION_GEN
set -eu
nm=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Strong definitions (code, data, read-only data, bss) of an archive.
defined() {
    "$nm" --defined-only --format=posix "$1" | awk 'NF >= 2 && $2 ~ /^[TDBR]$/ {print $1}' | sort -u
}
# Every definition of an archive, weak ones included.
provided() {
    "$nm" --defined-only --format=posix "$1" | awk 'NF >= 2 {print $1}' | sort -u
}
# Symbols an archive needs and does not define itself.
needed() {
    "$nm" --undefined-only --format=posix "$1" | awk 'NF >= 2 {print $1}' | sort -u > "$tmp/undefined"
    "$nm" --defined-only --format=posix "$1" | awk 'NF >= 2 {print $1}' | sort -u > "$tmp/own"
    comm -23 "$tmp/undefined" "$tmp/own"
}

needed "$2" > "$tmp/needed-introspection"
provided "$2" > "$tmp/provided-introspection"
# What introspection provides (its weak default of the catalogue pointer among
# it) is not needed from above.
needed "$3" | comm -23 - "$tmp/provided-introspection" > "$tmp/needed-introspection_enum"
defined "$3" > "$tmp/defined-introspection_enum"
defined "$4" > "$tmp/defined-introspection_gen"

status=0
check() {
    found=$(comm -12 "$tmp/needed-$1" "$tmp/defined-$2")
    if [ -n "$found" ]; then
        echo "$1 needs symbols that only $2 defines:"
        echo "$found"
        status=1
    fi
}
check introspection introspection_enum
check introspection introspection_gen
check introspection_enum introspection_gen
[ $status -eq 0 ] && echo "introspection_gen -> introspection_enum -> introspection: one direction"
exit $status
