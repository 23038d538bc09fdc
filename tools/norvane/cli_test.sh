#!/usr/bin/env bash
# The tool's command-line conventions: exit statuses, where output goes, one-line errors.
set -u
tool=$1
fail=0
check() {  # check <description> <expected status> <actual status>
  if [ "$2" != "$3" ]; then echo "FAIL: $1: status $3, expected $2"; fail=1; fi
}
out=$(mktemp -d); trap 'rm -rf "$out"' EXIT

"$tool" --version >"$out/o" 2>"$out/e"; check "--version" 0 $?
grep -q '^norvane [0-9]\+\.[0-9]\+\.[0-9]\+$' "$out/o" || { echo "FAIL: --version first line"; fail=1; }
grep -q '^processor: ' "$out/o" || { echo "FAIL: --version names no processor"; fail=1; }
[ -s "$out/e" ] && { echo "FAIL: --version wrote to stderr"; fail=1; }

"$tool" --help >"$out/o" 2>"$out/e"; check "--help" 0 $?
grep -q '^Usage: norvane <command>' "$out/o" || { echo "FAIL: --help prints no usage"; fail=1; }
grep -q '^  version ' "$out/o" || { echo "FAIL: --help lists no version command"; fail=1; }
cmp -s "$out/o" <("$tool" help) || { echo "FAIL: help and --help differ"; fail=1; }

for args in "" "frobnicate" "--bogus" "--version extra" "help me"; do
  # shellcheck disable=SC2086
  "$tool" $args >"$out/o" 2>"$out/e"; check "'$args'" 2 $?
  [ -s "$out/o" ] && { echo "FAIL: '$args' wrote to stdout"; fail=1; }
  head -n 1 "$out/e" | grep -q '^norvane: ' || { echo "FAIL: '$args' error line"; fail=1; }
  grep -q '^Usage: ' "$out/e" || { echo "FAIL: '$args' prints no usage"; fail=1; }
done

if [ -w /dev/full ]; then
  "$tool" --help >/dev/full 2>"$out/e"; check "write error" 1 $?
fi
exit $fail
