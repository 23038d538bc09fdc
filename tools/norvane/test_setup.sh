# Sourced by the tool's test scripts: the tool under test from $1, a scratch folder as the current
# folder (removed at exit), and the failure helpers; a script ends with `exit $fail`.
set -u
tool=$(realpath "$1")
fail=0
out=$(mktemp -d); trap 'rm -rf "$out"' EXIT
cd "$out" || exit 1
check() {  # check <description> <expected status> <actual status>
  if [ "$2" != "$3" ]; then echo "FAIL: $1: status $3, expected $2"; fail=1; fi
}
same() {  # same <description> <file> <file>
  cmp -s "$2" "$3" || { echo "FAIL: $1 differs"; fail=1; }
}
