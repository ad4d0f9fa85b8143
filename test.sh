#!/bin/sh
# test.sh [PRESET] [ctest arguments]: installs what is missing, builds a preset and runs its tests.
# Presets: debug (the default, which has all checks on), asan, tsan, release.
#   ./test.sh                     all tests
#   ./test.sh asan -R Mailhost    the tests with that in their names, under AddressSanitizer and UBSan
set -eu
cd "$(dirname "$0")"

preset=debug
case ${1-} in
    debug | asan | tsan | release) preset=$1; shift ;;
    -* | "") ;;
    *) echo "usage: ./test.sh [debug|asan|tsan|release] [ctest arguments]" >&2; exit 2 ;;
esac

sections="build test"
[ "$preset" != release ] || sections="build test bench"
scripts/install-packages $sections

jobs=$(nproc)
[ "$jobs" -le 2 ] || jobs=2    # a compiler takes up to 1 GB of memory
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$jobs"

# ThreadSanitizer of this compiler cannot cope with the widely spread addresses of newer kernels.
run=
if [ "$preset" = tsan ] && setarch "$(uname -m)" -R true 2>/dev/null; then
    run="setarch $(uname -m) -R"
fi
exec $run ctest --preset "$preset" -j "$jobs" "$@"
