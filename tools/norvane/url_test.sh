#!/usr/bin/env bash
# norvane url against Python's urllib.parse.quote on random text, decoding back, and its errors.
command -v python3 >/dev/null || { echo "python3 not found: skipped"; exit 77; }
source "$(dirname "$0")/test_setup.sh"
export LC_ALL=C.UTF-8

# Random lines of code points from every UTF-8 length (no surrogates, no line feed), and what
# quote() makes of them with the characters we leave alone as its safe set. quote() never escapes
# '~'; we do.
python3 - "$out" <<'EOF'
import random, sys, urllib.parse
random.seed(15)
ranges = [(0, 0x7F), (0x80, 0x7FF), (0x800, 0xD7FF), (0xE000, 0xFFFF), (0x10000, 0x10FFFF)]
lines = [''.join(chr(random.randint(*random.choice(ranges))) for _ in range(random.randrange(40))).replace('\n', ' ')
         for _ in range(2000)]
def write(name, texts):
    with open(sys.argv[1] + '/' + name, 'w', encoding='utf-8', newline='') as f:
        f.write(''.join(t + '\n' for t in texts))
write('text', lines)
write('quoted', [urllib.parse.quote(t, safe="!$&'()*+,/:;=?@").replace('~', '%7E') for t in lines])
# The locale forms lose U+0000 (the C library's conversions stop there).
write('text0', [t.replace('\0', '') for t in lines])
write('quoted0', [urllib.parse.quote(t.replace('\0', ''), safe="!$&'()*+,/:;=?@").replace('~', '%7E') for t in lines])
EOF

"$tool" url encode-uri <"$out/text" >"$out/ours"; check "encode-uri" 0 $?
same "encode-uri against quote()" "$out/ours" "$out/quoted"
"$tool" url decode-uri <"$out/ours" >"$out/back"; check "decode-uri" 0 $?
same "decode-uri of encode-uri" "$out/back" "$out/text"
sed 's/%[0-9A-F][0-9A-F]/\L&/g' "$out/ours" | "$tool" url decode-uri >"$out/back"
same "decode-uri of lower-case escapes" "$out/back" "$out/text"
"$tool" url encode <"$out/text0" >"$out/ours"; check "encode" 0 $?
same "encode in C.UTF-8 against quote()" "$out/ours" "$out/quoted0"
"$tool" url decode <"$out/ours" >"$out/back"; check "decode" 0 $?
same "decode of encode" "$out/back" "$out/text0"

# Texts as arguments ("--" before one that starts with '-'), '%' without two hex digits.
[ "$("$tool" url decode-uri 'a%20b' '%4' -- '-x%' | tr '\n' ' ')" = "a b %4 -x% " ] || { echo "FAIL: arguments"; fail=1; }

# Errors: text the locale cannot hold is one line of error and status 1; usage errors status 2.
LC_ALL=C "$tool" url encode 'ok' 'é' >"$out/o" 2>"$out/e"; check "non-ASCII in the C locale" 1 $?
[ "$(cat "$out/o")" = "ok" ] || { echo "FAIL: the other texts are still done"; fail=1; }
grep -q '^norvane: url: ' "$out/e" || { echo "FAIL: error line"; fail=1; }
for args in "" "bogus x" "encode -x"; do
  # shellcheck disable=SC2086
  "$tool" url $args </dev/null >"$out/o" 2>"$out/e"; check "url $args" 2 $?
  [ "$(sed -n 2p "$out/e")" = "Try 'norvane help url'." ] || { echo "FAIL: url $args: $(cat "$out/e")"; fail=1; }
done
"$tool" help url | grep -q "encode-uri" || { echo "FAIL: help url"; fail=1; }
exit $fail
