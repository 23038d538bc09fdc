#!/usr/bin/env bash
# Fuzzes one libFuzzer target for a fixed time, starting from its seed corpus and its past
# findings, and prints one summary line (executions, corpus, coverage). A finding fails the run;
# its input is kept under <work>/findings/<name>/ to be copied into regressions/<name>/.
# Usage: run_target.sh <target> <seconds> <seed dir> <findings dir> <work dir>
set -uo pipefail
target=$1 seconds=$2 seeds=$3 found=$4 work=$5
name=$(basename "$target")
corpus=$work/corpus/$name
artifacts=$work/findings/$name
log=$work/$name.log
mkdir -p "$corpus" "$artifacts"
dirs=("$corpus" "$seeds")
[ -d "$found" ] && dirs+=("$found")
# New inputs go to the first folder, under the build tree; the committed folders are only read.
"$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2560 -max_len=4096 -print_final_stats=1 \
  -artifact_prefix="$artifacts/" "${dirs[@]}" >"$log" 2>&1
rc=$?
runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' | tail -1)
cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1)
units=$(find "$corpus" -type f | wc -l)
echo "fuzz $name: ${runs:-?} executions in ${seconds} s, ${cov:-cov: ?}, corpus $units inputs"
if [ $rc -ne 0 ]; then
  tail -n 60 "$log"
  echo "fuzz $name: failed (exit $rc); inputs in $artifacts"
  exit 1
fi
