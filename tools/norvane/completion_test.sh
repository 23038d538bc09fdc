#!/usr/bin/env bash
# The bash completion (norvane.bash-completion, $2) against the tool ($1): commands, options and
# option values as read from the tool's help, file names where a file is wanted.
completion=$(realpath "$2")
source "$(dirname "$0")/test_setup.sh"
# shellcheck source=norvane.bash-completion
source "$completion"

complete_words() {  # complete_words <word>...: completes the last word; the result in $got
  COMP_WORDS=("$tool" "$@")
  COMP_CWORD=$#
  _norvane
  got="${COMPREPLY[*]}"
}
expect() {  # expect <result> <word>...
  local want=$1
  shift
  complete_words "$@"
  [ "$got" = "$want" ] || { echo "FAIL: completing '$*': '$got', expected '$want'"; fail=1; }
}

# Every command of the help, in its order, and nothing else.
commands=$("$tool" help | sed -n 's/^  \([a-z0-9-]*\) .*/\1/p' | tr '\n' ' ')
expect "${commands}--help --version" ""
expect "sha1sum sha256sum sha384sum sha512sum" sha
expect "random" help ra
expect "" help random ""

# Options, from the usage lines; values from the known sets.
expect "--status --strict" sha256sum --st
expect "--hex --seed" random --
expect "--decrypt" aes-cbc --dec
expect "shift_jis shift-jis" iconv -f shift
expect "cp932 cp936" iconv --to-code = cp93
expect "windows-1252" iconv -t windows-1252
expect "decode decode-uri" url dec
expect "encrypt export" rsa e
expect "export" dsa e
expect "--pubout" rsa export --pu

# File names where a FILE or OUTPUT is wanted, nothing for other values.
mkdir sub && touch key.hex sub/data.bin
expect "key.hex" aes-cbc --key-file ke
expect "sub/data.bin" iconv -f utf-8 -t utf-16 sub/
expect "key.hex" iconv -o k
expect "" aes-cbc -K ""
expect "" random -n ""
expect "key.hex" rsa sign --key k
expect "key.hex" dsa keygen --out k
exit $fail
