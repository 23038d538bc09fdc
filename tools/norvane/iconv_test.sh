#!/usr/bin/env bash
# norvane iconv against the C library's iconv(1) on the same text, and its error conventions.
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

# Text each page can hold entirely (plus ASCII), as UTF-8.
printf 'plain ASCII, then: %s\n' 'Größe, café, œuvre €5' >"$out/1252"
printf 'Zażółć gęślą jaźń\n' >"$out/1250"
printf 'Съешь же ещё этих булок\n' >"$out/1251"
printf 'Ξεσκεπάζω την ψυχοφθόρα\n' >"$out/1253"
printf 'Pijamalı hasta yağız şoföre\n' >"$out/1254"
printf 'עברית שלום\n' >"$out/1255"
printf 'العربية مرحبا\n' >"$out/1256"
printf 'Ąžuolas ėjo į šilą\n' >"$out/1257"
printf 'Đâu ơi ư ăn\n' >"$out/1258"
printf 'ภาษาไทย สวัสดี\n' >"$out/874"
printf 'いろはにほへと 漢字 ｶﾀｶﾅ ①\n' >"$out/932"
printf '中文简体 汉字 €\n' >"$out/936"
printf '한국어 조선글 漢字\n' >"$out/949"
printf '中文繁體 漢字 €\n' >"$out/950"

for page in 1252 1250 1251 1253 1254 1256 1257 874 932 936 949 950; do
  "$tool" iconv -f utf-8 -t "cp$page" "$out/$page" >"$out/ours" 2>"$out/e"; check "utf-8 to cp$page" 0 $?
  iconv -f UTF-8 -t "CP$page" "$out/$page" >"$out/theirs"
  same "utf-8 to cp$page" "$out/ours" "$out/theirs"
  "$tool" iconv -f "$page" -t UTF-8 <"$out/theirs" >"$out/back"; check "cp$page to utf-8" 0 $?
  same "cp$page to utf-8" "$out/back" "$out/$page"
done
# 1255 and 1258 through UTF-16 (the C library composes their combining marks, we do not).
for page in 1255 1258; do
  "$tool" iconv -f utf-8 -t "windows-$page" "$out/$page" | "$tool" iconv -f "windows-$page" -t utf-8 >"$out/back"
  same "windows-$page round trip" "$out/back" "$out/$page"
done

# Names, UTF-16 with a character beyond 16 bits, and pages to pages.
printf 'a\xf0\x9f\x98\x80\xc3\xa9\n' >"$out/emoji"
for enc in UTF-16LE UTF-16BE; do
  "$tool" iconv -f UTF-8 -t "$enc" "$out/emoji" >"$out/ours"
  iconv -f UTF-8 -t "$enc" "$out/emoji" >"$out/theirs"
  same "utf-8 to $enc" "$out/ours" "$out/theirs"
  "$tool" iconv -f "$enc" -t utf8 "$out/ours" >"$out/back"
  same "$enc to utf-8" "$out/back" "$out/emoji"
done
printf '漢字 abc\n' >"$out/kanji"
"$tool" iconv -f utf-8 -t shift_jis "$out/kanji" | "$tool" iconv -f Shift_JIS -t big5 | "$tool" iconv -f BIG5 -t utf-8 \
  >"$out/back"
same "shift_jis to big5" "$out/back" "$out/kanji"

# What cannot be mapped becomes '?', both ways.
printf 'x\xe4\xb8\x80y\n' | "$tool" iconv -f utf-8 -t latin1 >"$out/o"; check "unmappable" 0 $?
[ "$(cat "$out/o")" = "x?y" ] || { echo "FAIL: unmappable character: $(cat "$out/o")"; fail=1; }
printf 'a\x80b\xc9' | "$tool" iconv -f euc-kr -t utf-8 >"$out/o"
[ "$(cat "$out/o")" = "a?b?" ] || { echo "FAIL: undefined bytes: $(cat "$out/o")"; fail=1; }

# Errors: one line, status 2 for encodings and usage, 1 for a missing file.
for args in "-f nonsense -t utf-8" "-f utf-8 -t koi8-r" "-f utf-8 -t 65535"; do
  # shellcheck disable=SC2086
  "$tool" iconv $args </dev/null >"$out/o" 2>"$out/e"; check "iconv $args" 2 $?
  [ -s "$out/o" ] && { echo "FAIL: iconv $args wrote to stdout"; fail=1; }
  [ "$(wc -l <"$out/e")" = 1 ] || { echo "FAIL: iconv $args: not one line of error"; fail=1; }
  grep -q '^norvane: iconv: ' "$out/e" || { echo "FAIL: iconv $args: error line"; fail=1; }
done
"$tool" iconv -f utf-8 </dev/null >"$out/o" 2>"$out/e"; check "no -t" 2 $?
"$tool" iconv -f utf-8 -t gbk "$out/missing" >"$out/o" 2>"$out/e"; check "missing file" 1 $?
"$tool" iconv --help >"$out/o"; check "--help" 0 $?
grep -q "default character" "$out/o" || { echo "FAIL: --help does not name the default character"; fail=1; }
"$tool" --help | grep -q '^  iconv ' || { echo "FAIL: iconv missing from the command list"; fail=1; }
exit $fail
