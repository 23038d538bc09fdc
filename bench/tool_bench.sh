#!/usr/bin/env bash
# The norvane tool against the commands it stands beside, on inputs of SIZE MiB (default 1024)
# held in the page cache: aes-cbc against `openssl enc` both ways, iconv against iconv(1) from and
# to cp1252, cp932 and UTF-16, sha256sum against coreutils. Each line gives the two times (wall
# and CPU, user + system), their ratio (above 1: norvane is faster) and both peak resident sizes.
#
#   bench/tool_bench.sh build/release/tools/norvane/norvane [SIZE]
set -eu
tool=$(realpath "$1")
size=${2:-1024}
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
cd "$work"

# Text with one word in five outside ASCII (Latin), and with mostly Japanese words; 1 MiB of
# each, repeated.
latin=(Größe café œuvre €5 naïve façade déjà “quoted” Ærø the quick brown fox jumps over lazy dog and ASCII)
japanese=(いろはにほへと ちりぬるを 漢字 日本語の文章 カタカナ ｶﾀｶﾅ ① 東京 大阪 the text of a line)
sample() {  # sample <words>...: 1 MiB of lines of twelve pseudo-random words
  local -a words=("$@")
  local n=${#words[@]} bytes=0 line i LC_ALL=C  # lengths in bytes
  RANDOM=7
  while [ $bytes -lt 1048576 ]; do
    line=""
    for i in 1 2 3 4 5 6 7 8 9 10 11 12; do line+="${words[RANDOM % n]} "; done
    printf '%s\n' "$line"
    bytes=$((bytes + ${#line} + 1))
  done >sample
}
grow() {  # grow <file>: repeats sample into file up to SIZE MiB
  for _ in $(seq "$size"); do cat sample; done >"$1"
  rm sample
}
sample "${latin[@]}"; grow latin.utf8
sample "${japanese[@]}"; grow japanese.utf8
iconv -f utf-8 -t cp1252 latin.utf8 >latin.1252
iconv -f utf-8 -t cp932 japanese.utf8 >japanese.932
iconv -f utf-8 -t utf-16 japanese.utf8 >japanese.utf16
head -c $((size << 20)) /dev/urandom >random.bin
key=603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4
iv=000102030405060708090a0b0c0d0e0f
openssl enc -aes-256-cbc -K $key -iv $iv <random.bin >random.enc

measure() {  # measure <input> <command>...: prints "wall cpu rss"
  local input=$1
  shift
  cat "$input" >/dev/null
  /usr/bin/time -f '%e %U %S %M' -o times "$@" <"$input" >/dev/null 2>>errors || true
  awk '{ printf "%s %.2f %s", $1, $2 + $3, $4 }' times
}
compare() {  # compare <name> <input> <theirs> -- <ours>
  local name=$1 input=$2
  shift 2
  local -a theirs=()
  while [ "$1" != "--" ]; do theirs+=("$1"); shift; done
  shift
  read -r tw tc tm <<<"$(measure "$input" "${theirs[@]}")"
  read -r ow oc om <<<"$(measure "$input" "$@")"
  awk -v n="$name" -v tw="$tw" -v tc="$tc" -v tm="$tm" -v ow="$ow" -v oc="$oc" -v om="$om" 'BEGIN {
    printf "%-28s peer %6.2f s (cpu %6.2f)  norvane %6.2f s (cpu %6.2f)  ratio %.2f (cpu %.2f)  rss %d / %d KiB\n",
           n, tw, tc, ow, oc, tw / ow, tc / oc, tm, om }'
}
echo "inputs: $size MiB each; peer first"
compare "aes-256-cbc encrypt" random.bin openssl enc -aes-256-cbc -K $key -iv $iv -- "$tool" aes-cbc -e --pad -K $key --iv $iv
compare "aes-256-cbc decrypt" random.enc openssl enc -d -aes-256-cbc -K $key -iv $iv -- "$tool" aes-cbc -d --pad -K $key --iv $iv
for pair in "utf-8 cp1252 latin.utf8" "cp1252 utf-8 latin.1252" "utf-8 cp932 japanese.utf8" \
            "cp932 utf-8 japanese.932" "utf-8 utf-16 japanese.utf8" "utf-16 utf-8 japanese.utf16" \
            "utf-8 utf-16 latin.utf8"; do
  read -r from to input <<<"$pair"
  compare "iconv $from to $to" "$input" iconv -f "$from" -t "$to" -- "$tool" iconv -f "$from" -t "$to"
done
compare "sha256sum" random.bin sha256sum -- "$tool" sha256sum
[ -s errors ] && { echo "messages:"; sort -u errors; }
exit 0
