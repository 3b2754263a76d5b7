#!/usr/bin/env bash
# Builds the fuzzers with clang and runs each for a while; fails when any run finds
# a crash, a hang, a leak or a broken check.
#   fuzz/run.sh [seconds per target, default 60] [target ...]
# VR_FUZZ_SEED=N fixes libFuzzer's random seed (default 0: a fresh seed each run), so
# a short run in CI replays the same mutations that were checked before it landed.
# Findings land in build/fuzz/findings/ (copy them to fuzz/regressions/<target>/ to
# have the regression test replay them); the corpora grow in build/fuzz/corpus/.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
shift || true
targets=("$@")
((${#targets[@]})) || targets=(media sources timeline utf8)

build=build/fuzz
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS_DEBUG=-g -O1" \
  -DVR_BUILD_FUZZERS=ON -DVR_BUILD_TESTS=OFF -DVR_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target fuzz_seeds "${targets[@]/#/fuzz_}"

declare -A seeds=([media]="$build/fuzz/seeds/media" [sources]="$build/fuzz/seeds/sources" [timeline]=fuzz/seeds/timeline [utf8]=fuzz/seeds/utf8)
declare -A maxlen=([media]=32768 [sources]=32768 [timeline]=4096 [utf8]=256)

failed=0
for target in "${targets[@]}"; do
  corpus="$build/corpus/$target"
  findings="$build/findings/$target"
  mkdir -p "$corpus" "$findings"
  echo "== fuzz_$target for ${seconds}s"
  found=0
  # Leaks are checked at exit of every run; a run over 20 s counts as a hang.
  if ! nice "$build/fuzz/fuzz_$target" "$corpus" "${seeds[$target]}" fuzz/regressions/"$target" \
      -max_total_time="$seconds" -timeout=20 -rss_limit_mb=3072 -max_len="${maxlen[$target]}" \
      -seed="${VR_FUZZ_SEED:-0}" -artifact_prefix="$findings/" -print_final_stats=1 2>"$build/fuzz_$target.log"; then
    found=1
  fi
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb" "$build/fuzz_$target.log" || true
  if compgen -G "$findings/*" >/dev/null; then
    echo "fuzz_$target found:"; ls "$findings"
    found=1
  fi
  if ((found)); then
    tail -n 40 "$build/fuzz_$target.log"
    failed=1
  fi
done
exit $failed
