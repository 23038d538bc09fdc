#!/usr/bin/env bash
# aes-cbc against a published CBC example and against `openssl enc`, with and without padding, on
# inputs that cross the tool's 1 MiB pieces, from files and from pipes; keys from files; and its
# refusals.
source "$(dirname "$0")/test_setup.sh"

# The first block of the CBC-AES128 example of NIST SP 800-38A.
key=2b7e151628aed2a6abf7158809cf4f3c
iv=000102030405060708090a0b0c0d0e0f
hex() { od -An -v -tx1 | tr -d ' \n'; }
got=$(printf '\x6b\xc1\xbe\xe2\x2e\x40\x9f\x96\xe9\x3d\x7e\x11\x73\x93\x17\x2a' |
      "$tool" aes-cbc -e -K $key --iv $iv | hex)
[ "$got" = 7649abac8119b246cee98e9b12e9197d ] || { echo "FAIL: aes-cbc known answer: $got"; fail=1; }

head -c $((3 * 1048576 + 40)) /dev/urandom >random.bin
keys=($key 000102030405060708090a0b0c0d0e0f1011121314151617
      603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4)
for k in "${keys[@]}"; do
  cipher=aes-$((${#k} * 4))-cbc
  for size in 0 1 15 16 17 4096 1048575 1048576 1048577 $((3 * 1048576 + 32)) $((3 * 1048576 + 40)); do
    head -c $size random.bin >plain
    what="$cipher, $size bytes"
    # PKCS#7 padding, from a file and from a pipe, both ways.
    openssl enc -$cipher -K $k -iv $iv <plain >theirs
    "$tool" aes-cbc -e --pad -K $k --iv $iv <plain >ours; check "$what: -e --pad" 0 $?
    same "$what: --pad against openssl enc" ours theirs
    cat theirs | "$tool" aes-cbc -d --pad -K $k --iv $iv >back; check "$what: -d --pad from a pipe" 0 $?
    same "$what: --pad round trip" back plain
    # Whole blocks without padding.
    [ $((size % 16)) = 0 ] || continue
    openssl enc -$cipher -nopad -K $k -iv $iv <plain >theirs
    cat plain | "$tool" aes-cbc -e -K $k --iv $iv >ours; check "$what: -e from a pipe" 0 $?
    same "$what: against openssl enc -nopad" ours theirs
    "$tool" aes-cbc -d -K $k --iv $iv <theirs >back; check "$what: -d" 0 $?
    same "$what: round trip" back plain
  done
done

# Keys and IVs from files, with white space around them.
printf '  %s\n' $key >key.txt
printf '%s\r\n' $iv >iv.txt
head -c 1000 random.bin >plain
"$tool" aes-cbc -e --pad --key-file key.txt --iv-file iv.txt <plain >ours; check "key files" 0 $?
openssl enc -aes-128-cbc -K $key -iv $iv <plain | cmp -s - ours || { echo "FAIL: key files"; fail=1; }

# Refusals: one line on stderr (and the hint to the help after a usage error), nothing on
# stdout, status 2 (1 for a file that cannot be read).
refuse() {  # refuse <description> <status> <input file> <args>...
  local what=$1 status=$2 input=$3
  shift 3
  "$tool" aes-cbc "$@" <"$input" >ours 2>err; check "$what" "$status" $?
  [ -s ours ] && { echo "FAIL: $what wrote to stdout"; fail=1; }
  grep -v "^Try 'norvane help aes-cbc'.$" err >err.1
  [ "$(wc -l <err.1)" = 1 ] && grep -q '^norvane: aes-cbc: ' err.1 || { echo "FAIL: $what: $(cat err)"; fail=1; }
}
printf 'abc' >abc
head -c 33 random.bin >partial
refuse "short key" 2 plain -e -K 00112233 --iv $iv
refuse "20-byte key" 2 plain -e -K 00112233445566778899aabbccddeeff00112233 --iv $iv
refuse "bad hex key" 2 plain -e -K 2b7e151628aed2a6abf7158809cf4fzz --iv $iv
refuse "odd hex iv" 2 plain -d -K $key --iv 0001020
refuse "short iv" 2 plain -d -K $key --iv 0001
refuse "partial block" 2 abc -e -K $key --iv $iv
refuse "partial final block" 2 partial -d -K $key --iv $iv
refuse "partial block with --pad -d" 2 partial -d --pad -K $key --iv $iv
refuse "missing key file" 1 plain -e --key-file nosuch --iv $iv
refuse "key twice" 2 plain -e -K $key --key-file key.txt --iv $iv
refuse "no direction" 2 plain -K $key --iv $iv
refuse "no key" 2 plain -e --iv $iv
refuse "both directions" 2 plain -e -d -K $key --iv $iv
refuse "an operand" 2 plain -e -K $key --iv $iv file
# Bad padding: openssl enc refuses too; the blocks before the last are written.
head -c 64 random.bin >blocks
"$tool" aes-cbc -d --pad -K $key --iv $iv <blocks >ours 2>err; check "bad padding" 1 $?
openssl enc -d -aes-128-cbc -K $key -iv $iv <blocks >/dev/null 2>&1 && { echo "FAIL: openssl accepts"; fail=1; }
grep -q 'bad padding' err || { echo "FAIL: bad padding message: $(cat err)"; fail=1; }
# A pipe shows a partial block only at its end: the pieces before it are written.
head -c 1048616 random.bin | "$tool" aes-cbc -e -K $key --iv $iv >ours 2>err; check "partial block from a pipe" 2 $?
[ "$(wc -c <ours)" = 1048576 ] || { echo "FAIL: whole pieces before a partial block from a pipe"; fail=1; }
if [ -w /dev/full ]; then
  head -c 1048576 random.bin >blocks
  "$tool" aes-cbc -e -K $key --iv $iv <blocks >/dev/full 2>err; check "write error" 1 $?
  [ "$(cat err)" = "norvane: write error: No space left on device" ] || { echo "FAIL: write error: $(cat err)"; fail=1; }
fi
exit $fail
