#!/usr/bin/env python3
"""Generates the known answers of Norvane's prime-draw tests.

    python3 tools/gen_prime_vectors.py [--root .]

writes norvane/crypto/prime_draw_vectors.inc: for a few seeds and ranges, the prime that the
constrained draw KDPKI_HugeInt::Random(generator, min, max, prime, equiv, mod) gives from a
KDPKI_RandomGenerator seeded with the seed's bytes. The file is committed; the build does not run
Python.

Everything is computed here from the definitions, independently of the library's code: the
generator's bytes (SHA-1 of the seed over the 848-word twister of tools/gen_random_vectors.py),
the range draw (ceil(bits / 8) bytes, the first cropped to bits mod 8 bits, so cleared when the
bit count is a multiple of 8; redrawn while above the range), and the prime draw: up to 15 times
a draw x with its lowest bit set and the first prime of the class from x up to
min(max, x + mod * bit length of max); then the first prime of the class from min. Seeds are
searched for whose fifteenth try finds a prime, and whose sixteenth would. Primality is
decided by trial division and Miller-Rabin to the first 40 prime bases.
"""

import argparse
import hashlib
import math
import os
import struct
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from gen_random_vectors import MASK, self_check, twister  # noqa: E402


def generator(seed):
    """Yields the bytes of a generator seeded with seed."""
    digest = hashlib.sha1(seed).digest()
    outputs = twister(sum(struct.unpack("<5I", digest)) & MASK, 848, 456)
    position = 0
    while True:
        yield (next(outputs) & 0xFF) ^ digest[position]
        position = (position + 1) % 20


def draw_bits(gen, bits):
    if bits == 0:
        return 0
    data = bytearray(next(gen) for _ in range((bits + 7) // 8))
    data[0] &= (1 << (bits % 8)) - 1
    return int.from_bytes(data, "big")


def draw_range(gen, low, high):
    width = high - low
    while True:
        d = draw_bits(gen, width.bit_length())
        if d <= width:
            return low + d


SMALL = [p for p in range(2, 1000) if all(p % d for d in range(2, int(p ** 0.5) + 1))]


def is_prime(n):
    if n < 2:
        return False
    for p in SMALL:
        if n % p == 0:
            return n == p
    d, s = n - 1, 0
    while d % 2 == 0:
        d, s = d // 2, s + 1
    for a in SMALL[:40]:
        x = pow(a, d, n)
        if x in (1, n - 1):
            continue
        for _ in range(s - 1):
            x = x * x % n
            if x == n - 1:
                break
        else:
            return False
    return True


def first_prime(p, high, equiv, mod):
    """The least prime q >= p, q <= high, q = equiv (mod mod), or None."""
    g = math.gcd(equiv, mod)
    if g != 1:
        return g if p <= g <= high and is_prime(g) else None
    q = p + (equiv - p) % mod
    while q <= high:
        if is_prime(q):
            return q
        q += mod
    return None


def draw_prime(seed, low, high, equiv, mod, tries=15):
    """The prime drawn, and the number of the random try that found it (0: the search from low)."""
    gen = generator(seed)
    for i in range(tries):
        x = draw_range(gen, low, high) | 1
        q = first_prime(x, min(high, x + mod * high.bit_length()), equiv, mod)
        if q is not None:
            return q, i + 1
    return first_prime(low, high, equiv, mod), 0


def gap_after(p, size):
    """The first prime q >= p followed by a gap of more than size."""
    q = first_prime(p, 1 << 64, 0, 1)
    while True:
        nxt = first_prime(q + 1, 1 << 64, 0, 1)
        if nxt - q > size:
            return q, nxt
        q = nxt


# (seed, min, max, equiv, mod): N-bit ranges (for N - 1 a multiple of 8 the draw is narrowed), a
# class, the prime range of a 1024-bit RSA key (182 * 2^504 .. 2^512 - 1), a range whose only
# prime is its lowest value (the random tries miss; the search from min finds it), and a range
# whose prime is found by the last random try.
def cases():
    bits = lambda n: (1 << (n - 1), (1 << n) - 1)  # noqa: E731
    out = []
    for seed in (b"\x01\x02", b"norvane"):
        for n in (16, 17, 64, 65, 129, 256, 512):
            out.append((seed, *bits(n), 0, 1))
        out.append((seed, *bits(200), 3, 4))
        out.append((seed, *bits(100), 1, 30))
        out.append((seed, 182 << 504, (1 << 512) - 1, 0, 1))
    gap, _ = gap_after(0xF000000000000000, 130)
    out.append((b"gap", gap, gap + 50, 0, 1))
    # Between two primes 80 or more apart near 2^20 a try finds the upper one only from its last
    # 21 values: a seed whose fifteenth try is the first to find it, and one whose sixteenth
    # would be (the search from the lowest value finds that one instead).
    low, high = gap_after(1 << 20, 80)
    for wanted in (15, 16):
        k = 0
        while draw_prime(b"tries %d" % k, low, high, 0, 1, 16) != (high, wanted):
            k += 1
        out.append((b"tries %d" % k, low, high, 0, 1))
    return out


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", default=os.path.join(os.path.dirname(__file__), ".."))
    args = parser.parse_args()
    self_check()
    lines = [
        "// Generated by tools/gen_prime_vectors.py; do not edit. Regenerate with",
        "//   python3 tools/gen_prime_vectors.py",
        "// { seed in hex, min, max, equiv, mod, the prime drawn } (numbers in hex)",
    ]
    for seed, low, high, equiv, mod in cases():
        prime, _ = draw_prime(seed, low, high, equiv, mod)
        lines.append('    {"%s", "%x", "%x", %d, %d, "%x"},' % (seed.hex(), low, high, equiv, mod, prime))
    with open(os.path.join(args.root, "norvane", "crypto", "prime_draw_vectors.inc"), "w", newline="\n") as f:
        f.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
