#!/usr/bin/env bash
# rsa and dsa against openssl(1): exported keys read and checked by `openssl pkey`, signatures and
# raw RSA crossing between the two in both directions, seeded keys that repeat, and one line of
# error with status 2 for malformed key files and bad arguments.
source "$(dirname "$0")/test_setup.sh"

hex() { od -An -v -tx1 | tr -d ' \n'; }
strip0() { sed 's/^\(00\)*//'; }
expect() {  # expect <description> <expected status> <command>...: status, and one line of error for 2
  local what=$1 want=$2
  shift 2
  "$@" >o 2>e
  check "$what" "$want" $?
  if [ "$want" = 2 ]; then
    [ ! -s o ] && [ "$(wc -l <e)" -ge 1 ] && head -n 1 e | grep -q '^norvane: ' && ! grep -qi 'sanitizer' e ||
      { echo "FAIL: $what: not one line of error: $(head -c 300 e)"; fail=1; }
  fi
}

head -c 5000 /dev/urandom >data
printf 'abc' >small

# ---- RSA ----
for bits in 512 1024 2048; do
  what="rsa $bits"
  "$tool" rsa keygen --bits $bits --seed 5eed$(printf %04x $bits) --out r$bits; check "$what keygen" 0 $?
  "$tool" rsa keygen --bits $bits --seed 5eed$(printf %04x $bits) --out again; check "$what keygen again" 0 $?
  same "$what: the same seed gives the same private key" r$bits.key again.key
  same "$what: the same seed gives the same public key" r$bits.pub again.pub
  [ "$(stat -c %a r$bits.key)" = 600 ] || { echo "FAIL: $what: the private key is readable by others"; fail=1; }
  # Exports that openssl reads: the private key passes its check, and its public half is ours.
  "$tool" rsa export r$bits.key >key.pem; check "$what export private" 0 $?
  "$tool" rsa export --pem r$bits.pub >pub.pem; check "$what export public" 0 $?
  openssl pkey -in key.pem -check -noout >/dev/null 2>&1 || { echo "FAIL: $what: openssl rejects the private key"; fail=1; }
  openssl pkey -in key.pem -pubout >theirs.pem 2>/dev/null
  same "$what: openssl's public half of the private key" theirs.pem pub.pem
  "$tool" rsa export --pubout r$bits.key >ours.pem
  same "$what: --pubout" ours.pem pub.pem
  openssl pkey -in key.pem -text -noout 2>/dev/null | grep -q "^Private-Key: ($bits bit" ||
    { echo "FAIL: $what: not a $bits-bit key"; fail=1; }
  "$tool" rsa export --der r$bits.pub >pub.der
  openssl pkey -pubin -in pub.pem -outform DER -out theirs.der 2>/dev/null
  same "$what: --der" pub.der theirs.der

  # Signatures: ours opened by openssl end in the SHA-1 digest; openssl's raw ones verify here.
  "$tool" rsa sign --key r$bits.key data >sig; check "$what sign" 0 $?
  [ "$("$tool" rsa verify --key r$bits.pub --signature sig data)" = "Verified OK" ] ||
    { echo "FAIL: $what: own signature"; fail=1; }
  [ "$(openssl pkeyutl -verifyrecover -pubin -inkey pub.pem -pkeyopt rsa_padding_mode:none -in sig | hex | strip0)" = \
    "$(sha1sum <data | cut -c1-40 | strip0)" ] || { echo "FAIL: $what: openssl does not open our signature"; fail=1; }
  { head -c $((bits / 8 - 20)) /dev/zero; openssl dgst -sha1 -binary data; } >block
  # The raw private-key operation, which openssl offers as unpadded decryption.
  openssl pkeyutl -decrypt -inkey key.pem -pkeyopt rsa_padding_mode:none -in block -out theirs.sig
  [ "$("$tool" rsa verify --key r$bits.pub --signature theirs.sig <data)" = "Verified OK" ] ||
    { echo "FAIL: $what: openssl's raw signature"; fail=1; }
  "$tool" rsa sign --key r$bits.key --hex small >sig.hex
  [ "$(tr -d '\n' <sig.hex)" = "$("$tool" rsa sign --key r$bits.key small | hex)" ] || { echo "FAIL: $what: --hex"; fail=1; }
  expect "$what verify --hex" 0 "$tool" rsa verify --key r$bits.pub --signature sig.hex --hex small
  expect "$what verify of other data" 1 "$tool" rsa verify --key r$bits.pub --signature sig small
  grep -qx "Verification failure" o || { echo "FAIL: $what: the failure line"; fail=1; }

  # Raw RSA both ways: the plaintext comes back without its leading zeros.
  { printf '\0\0'; head -c $((bits / 8 - 13)) data; } >msg
  "$tool" rsa encrypt --key r$bits.pub msg >c; check "$what encrypt" 0 $?
  [ "$(openssl pkeyutl -decrypt -inkey key.pem -pkeyopt rsa_padding_mode:none -in c | hex | strip0)" = \
    "$(hex <msg | strip0)" ] || { echo "FAIL: $what: openssl does not decrypt ours"; fail=1; }
  { printf '\0'; head -c $((bits / 8 - 1)) data; } >block
  openssl pkeyutl -encrypt -pubin -inkey pub.pem -pkeyopt rsa_padding_mode:none -in block -out theirs.c
  [ "$("$tool" rsa decrypt --key r$bits.key theirs.c | hex)" = "$(hex <block | strip0)" ] ||
    { echo "FAIL: $what: we do not decrypt openssl's"; fail=1; }
  [ "$("$tool" rsa encrypt --key r$bits.pub --hex small | "$tool" rsa decrypt --key r$bits.key --hex)" = abc ] ||
    { echo "FAIL: $what: hex round trip"; fail=1; }
  head -c $((bits / 8 - 10)) data >long
  expect "$what: data over the limit" 1 "$tool" rsa encrypt --key r$bits.pub long
done
cmp -s r512.key r1024.key && { echo "FAIL: different seeds, same key"; fail=1; }

# ---- DSA ----
"$tool" dsa keygen --seed d5a0 --out d; check "dsa keygen" 0 $?
"$tool" dsa keygen --seed d5a0 --out again
same "dsa: the same seed gives the same private key" d.key again.key
"$tool" dsa export d.key >dkey.pem && "$tool" dsa export d.pub >dpub.pem
openssl pkey -in dkey.pem -check -noout >/dev/null 2>&1 || { echo "FAIL: dsa: openssl rejects the private key"; fail=1; }
openssl pkey -in dkey.pem -pubout >theirs.pem 2>/dev/null
same "dsa: openssl's public half" theirs.pem dpub.pem
openssl pkey -in dkey.pem -text -noout 2>/dev/null | grep -q '^Private-Key: (1024 bit' ||
  { echo "FAIL: dsa: not 1024 bits"; fail=1; }
"$tool" dsa sign --key d.key data >rs; check "dsa sign" 0 $?
[ "$(wc -c <rs)" = 40 ] || { echo "FAIL: dsa: r || s is not 40 bytes"; fail=1; }
"$tool" dsa sign --key d.key data >rs2
cmp -s rs rs2 && { echo "FAIL: dsa: two signatures alike"; fail=1; }
expect "dsa verify" 0 "$tool" dsa verify --key d.pub --signature rs data
expect "dsa verify again" 0 "$tool" dsa verify --key d.pub --signature rs2 data
expect "dsa verify of other data" 1 "$tool" dsa verify --key d.pub --signature rs small
"$tool" dsa sign --key d.key --der data >sig.der
openssl dgst -sha1 -verify dpub.pem -signature sig.der data >o 2>&1
[ "$(cat o)" = "Verified OK" ] || { echo "FAIL: dsa: openssl does not verify ours: $(cat o)"; fail=1; }
openssl dgst -sha1 -sign dkey.pem -out theirs.sig data
expect "dsa verify --der of openssl's" 0 "$tool" dsa verify --key d.pub --der --signature theirs.sig data
expect "dsa verify --der of raw bytes" 1 "$tool" dsa verify --key d.pub --der --signature rs data
"$tool" dsa sign --key d.key --hex small >rs.hex
expect "dsa verify --hex" 0 "$tool" dsa verify --key d.pub --hex --signature rs.hex small

# ---- Malformed key files, wrong kinds and bad arguments: one line, status 2 ----
: >empty
head -c 100 r1024.key >cut
printf '\377\377\377\377abc' >huge
mkdir -p folder
for key in empty cut huge d.key data; do
  expect "rsa sign with $key" 2 "$tool" rsa sign --key $key small
  expect "rsa decrypt with $key" 2 "$tool" rsa decrypt --key $key small
  expect "rsa export of $key" 2 "$tool" rsa export $key
done
for key in empty cut huge r1024.key d.key; do
  expect "rsa verify with $key" 2 "$tool" rsa verify --key $key --signature sig small
  expect "rsa encrypt with $key" 2 "$tool" rsa encrypt --key $key small
done
for key in empty cut r1024.key d.pub; do
  expect "dsa sign with $key" 2 "$tool" dsa sign --key $key small
done
expect "dsa verify with a private key" 2 "$tool" dsa verify --key d.key --signature rs small
expect "dsa export of an RSA key" 2 "$tool" dsa export r1024.pub
expect "a missing key file" 1 "$tool" rsa sign --key missing small
expect "a folder as key" 1 "$tool" rsa sign --key folder small
expect "rsa verify --hex with bad hex" 2 "$tool" rsa verify --key r1024.pub --hex --signature data small
for args in "rsa" "rsa bogus" "rsa keygen --out x" "rsa keygen --bits 14 --out x" "rsa keygen --bits 16385 --out x" \
            "rsa keygen --bits 1024" "rsa keygen --bits 1024x --out x" "rsa keygen --bits 512 --seed xyz --out x" \
            "rsa sign small" "rsa verify --key r1024.pub small" "rsa sign --key r1024.key --der small" \
            "rsa export" "rsa export r1024.pub r1024.key" "rsa export --pem --der r1024.pub" "dsa encrypt" \
            "dsa keygen --bits 1024 --out x" "dsa sign --key d.key --hex --der small" "dsa sign --key d.key a b"; do
  expect "'$args'" 2 $tool $args
done
exit $fail
