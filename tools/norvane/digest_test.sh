#!/usr/bin/env bash
# The digest commands against coreutils' sha*sum: for each option and line form, on a set of
# awkward names, standard output, standard error (program name aside) and the exit status must
# be theirs; a usage error is status 2 here where coreutils says 1. Inputs that are not regular
# files are read to their end.
source "$(dirname "$0")/test_setup.sh"
export LC_ALL=C.UTF-8

# compare <algo> <args>...: runs both, standard input from $input, and reports any difference.
input=/dev/null
compare() {
  local algo=$1
  shift
  "$tool" "$algo" "$@" >ours 2>ours.err <"$input"; local s1=$?
  "$algo" "$@" >theirs 2>theirs.err <"$input"; local s2=$?
  local what
  what="$algo$(printf ' %q' "$@")"
  if grep -q "^Try '$algo --help'" theirs.err; then
    [ $s1 = 2 ] || { echo "FAIL: $what: status $s1 for a usage error"; fail=1; }
    [ "$(head -n 1 ours.err)" = "norvane: $(head -n 1 theirs.err)" ] ||
      { echo "FAIL: $what: usage error '$(head -n 1 ours.err)', coreutils '$(head -n 1 theirs.err)'"; fail=1; }
    [ "$(sed -n 2p ours.err)" = "Try 'norvane help $algo'." ] || { echo "FAIL: $what: no hint to the help"; fail=1; }
    [ -s ours ] && { echo "FAIL: $what: output on a usage error"; fail=1; }
    return
  fi
  [ $s1 = $s2 ] || { echo "FAIL: $what: status $s1, coreutils $s2"; fail=1; }
  cmp -s ours theirs || { echo "FAIL: $what: output differs"; diff <(od -c ours) <(od -c theirs) | head -5; fail=1; }
  sed "s/^$algo: /norvane: /" theirs.err >theirs.norm
  cmp -s ours.err theirs.norm || { echo "FAIL: $what: messages differ"; diff ours.err theirs.norm | head -5; fail=1; }
}

# Files with names that need escaping or quoting, and a folder.
names=(plain 'a b' 'c\d' $'n\nl' $'c\rr' "q'uote" ' lead' '*star' 'é' 'x)y' 'SHA256 (z)' $'t\tab' 'both\'$'\n')
i=0
for n in "${names[@]}"; do
  head -c $((i * 997)) /dev/urandom >"$n"
  i=$((i + 1))
done
mkdir folder
printf 'abc' >-dash

for algo in sha1sum sha256sum sha384sum sha512sum; do
  compare $algo "${names[@]}"
  compare $algo --tag "${names[@]}"
done
algo=sha256sum
for opts in "-b" "-t" "-z" "--tag -z" "-b --tag" "--binary" "--text" "-bt" "--ta" "--zero"; do
  # shellcheck disable=SC2086
  compare $algo $opts "${names[@]}" missing folder
done
compare $algo plain -b 'a b'            # options after names
compare $algo -- -dash plain            # a name after --
input=plain compare $algo - plain
for bad in "--tag -t" "-c --tag" "-c -z" "-c -b" "--quiet" "--status" "--strict" "-w" "--ignore-missing" \
           "--bogus" "-x" "--check=x" "--s"; do
  # shellcheck disable=SC2086
  compare $algo $bad plain
done

# Check lists in every form coreutils reads, and broken ones.
sha256sum "${names[@]}" >list.std
sha256sum --tag "${names[@]}" >list.tag
sha256sum -b "${names[@]}" >list.bin
{
  echo '# a comment'
  echo
  head -n 2 list.std | tr 'a-f' 'A-F'
  sed -n 3p list.tag | sed 's/ (/(/; s/) = /)= /'
  printf '%s\r\n' "$(sed -n 1p list.bin)"
  echo 'not a line'
  echo "$(head -c 64 <(sha256sum plain)) *missing"
  echo "$(head -c 64 <(sha256sum plain))  a b"
  echo "\\$(head -c 64 <(sha256sum plain))  bad\\escape"
  echo "SHA1 (plain) = $(head -c 40 <(sha1sum plain))"
  echo "SHA256 (plain) = $(head -c 63 <(sha256sum plain))"
  echo "  $(sed -n 2p list.std)"
} >list.mixed
printf '%s plain\n%s  a b\n' "$(head -c 64 <(sha256sum plain))" "$(head -c 64 <(sha256sum 'a b'))" >list.reversed
printf 'nothing here\n' >list.none
printf 'x' >>plain  # now it does not match
for opts in "" "--quiet" "--status" "--strict" "-w" "--ignore-missing" "--strict -w --quiet" "--status --warn"; do
  for list in list.std list.tag list.bin list.mixed list.reversed list.none missing folder; do
    # shellcheck disable=SC2086
    compare $algo -c $opts $list
  done
done
sha512sum --tag 'a b' 'c\d' >list.512
compare sha512sum -c list.512
compare $algo --check list.tag list.std
input=list.tag compare $algo -c -
input=list.std compare $algo -c
printf '%s  -\n' "$(head -c 64 <(sha256sum plain))" >list.dash
input=list.dash compare $algo -c -
input=list.dash compare $algo -c list.dash

# Inputs that are not regular files, or whose size is not their content, read to their end.
expect=$(printf abc | sha256sum | cut -c1-64)
check_input() {  # check_input <description> <digest line>
  [ "${2:0:64}" = "$expect" ] || { echo "FAIL: $1: ${2:0:64}"; fail=1; }
}
check_input "process substitution" "$("$tool" $algo <(printf abc))"
check_input "/dev/stdin on a pipe" "$(printf abc | "$tool" $algo /dev/stdin)"
mkfifo fifo
(printf abc >fifo &)
check_input "FIFO" "$("$tool" $algo fifo)"
for f in /proc/version /proc/sys/kernel/ostype /sys/kernel/mm/transparent_hugepage/enabled; do
  [ -r "$f" ] || continue
  [ "$("$tool" $algo "$f")" = "$(sha256sum "$f")" ] || { echo "FAIL: $f"; fail=1; }
done
"$tool" $algo -c <(sha256sum 'a b') >ours; check=$?
[ $check = 0 ] && [ "$(cat ours)" = "a b: OK" ] || { echo "FAIL: check list given as <(...)"; fail=1; }
exit $fail
