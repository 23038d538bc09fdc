#!/usr/bin/env bash
# prime: seeded draws against the known answers of tools/gen_prime_vectors.py; unseeded draws of
# every size are primes (by `openssl prime`) of exactly that many bits; one-line errors, status 2.
source "$(dirname "$0")/test_setup.sh"
src=$2
err() { echo "FAIL: $*"; fail=1; }
# The bit length of a hex number without leading zeros.
bitlen() {
  local n=$((16#${1:0:1})) b=0
  while [ $n -gt 0 ]; do n=$((n >> 1)); b=$((b + 1)); done
  echo $(((${#1} - 1) * 4 + b))
}

n=0
while IFS=: read -r seed min max prime; do
  # Only the draws over [2^(N-1), 2^N - 1] of the whole class are the tool's.
  [[ $min =~ ^[1248]0*$ && $max =~ ^[137f]f*$ ]] && [ "$(bitlen "$min")" = "$(bitlen "$max")" ] || continue
  n=$((n + 1))
  got=$("$tool" prime --bits "$(bitlen "$min")" --seed "$seed")
  [ "$got" = "$prime" ] || err "--bits $(bitlen "$min") --seed $seed: $got, expected $prime"
done < <(sed -n 's/^ *{"\([0-9a-f]*\)", "\([0-9a-f]*\)", "\([0-9a-f]*\)", 0, 1, "\([0-9a-f]*\)"},$/\1:\2:\3:\4/p' \
  "$src/norvane/crypto/prime_draw_vectors.inc")
[ "$n" -ge 10 ] || err "only $n known answers read"

for bits in 2 3 8 9 31 32 33 127 128 255 512 1024; do
  p=$("$tool" prime --bits="$bits") || err "--bits $bits status"
  [[ $p =~ ^[1-9a-f][0-9a-f]*$ ]] || { err "--bits $bits printed '$p'"; continue; }
  [ "$(bitlen "$p")" = "$bits" ] || err "--bits $bits gave $(bitlen "$p") bits: $p"
  openssl prime -hex "$p" | grep -q 'is prime' || err "--bits $bits gave a composite: $p"
done
[ "$("$tool" prime --bits 128)" != "$("$tool" prime --bits 128)" ] || err "unseeded draws repeat"

for args in "" "--bits" "--bits 1" "--bits 0" "--bits 8193" "--bits 12x" "--bits -5" "--bits 64 --seed" \
            "--bits 64 --seed abc" "--bits 64 --seed zz" "--bits 64 extra" "--bogus"; do
  eval "\"\$tool\" prime $args" >out 2>errs
  [ $? = 2 ] && [ ! -s out ] && [ "$(head -n 1 errs | grep -c '^norvane: ')" = 1 ] || err "'prime $args' is not a usage error"
done
exit $fail
