#!/usr/bin/env bash
# Builds the libFuzzer targets with clang under AddressSanitizer and
# UndefinedBehaviorSanitizer into build/fuzz and runs each for SECONDS
# (default 60), in two rounds (half of the targets at a time, so the whole run
# takes twice SECONDS). The corpus grows in build/fuzz/corpus/<target>
# from the seeds in fuzz/seeds/<target>; a crash leaves its input in
# build/fuzz/artifacts/<target> and makes the script fail.
# Usage: scripts/fuzz.sh [SECONDS] [TARGET…]   (targets: gltf stl obj options plan step)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(gltf stl obj step options plan)
# One-time allocations of the third-party readers are not leaks of ours.
export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"
build="$PWD/build/fuzz"  # absolute: a target may change its working folder
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
flags="-O1 -g -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=all"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ "${launcher[@]}" \
  -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
  -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined" \
  -DVELMORA_BUILD_FUZZ=ON -DVELMORA_BUILD_TESTS=OFF -DVELMORA_BUILD_BENCH=OFF -DVELMORA_BUILD_EXAMPLES=OFF \
  -DVELMORA_WARNINGS_AS_ERRORS=OFF >/dev/null
cmake --build "$build" -j 2 --target "${targets[@]/#/fuzz_}"

run_target() {
  local t=$1
  mkdir -p "$build/corpus/$t" "$build/artifacts/$t"
  cp -n fuzz/seeds/"$t"/* "$build/corpus/$t/" 2>/dev/null || true
  local status=0
  "$build/fuzz/fuzz_$t" "$build/corpus/$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$build/artifacts/$t/" -print_final_stats=1 >"$build/fuzz_$t.log" 2>&1 || status=$?
  echo "fuzz_$t: $(grep -m1 -o 'stat::number_of_executed_units: *[0-9]*' "$build/fuzz_$t.log" | grep -o '[0-9]*$') runs, exit $status"
  return $status
}

failed=0
together=$(((${#targets[@]} + 1) / 2))
for ((k = 0; k < ${#targets[@]}; k += together)); do
  pids=()
  for t in "${targets[@]:k:together}"; do
    run_target "$t" &
    pids+=($!)
  done
  for p in "${pids[@]}"; do
    wait "$p" || failed=1
  done
done
[ $failed -eq 0 ] || { echo "fuzz: a target failed; see $build/fuzz_*.log and $build/artifacts"; exit 1; }
