#!/usr/bin/env bash
# norvane iconv against the C library's iconv(1): the same bytes out, the same exit status and the
# same position of the first byte it cannot convert, on valid text of every page, on invalid and
# cut-off input, with and without -c, and on inputs large enough to be read in several pieces.
source "$(dirname "$0")/test_setup.sh"
# position <stderr file>: the byte offset a message names ("at byte N", "at position N").
position() { grep -o 'at \(byte\|position\) [0-9]*' "$1" | grep -o '[0-9]*$'; }

# Text each page can hold entirely (plus ASCII), as UTF-8.
printf 'plain ASCII, then: %s\n' 'Größe, café, œuvre €5' >1252
printf 'Zażółć gęślą jaźń\n' >1250
printf 'Съешь же ещё этих булок\n' >1251
printf 'Ξεσκεπάζω την ψυχοφθόρα\n' >1253
printf 'Pijamalı hasta yağız şoföre\n' >1254
printf 'עברית שלום\n' >1255
printf 'العربية مرحبا\n' >1256
printf 'Ąžuolas ėjo į šilą\n' >1257
printf 'Đâu ơi ư ăn\n' >1258
printf 'ภาษาไทย สวัสดี\n' >874
printf 'いろはにほへと 漢字 ｶﾀｶﾅ ①\n' >932
printf '中文简体 汉字 €\n' >936
printf '한국어 조선글 漢字\n' >949
printf '中文繁體 漢字 €\n' >950
for page in 1252 1250 1251 1253 1254 1256 1257 874 932 936 949 950; do
  "$tool" iconv -f utf-8 -t "cp$page" $page >ours 2>err; check "utf-8 to cp$page" 0 $?
  iconv -f UTF-8 -t "CP$page" $page >theirs
  same "utf-8 to cp$page" ours theirs
  "$tool" iconv -f "$page" -t UTF-8 <theirs >back; check "cp$page to utf-8" 0 $?
  same "cp$page to utf-8" back $page
done
# 1255 and 1258 through a round trip (the C library composes their combining marks, we do not).
for page in 1255 1258; do
  "$tool" iconv -f utf-8 -t "windows-$page" $page | "$tool" iconv -f "windows-$page" -t utf-8 >back
  same "windows-$page round trip" back $page
done

# Invalid, cut-off and unwritable input, as hex; each run with and without -c against iconv(1).
# Columns: from, to, input, and "same" where iconv -c skips a different number of bytes of an
# undefined double-byte code (its tables differ from Windows' there) so only the run without -c
# is compared.
cases=(
  "utf-8 cp1252 61c0aec0afc0ae62"      # overlong forms
  "utf-8 utf-16le 61eda08062"          # a surrogate
  "utf-8 utf-16le 61f490808062"        # above U+10FFFF
  "utf-8 utf-16le 61fe62ff63"          # FE and FF
  "utf-8 utf-16le 618062"              # a stray continuation byte
  "utf-8 utf-16le 61e282"              # cut off at the end
  "utf-8 utf-16le 61e28241"            # cut off in the middle
  "utf-8 utf-16le 61c3c3a9"            # a lead byte replaced by another
  "utf-8 utf-16le 61f888808080"        # five bytes
  "utf-8 utf-16le 61c1bf62"            # C1
  "utf-8 utf-16le 61f48fbfbf62"        # U+10FFFF itself is fine
  "utf-8 cp1252 61f48fbfbf62"          # but not in a code page
  "utf-8 cp1252 61e4b88062"            # a character cp1252 lacks
  "utf-8 cp932 61e282ac62"             # the euro, which cp932 lacks
  "utf-8 ascii 636166c3a9"             # ASCII takes 0x00-0x7F only
  "ascii utf-8 636166e9"
  "cp1252 utf-8 61816281"              # bytes cp1252 leaves undefined
  "cp1252 utf-8 618d628f639064"
  "cp932 utf-8 6182"                   # a lead byte at the end
  "cp932 utf-8 61824162"               # a lead byte and a trail byte that make nothing
  "cp932 utf-8 6182206162"             # a lead byte before a byte that cannot be a trail
  "cp932 utf-8 61854062 same"          # an undefined pair
  "cp949 utf-8 61c9a162 same"
  "cp936 utf-8 6180d2bb62"
  "utf-16le utf-8 610000dc6200"        # a lone low surrogate
  "utf-16le utf-8 610000d86200"        # a high surrogate before a non-surrogate
  "utf-16le utf-8 610000d8"            # a high surrogate at the end
  "utf-16le utf-8 610062"              # an odd byte at the end
  "utf-16be utf-8 0061d83dde0000"      # a pair, then a cut-off unit
  "utf-16le utf-8 fffe6100"            # no mark is read: U+FEFF stays
  "utf-16 utf-8 fffe61006200"          # a little-endian mark
  "utf-16 utf-8 feff00610062"          # a big-endian mark
  "utf-16 utf-8 61006200"              # no mark: little-endian
  "utf-16 utf-8 ff"
  "utf-8 utf-16 6162"                  # a mark is written
  "utf-8 utf-16 "
  "utf-8 utf-16be efbbbf61"
)
for c in "${cases[@]}"; do
  read -r from to input only <<<"$c"
  printf "$(sed 's/../\\x&/g' <<<"$input")" >in
  for flag in "" $([ -z "$only" ] && echo -c); do
    what="$from to $to of $input${flag:+ with $flag}"
    # shellcheck disable=SC2086
    "$tool" iconv $flag -f $from -t $to in >ours 2>ours.err; s1=$?
    # shellcheck disable=SC2086
    iconv $flag -f $from -t $to in >theirs 2>theirs.err; s2=$?
    [ $s1 = $s2 ] || { echo "FAIL: $what: status $s1, iconv $s2"; fail=1; }
    same "$what" ours theirs
    # iconv(1) names no position for a character cut off by the end.
    grep -q 'incomplete' theirs.err && ! grep -q 'cut off by the end' ours.err && { echo "FAIL: $what: $(cat ours.err)"; fail=1; }
    grep -q 'incomplete' theirs.err || [ "$(position ours.err)" = "$(position theirs.err)" ] ||
      { echo "FAIL: $what: $(cat ours.err)"; fail=1; }
    if [ $s1 != 0 ]; then
      [ "$(wc -l <ours.err)" = 1 ] && grep -q '^norvane: cannot convert: ' ours.err ||
        { echo "FAIL: $what: $(cat ours.err)"; fail=1; }
    fi
  done
done
printf 'a\xc0\xae\xc0\xae\xc0\xaf' | "$tool" iconv -f utf-8 -t cp1252 >ours 2>err; check "overlong" 1 $?
[ "$(cat ours)" = a ] && [ "$(cat err)" = "norvane: cannot convert: invalid input at byte 1" ] ||
  { echo "FAIL: overlong: $(cat ours) $(cat err)"; fail=1; }

# Large inputs: several pieces, read from a file and from a pipe (whose reads cut sequences at
# other places), with an invalid byte far in; several files, each with its own mark.
text="$(cat 932)$(printf 'plain ASCII, then more of it\n')"
for i in $(seq 4000); do printf '%s\n' "$text"; done >big
printf '\xff' >>big
cat 950 >>big
for to in cp932 utf-16; do
  "$tool" iconv -c -f utf-8 -t $to big >ours; s1=$?
  iconv -c -f utf-8 -t $to big >theirs 2>/dev/null; s2=$?
  [ $s1 = $s2 ] || { echo "FAIL: big to $to: status $s1, iconv $s2"; fail=1; }
  same "big to $to" ours theirs
  cat big | "$tool" iconv -f utf-8 -t $to >ours 2>ours.err
  iconv -f utf-8 -t $to big >theirs 2>theirs.err
  same "big from a pipe to $to" ours theirs
  [ "$(position ours.err)" = "$(position theirs.err)" ] || { echo "FAIL: big: $(cat ours.err)"; fail=1; }
  "$tool" iconv -f $to -t utf-8 theirs | cmp -s - <(head -c $(($(wc -c <big) - 1 - $(wc -c <950))) big) ||
    { echo "FAIL: big from $to"; fail=1; }
done
"$tool" iconv -f utf-8 -t utf-16 932 1252 >ours; iconv -f utf-8 -t utf-16 932 1252 >theirs
same "two files to utf-16" ours theirs

# Options: long forms, attached values, -o, and a list whose every name is accepted.
"$tool" iconv --from-code=UTF-8 --to-code=cp932 932 >ours; iconv -f UTF-8 -t CP932 932 >theirs
same "--from-code= --to-code=" ours theirs
"$tool" iconv -fUTF-8 -tcp932 -o out.txt 932; check "-o" 0 $?
same "-o" out.txt theirs
cp 1252 same.txt
"$tool" iconv -f utf-8 -t utf-8 -o same.txt same.txt 2>err; check "input is output" 1 $?
same "input is output, left alone" same.txt 1252
"$tool" iconv -l >list; check "-l" 0 $?
while IFS= read -r line; do
  for name in $(sed 's/^[^:]*: //; s/,//g' <<<"$line"); do
    "$tool" iconv -f "$name" -t "$name" </dev/null >/dev/null 2>&1 || { echo "FAIL: -l lists $name"; fail=1; }
  done
done < <(tail -n +2 list)
grep -q '^932: .*shift_jis' list || { echo "FAIL: -l has no shift_jis under 932"; fail=1; }

# Errors: one line; status 2 for encodings and usage (with the hint to the help), 1 for files.
for args in "-f nonsense -t utf-8" "-f utf-8 -t koi8-r" "-f utf-8 -t 65535"; do
  # shellcheck disable=SC2086
  "$tool" iconv $args </dev/null >ours 2>err; check "iconv $args" 2 $?
  [ -s ours ] && { echo "FAIL: iconv $args wrote to stdout"; fail=1; }
  [ "$(wc -l <err)" = 1 ] && grep -q '^norvane: iconv: ' err || { echo "FAIL: iconv $args: $(cat err)"; fail=1; }
done
"$tool" iconv -f utf-8 </dev/null >ours 2>err; check "no -t" 2 $?
[ "$(sed -n 2p err)" = "Try 'norvane help iconv'." ] || { echo "FAIL: no -t: $(cat err)"; fail=1; }
"$tool" iconv -f utf-8 -t gbk missing >ours 2>err; check "missing file" 1 $?
[ "$(cat err)" = "norvane: iconv: missing: No such file or directory" ] || { echo "FAIL: $(cat err)"; fail=1; }

# Memory does not grow with the input.
if [ -x /usr/bin/time ]; then
  head -c $((128 << 20)) /dev/zero | /usr/bin/time -f %M -o rss "$tool" iconv -f utf-8 -t utf-16 >/dev/null
  [ "$(cat rss)" -lt 65536 ] || { echo "FAIL: iconv of 128 MiB used $(cat rss) KiB"; fail=1; }
fi
exit $fail
