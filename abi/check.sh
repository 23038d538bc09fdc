#!/usr/bin/env bash
# The ABI guard: compares the exported interface of the release build's libnorvane.so.0 with the
# committed baseline abi/libnorvane.abi (libabigail's abidw format, made from a g++ release build).
# A removed or changed function, variable or type layout fails; functions and variables that are
# only added pass.
#
# The baseline must describe what is exported now: a change that adds exports (a new function,
# class or member) refreshes it in the same commit, and so does any merge that brings in another
# branch's additions:
#   cmake --workflow --preset release && abi/check.sh --update
# An intended incompatible change (which also bumps the SONAME's major version) refreshes it the
# same way.
#
# Usage: abi/check.sh [--update] [build dir, default build/release]
set -euo pipefail
cd "$(dirname "$0")/.."
update=0
if [ "${1:-}" = "--update" ]; then
  update=1
  shift
fi
build=${1:-build/release}
lib=$build/norvane/libnorvane.so.0
baseline=abi/libnorvane.abi
if [ ! -e "$lib" ]; then
  echo "abi: $lib not found; build the release preset first" >&2
  exit 2
fi
# Only what the public headers declare counts; locations and paths are left out so that the
# baseline does not depend on where the tree was built.
dump() {
  abidw --no-corpus-path --no-show-locs --no-comp-dir-path --drop-private-types --headers-dir norvane \
    --type-id-style hash "$lib"
}
if [ $update -eq 1 ]; then
  dump >"$baseline"
  echo "abi: baseline written to $baseline"
  exit 0
fi
current=$(mktemp)
trap 'rm -f "$current"' EXIT
dump >"$current"
rc=0
report=$(abidiff --no-added-syms --drop-private-types --no-show-locs "$baseline" "$current") || rc=$?
# abidiff's status is a bit mask: 1 error, 2 usage, 4 a change, 8 an incompatible change.
if [ $rc -ne 0 ]; then
  echo "$report"
  echo "abi: the exported interface differs from $baseline (abidiff status $rc); if the change is" \
    "intended, refresh the baseline with abi/check.sh --update" >&2
  exit 1
fi
echo "abi: $lib keeps the interface of $baseline"
