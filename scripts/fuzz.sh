#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer + UndefinedBehaviorSanitizer)
# and runs them. The targets are the files fuzz/fuzz_<name>.cpp; each starts from its
# checked-in seed corpus fuzz/corpus/<name> and from the corpus earlier runs grew in
# build/fuzz/corpus/<name> (new inputs never go into the repository).
#
# Short runs (CI): each target for SECONDS (default 40), or with --total SECONDS shared
# evenly between the targets (CI: 200). The first crash, leak or sanitizer report fails.
#
# Campaign: --campaign HOURS fuzzes each target for HOURS (0.17 is ten minutes), one
# target per core at a time (JOBS, default every core), going on past crashes, then merges its corpus into
# a minimal one. It ends with a summary (executions, executions a second, coverage
# before and after, crashes with their reproducers), also kept in
# build/fuzz/campaign/summary.txt, and fails if anything crashed. In the background:
#   nohup scripts/fuzz.sh --campaign 1 > build/fuzz-campaign.log 2>&1 &
# A reproducer runs alone as: build/fuzz/fuzz/fuzz_<name> <reproducer>
#
# Usage: scripts/fuzz.sh [--total] [SECONDS [TARGET ...]]
#        scripts/fuzz.sh --campaign HOURS [TARGET ...]
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(clang-14 libclang-rt-14-dev cmake ninja-build libsimde-dev)
source scripts/ensure_packages.sh
ensure_packages "${packages[@]}"

mode=short
case "${1:-}" in
  --total) mode=total && shift ;;
  --campaign) mode=campaign && shift ;;
esac
budget=${1:-40}
shift || true
targets=("$@")
if ((${#targets[@]} == 0)); then
  for f in fuzz/fuzz_*.cpp; do
    t=${f#fuzz/fuzz_}
    targets+=("${t%.cpp}")
  done
fi
case "$mode" in
  short) seconds=$budget ;;
  total) seconds=$((budget / ${#targets[@]})) && ((seconds > 0)) || seconds=1 ;;
  campaign) seconds=$(awk -v h="$budget" 'BEGIN { printf "%d", h * 3600 }') ;;
esac

cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DVIDEOHDR_SANITIZE=ON -DVIDEOHDR_FUZZ=ON -DVIDEOHDR_BUILD_TESTS=OFF \
  -DVIDEOHDR_BUILD_TOOLS=OFF -DVIDEOHDR_BUILD_JAVA=OFF -DVIDEOHDR_BUILD_GST=OFF >/dev/null
cmake --build build/fuzz -j "$(nproc)"

export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
limits=(-rss_limit_mb=4096 -timeout=60)

# The corpus directories of a target: the grown one first, where new inputs go,
# then its seeds (a new target may have none yet).
corpora() {
  mkdir -p "build/fuzz/corpus/$1"
  echo "build/fuzz/corpus/$1"
  [ ! -d "fuzz/corpus/$1" ] || echo "fuzz/corpus/$1"
}

run_short() {
  local t=$1 log="build/fuzz/fuzz_$1.log"
  echo "=== fuzz_${t}: ${seconds} s ==="
  # shellcheck disable=SC2046
  if ! "build/fuzz/fuzz/fuzz_${t}" -max_total_time="$seconds" "${limits[@]}" -print_final_stats=1 \
      -artifact_prefix="build/fuzz/${t}-" $(corpora "$t") >"$log" 2>&1; then
    tail -n 60 "$log"
    echo "fuzz_${t} failed (log: $log)" >&2
    exit 1
  fi
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb" "$log" || true
}

# Edges and features the target's corpus covers, as "edges/features".
coverage() {
  # shellcheck disable=SC2046
  { "build/fuzz/fuzz/fuzz_$1" -runs=0 "${limits[@]}" $(corpora "$1") 2>&1 || true; } |
    awk '/INITED/ { for (i = 1; i < NF; ++i) { if ($i == "cov:") c = $(i + 1); if ($i == "ft:") f = $(i + 1) } }
         END { print c "/" f }'
}

# Each distinct failure among a target's reproducers (its first report line, run
# alone): how many reproducers show it, and the smallest of them.
distinct_failures() {
  local t=$1 f report
  while read -r f; do
    report=$("build/fuzz/fuzz/fuzz_$t" "${limits[@]}" "$f" 2>&1 |
      grep -m 1 -oE 'fuzz check failed: .*|SUMMARY: .*' | sed -E 's/0x[0-9a-f]+//g' || true)
    printf '%s\t%s\t%s\n' "${report:-no report when run alone}" "$(stat -c %s "$f")" "$f"
  done | sort -t "$(printf '\t')" -k1,1 -k2,2n |
    awk -F '\t' -v t="$t" '{ n[$1]++; if (!($1 in first)) first[$1] = $3 }
      END { for (r in n) printf "%s: %s (%d reproducers; smallest: %s)\n", t, r, n[r], first[r] }'
}

# One target for `seconds`, in a child process that is restarted after a crash
# (-fork=1 -ignore_crashes=1), then its corpus merged into a minimal one.
run_campaign() {
  local t=$1 out="build/fuzz/campaign/$1" work="build/fuzz/corpus/$1"
  echo "=== fuzz_${t}: ${seconds} s, from $(date '+%H:%M') ==="
  local before after start elapsed executions reproducers
  before=$(coverage "$t")
  start=$(date +%s)
  # shellcheck disable=SC2046
  "build/fuzz/fuzz/fuzz_${t}" -fork=1 -ignore_crashes=1 -ignore_timeouts=1 -ignore_ooms=1 \
    -max_total_time="$seconds" "${limits[@]}" -artifact_prefix="$out/" $(corpora "$t") \
    >"$out/fuzz.log" 2>&1 || true
  elapsed=$(($(date +%s) - start))
  rm -rf "$work.merged" && mkdir "$work.merged"
  # shellcheck disable=SC2046
  if "build/fuzz/fuzz/fuzz_${t}" -merge=1 "${limits[@]}" "$work.merged" $(corpora "$t") \
      >"$out/merge.log" 2>&1; then
    rm -rf "$work" && mv "$work.merged" "$work"
  else
    rm -rf "$work.merged" && echo "merge failed (log: $out/merge.log); the corpus is kept whole"
  fi
  after=$(coverage "$t")
  executions=$(grep -oE '^#[0-9]+:' "$out/fuzz.log" | tail -n 1 | tr -d '#:' || true)
  executions=${executions:-0}
  reproducers=$(find "$out" -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' -o -name 'oom-*' | sort)
  local row
  row=$(printf '%-14s %12s %8s %18s %18s %8s' "$t" "$executions" "$((executions / (elapsed > 0 ? elapsed : 1)))" \
    "$before" "$after" "$(printf '%s' "$reproducers" | grep -c . || true)")
  echo "$row" >>build/fuzz/campaign/table.txt
  if [ -n "$reproducers" ]; then
    printf '%s\n' "$reproducers" >>build/fuzz/campaign/reproducers.txt
    printf '%s\n' "$reproducers" | distinct_failures "$t" >>build/fuzz/campaign/failures.txt
  fi
  echo "$row"
}

if [ "$mode" != campaign ]; then
  for t in "${targets[@]}"; do run_short "$t"; done
  echo "fuzzing passed: ${targets[*]}"
  exit 0
fi

rm -rf build/fuzz/campaign
for t in "${targets[@]}"; do mkdir -p "build/fuzz/campaign/$t"; done
touch build/fuzz/campaign/reproducers.txt build/fuzz/campaign/failures.txt
jobs=${JOBS:-$(nproc)}
hours=$(awk -v s="$((seconds * ${#targets[@]}))" 'BEGIN { printf "%.1f", s / 3600 }')
echo "campaign: ${#targets[@]} targets x ${seconds} s = ${hours} core-hours, ${jobs} at a time (logs: build/fuzz/campaign/)"
printf '%-14s %12s %8s %18s %18s %8s\n' target executions exec/s "cov before" "cov after" crashes \
  >build/fuzz/campaign/table.txt
# Each target is a single-threaded process with its own corpus and log; the
# shared table and failure lists only get whole lines appended.
for t in "${targets[@]}"; do
  while (($(jobs -pr | wc -l) >= jobs)); do wait -n || true; done
  run_campaign "$t" &
done
wait
{
  echo "=== campaign summary: ${seconds} s per target, one core each; coverage as edges/features ==="
  cat build/fuzz/campaign/table.txt
  if [ -s build/fuzz/campaign/failures.txt ]; then
    echo "failures (all reproducers in build/fuzz/campaign/reproducers.txt; run one with"
    echo "build/fuzz/fuzz/fuzz_<target> <file>):"
    sed 's/^/  /' build/fuzz/campaign/failures.txt
  else
    echo "no crash, leak, timeout or sanitizer report"
  fi
} | tee build/fuzz/campaign/summary.txt
[ ! -s build/fuzz/campaign/reproducers.txt ]
