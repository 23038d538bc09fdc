#!/usr/bin/env bash
# The tool's command-line conventions: exit statuses, where output goes, the usage of each command,
# one-line usage errors with a hint to the help, write errors with their reason.
source "$(dirname "$0")/test_setup.sh"

"$tool" --version >"$out/o" 2>"$out/e"; check "--version" 0 $?
grep -q '^norvane [0-9]\+\.[0-9]\+\.[0-9]\+$' "$out/o" || { echo "FAIL: --version first line"; fail=1; }
grep -q '^processor: ' "$out/o" || { echo "FAIL: --version names no processor"; fail=1; }
[ -s "$out/e" ] && { echo "FAIL: --version wrote to stderr"; fail=1; }

"$tool" --help >"$out/o" 2>"$out/e"; check "--help" 0 $?
grep -q '^Usage: norvane <command>' "$out/o" || { echo "FAIL: --help prints no usage"; fail=1; }
cmp -s "$out/o" <("$tool" help) || { echo "FAIL: help and --help differ"; fail=1; }

# Every listed command has a usage of its own, the same by both routes.
commands=$(sed -n 's/^  \([a-z0-9-]*\) .*/\1/p' "$out/o")
[ "$(wc -w <<<"$commands")" -ge 8 ] || { echo "FAIL: the command list: $commands"; fail=1; }
for c in $commands; do
  "$tool" help "$c" >"$out/o" 2>"$out/e"; check "help $c" 0 $?
  grep -q "^Usage: norvane $c" "$out/o" || { echo "FAIL: help $c: $(head -n 1 "$out/o")"; fail=1; }
  "$tool" "$c" --help | cmp -s - "$out/o" || { echo "FAIL: $c --help differs from help $c"; fail=1; }
done
"$tool" sha256sum -- --help >/dev/null 2>&1; check "--help after -- is a name" 1 $?

# Usage errors: nothing on stdout, one line of error and the hint to the help, status 2.
usage_error() {  # usage_error <hint> <args>...
  local hint=$1
  shift
  "$tool" "$@" >"$out/o" 2>"$out/e"; check "'$*'" 2 $?
  [ -s "$out/o" ] && { echo "FAIL: '$*' wrote to stdout"; fail=1; }
  [ "$(wc -l <"$out/e")" = 2 ] && head -n 1 "$out/e" | grep -q '^norvane: ' ||
    { echo "FAIL: '$*': $(cat "$out/e")"; fail=1; }
  [ "$(sed -n 2p "$out/e")" = "$hint" ] || { echo "FAIL: '$*' hint: $(sed -n 2p "$out/e")"; fail=1; }
}
usage_error "Try 'norvane help'."
usage_error "Try 'norvane help'." frobnicate
usage_error "Try 'norvane help'." --bogus
usage_error "Try 'norvane help version'." --version extra
usage_error "Try 'norvane help help'." help frobnicate
usage_error "Try 'norvane help sha256sum'." sha256sum --bogus
usage_error "Try 'norvane help sha1sum'." sha1sum -c --tag
usage_error "Try 'norvane help iconv'." iconv -f utf-8
usage_error "Try 'norvane help iconv'." iconv --from-code
usage_error "Try 'norvane help aes-cbc'." aes-cbc -e

# A write error names its reason and fails the command.
if [ -w /dev/full ]; then
  printf "text\n" >text
  for args in "--help" "help iconv" "sha256sum text" "iconv -f utf-8 -t utf-16 text"; do
    # shellcheck disable=SC2086
    "$tool" $args >/dev/full 2>"$out/e"; check "$args to a full device" 1 $?
    [ "$(cat "$out/e")" = "norvane: write error: No space left on device" ] ||
      { echo "FAIL: $args to a full device: $(cat "$out/e")"; fail=1; }
  done
fi
exit $fail
