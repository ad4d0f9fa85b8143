#!/usr/bin/env bash
# Fuzzes: fuzz/run.sh [SECONDS [TARGET...]], 60 seconds and every target by default, two at a time.
# New inputs go to build/fuzz/found/TARGET; a crash leaves its input there as crash-*, and the run fails.
# A crash worth keeping moves to fuzz/corpus/TARGET, where every test run replays it.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true

[ -n "${LORVALE_FUZZ_BUILT:-}" ] || { cmake --preset fuzz >/dev/null; cmake --build --preset fuzz; }

if [ $# -eq 0 ]; then
    mapfile -t targets < <(find build/fuzz/fuzz -type f -name 'fuzz_*' -perm -u+x -printf '%f\n' | sed 's/^fuzz_//' | sort)
else
    targets=("$@")
fi

fuzz_one() {
    local target=$1 found=build/fuzz/found/$1 program words
    mkdir -p "$found"
    program=$(find build/fuzz/fuzz -type f -name "fuzz_$target" -perm -u+x)
    words=fuzz/words/$target.dict
    "$program" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$found/" $([ -f "$words" ] && echo "-dict=$words") \
        "$found" "fuzz/corpus/$target" >"$found.log" 2>&1 ||
        { echo "$target: FAILED, see $found.log"; return 1; }
    echo "$target: clean, $(awk '/stat::number_of_executed_units/ {print $2}' "$found.log") runs in $seconds s"
}
export -f fuzz_one
export seconds
printf '%s\n' "${targets[@]}" | xargs -P 2 -I{} bash -c 'fuzz_one {}'
