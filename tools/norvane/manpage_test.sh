#!/usr/bin/env bash
# The manual page ($2, with the version filled in) against the tool ($1): a section with an example
# for every command of the help, the tool's version, and no formatting warnings.
page=$(realpath "$2")
source "$(dirname "$0")/test_setup.sh"

# The page's text with roff's escapes for '-' and fonts removed; one section per .SS line.
sed -e 's/\\-/-/g' -e 's/\\f[BIRP]//g' "$page" >plain
for c in $("$tool" help | sed -n 's/^  \([a-z0-9-]*\) .*/\1/p'); do
  section=$(awk -v c="$c" '/^\.SS /{on = index(" " $0 " ", " " c " ") || index($0, " " c ",")} on' plain)
  [ -n "$section" ] || { echo "FAIL: no section for $c in the manual page"; fail=1; continue; }
  grep -q '^\.EX' <<<"$section" || { echo "FAIL: no example for $c in the manual page"; fail=1; }
done

version=$("$tool" --version | sed -n 's/^norvane //p' | head -n 1)
grep -q "^\.TH NORVANE 1 .*\"Norvane $version\"" plain || { echo "FAIL: the page is not of version $version"; fail=1; }

if command -v groff >/dev/null; then
  LC_ALL=C.UTF-8 groff -man -ww -z -Tutf8 "$page" 2>warnings
  [ -s warnings ] && { echo "FAIL: groff warns:"; cat warnings; fail=1; }
else
  echo "groff not found: the page's formatting is not checked"
fi
exit $fail
