#!/usr/bin/env bash
# Runs every libFuzzer program for a while: run-fuzzers.sh [SECONDS], 30 by default.
# Needs clang and its runtime (Debian: clang libclang-rt-14-dev).
set -euo pipefail

seconds=${1:-30}
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir="$source_dir/build/fuzz"

cmake -S "$source_dir" -B "$build_dir" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_CXX_FLAGS="-fsanitize=address,undefined,fuzzer-no-link -fno-sanitize-recover=undefined" \
    -DQTAGENT_BUILD_FUZZERS=ON -DQTAGENT_BUILD_DEMO=OFF -DQTAGENT_BUILD_EXAMPLES=OFF
targets=()
for corpus in "$source_dir"/fuzz/corpus/*/; do
    targets+=("$(basename "$corpus")")
done
cmake --build "$build_dir" --parallel "$(nproc)" --target "${targets[@]}"

# What Qt itself leaks is no finding.
export LSAN_OPTIONS="suppressions=$source_dir/fuzz/leaks.supp:print_suppressions=0"
failed=()
for target in "${targets[@]}"; do
    found="$build_dir/found/$target"
    mkdir -p "$found"
    echo "== $target"
    # libFuzzer writes new inputs to the first folder and only reads the second.
    "$build_dir/fuzz/$target" -max_total_time="$seconds" -max_len=8192 -print_final_stats=1 \
        -artifact_prefix="$found-" "$found" "$source_dir/fuzz/corpus/$target" || failed+=("$target")
done
if ((${#failed[@]})); then
    echo "failed, with the inputs kept in $build_dir/found: ${failed[*]}" >&2
    exit 1
fi
