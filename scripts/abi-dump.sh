#!/usr/bin/env bash
# Writes down the binary interface of one library: what it exports, and every type that this reaches. Types of the
# standard library count by the room that they take and by their names in functions alone.
#   scripts/abi-dump.sh LIBRARY HEADERS OUT [--interfaces]
#     HEADERS        folder of the public headers
#     --interfaces   also classes that are reached by pointers alone and defined where nothing is exported, as classes
#                    without a function of their own are. The record becomes ten times as long.
set -euo pipefail
only=(--exported-interfaces-only)
[ "${4:-}" != --interfaces ] || only=()
standard=$(mktemp)
trap 'rm -f "$standard"' EXIT
printf '[suppress_type]\n  name_regexp = ^(std|__gnu_cxx)::\n  drop = yes\n' >"$standard"
# No lines, and no names that mean nothing to a linker: the record stays small, and changes for a reason.
abidw --headers-dir "$2" --drop-private-types --suppressions "$standard" "${only[@]}" \
    --type-id-style hash --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names --no-elf-needed \
    --no-architecture --no-write-default-sizes --out-file "$3" "$1"
sed -i "s| path='[^']*/ole/| path='ole/|" "$3"
