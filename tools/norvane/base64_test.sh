#!/usr/bin/env bash
# norvane base64 against coreutils' base64 on the same data, and its error conventions.
set -u
tool=$1
fail=0
out=$(mktemp -d); trap 'rm -rf "$out"' EXIT
check() {  # check <description> <expected status> <actual status>
  if [ "$2" != "$3" ]; then echo "FAIL: $1: status $3, expected $2"; fail=1; fi
}
same() {  # same <description> <file> <file>
  cmp -s "$2" "$3" || { echo "FAIL: $1 differs"; fail=1; }
}

# Random data of lengths around the group sizes and the tool's piece sizes (196608 to encode,
# 262144 characters to decode), from a file and from standard input.
for n in 0 1 2 3 4 5 6 57 76 1000 196607 196608 196609 262143 262144 262145 1000000; do
  head -c "$n" /dev/urandom >"$out/data"
  { base64 -w0 "$out/data"; echo; } >"$out/theirs"
  "$tool" base64 "$out/data" >"$out/ours"; check "encode $n bytes" 0 $?
  same "encode $n bytes" "$out/ours" "$out/theirs"
  "$tool" base64 <"$out/data" >"$out/ours"; check "encode $n bytes from stdin" 0 $?
  same "encode $n bytes from stdin" "$out/ours" "$out/theirs"
  "$tool" base64 -d "$out/theirs" >"$out/back"; check "decode $n bytes" 0 $?
  same "decode $n bytes" "$out/back" "$out/data"
  base64 -w0 "$out/data" | "$tool" base64 --decode - >"$out/back"; check "decode $n bytes, no newline" 0 $?
  same "decode $n bytes, no newline" "$out/back" "$out/data"
done
# Text coreutils writes is decoded alike; so is text without padding.
printf 'Zm9vYmE=\n' | "$tool" base64 -d >"$out/o"; [ "$(cat "$out/o")" = "fooba" ] || { echo "FAIL: Zm9vYmE="; fail=1; }
printf 'Zm9vYmE' | "$tool" base64 -d >"$out/o"; [ "$(cat "$out/o")" = "fooba" ] || { echo "FAIL: unpadded"; fail=1; }

# Invalid input: status 1 and one line of error.
for text in 'Zm9v!mFy' 'Zm9v YmFy' 'Zg==Zg==' 'Zm9vY' 'Zg===' 'Zm9v=' 'Zg=' 'Zm9v\n\n' 'Zm9v\r\n' '\xc3\xa9AAA'; do
  printf "$text" | "$tool" base64 -d >"$out/o" 2>"$out/e"; check "invalid '$text'" 1 $?
  [ "$(wc -l <"$out/e")" = 1 ] || { echo "FAIL: '$text': not one line of error"; fail=1; }
  grep -q '^norvane: base64: invalid input$' "$out/e" || { echo "FAIL: '$text': error line"; fail=1; }
done
# A character outside the alphabet far into a long text is found too.
{ head -c 300000 /dev/zero | base64 -w0; printf '*AAA'; } | "$tool" base64 -d >/dev/null 2>&1
check "invalid character after 400000 characters" 1 $?

# Usage and missing files.
"$tool" base64 -x </dev/null >"$out/o" 2>"$out/e"; check "unknown option" 2 $?
"$tool" base64 a b </dev/null >"$out/o" 2>"$out/e"; check "two files" 2 $?
"$tool" base64 "$out/missing" >"$out/o" 2>"$out/e"; check "missing file" 1 $?
grep -q "^norvane: base64: $out/missing: " "$out/e" || { echo "FAIL: missing file error line"; fail=1; }
"$tool" base64 -d "$out" >"$out/o" 2>"$out/e"; check "a folder" 1 $?
"$tool" base64 --help >"$out/o"; check "--help" 0 $?
"$tool" --help | grep -q '^  base64 ' || { echo "FAIL: base64 missing from the command list"; fail=1; }
exit $fail
