#!/usr/bin/env bash
# The digest commands against coreutils' sha1sum and sha256sum on a few files, their check mode and
# error reporting, and aes-cbc against a published CBC example and its own round trip.
set -u
tool=$1
src=$2
fail=0
check() {  # check <description> <expected status> <actual status>
  if [ "$2" != "$3" ]; then echo "FAIL: $1: status $3, expected $2"; fail=1; fi
}
out=$(mktemp -d); trap 'rm -rf "$out"' EXIT
cd "$out" || exit 1

: >empty
printf 'abc' >abc
head -c 1000003 /dev/zero | tr '\0' 'x' >big
awk 'BEGIN { srand(7); for (i = 0; i < 70000; i++) printf "%c", int(rand() * 256) }' >random.bin
cp "$src/README.md" 'name with spaces'
files=(empty abc big random.bin 'name with spaces' "$src/README.md")

for algo in sha1sum sha256sum; do
  "$tool" "$algo" "${files[@]}" >ours 2>err; check "$algo files" 0 $?
  "$algo" "${files[@]}" >theirs
  cmp -s ours theirs || { echo "FAIL: $algo differs from coreutils:"; diff ours theirs; fail=1; }
  [ -s err ] && { echo "FAIL: $algo wrote to stderr"; fail=1; }
  # Standard input, with no name and with "-".
  cmp -s <("$tool" "$algo" <big) <("$algo" <big) || { echo "FAIL: $algo of stdin"; fail=1; }
  cmp -s <("$tool" "$algo" - <abc) <("$algo" - <abc) || { echo "FAIL: $algo of -"; fail=1; }
done
for algo in sha384sum sha512sum; do
  if command -v "$algo" >/dev/null; then
    cmp -s <("$tool" "$algo" "${files[@]}") <("$algo" "${files[@]}") || { echo "FAIL: $algo differs"; fail=1; }
  fi
done

# A missing file is reported and the others are still processed.
"$tool" sha256sum abc missing empty >ours 2>err; check "missing file" 1 $?
[ "$(cat err)" = "norvane: missing: No such file or directory" ] || { echo "FAIL: missing file message: $(cat err)"; fail=1; }
[ "$(wc -l <ours)" = 2 ] || { echo "FAIL: other files not processed"; fail=1; }

# Check mode: OK, FAILED and the exit status.
sha256sum abc empty >sums
"$tool" sha256sum -c sums >ours 2>err; check "check ok" 0 $?
[ "$(cat ours)" = $'abc: OK\nempty: OK' ] || { echo "FAIL: check output: $(cat ours)"; fail=1; }
"$tool" sha256sum --check <sums >/dev/null; check "check from stdin" 0 $?
printf 'abd' >abc
"$tool" sha256sum -c sums >ours 2>err; check "check failed" 1 $?
[ "$(cat ours)" = $'abc: FAILED\nempty: OK' ] || { echo "FAIL: check output: $(cat ours)"; fail=1; }
grep -q 'WARNING: 1 computed checksum did NOT match' err || { echo "FAIL: no mismatch warning"; fail=1; }
"$tool" sha256sum --bogus >/dev/null 2>&1; check "unknown option" 2 $?

# aes-cbc: the first block of the CBC-AES128 example of NIST SP 800-38A, then round trips.
key=2b7e151628aed2a6abf7158809cf4f3c
iv=000102030405060708090a0b0c0d0e0f
hex() { od -An -v -tx1 | tr -d ' \n'; }
got=$(printf '\x6b\xc1\xbe\xe2\x2e\x40\x9f\x96\xe9\x3d\x7e\x11\x73\x93\x17\x2a' |
      "$tool" aes-cbc -e -K $key --iv $iv | hex)
[ "$got" = 7649abac8119b246cee98e9b12e9197d ] || { echo "FAIL: aes-cbc known answer: $got"; fail=1; }
for k in $key 000102030405060708090a0b0c0d0e0f1011121314151617 \
         603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4; do
  head -c 4096 random.bin >plain
  "$tool" aes-cbc -e -K $k --iv $iv <plain >cipher; check "aes-cbc -e" 0 $?
  "$tool" aes-cbc -d -K $k --iv $iv <cipher >back; check "aes-cbc -d" 0 $?
  cmp -s plain back || { echo "FAIL: aes-cbc round trip, key of ${#k} hex digits"; fail=1; }
  cmp -s plain cipher && { echo "FAIL: aes-cbc did not encrypt"; fail=1; }
  if command -v openssl >/dev/null; then
    openssl enc -aes-$((${#k} * 4))-cbc -nopad -K $k -iv $iv <plain >theirs 2>/dev/null &&
      { cmp -s cipher theirs || { echo "FAIL: aes-cbc differs from openssl enc"; fail=1; }; }
  fi
done
"$tool" aes-cbc -e -K $key --iv $iv <empty >ours; check "aes-cbc empty input" 0 $?
[ -s ours ] && { echo "FAIL: aes-cbc wrote output for empty input"; fail=1; }

# Refusals: one line on stderr, nothing on stdout, status 2.
refuse() {  # refuse <description> <input file> <args>...
  local what=$1 input=$2
  shift 2
  "$tool" aes-cbc "$@" <"$input" >ours 2>err; check "$what" 2 $?
  [ -s ours ] && { echo "FAIL: $what wrote to stdout"; fail=1; }
  [ "$(wc -l <err)" = 1 ] || { echo "FAIL: $what: not one line of error: $(cat err)"; fail=1; }
}
refuse "short key" plain -e -K 00112233 --iv $iv
refuse "20-byte key" plain -e -K 00112233445566778899aabbccddeeff00112233 --iv $iv
refuse "bad hex key" plain -e -K 2b7e151628aed2a6abf7158809cf4fzz --iv $iv
refuse "odd hex iv" plain -d -K $key --iv 0001020
refuse "short iv" plain -d -K $key --iv 0001
refuse "partial block" abc -e -K $key --iv $iv
head -c 33 random.bin >partial
refuse "partial final block" partial -d -K $key --iv $iv
"$tool" aes-cbc -K $key --iv $iv <plain >/dev/null 2>&1; check "no direction" 2 $?
"$tool" aes-cbc -e --iv $iv <plain >/dev/null 2>&1; check "no key" 2 $?
exit $fail
