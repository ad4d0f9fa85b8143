#!/bin/sh
# test.sh [PRESET] [ctest arguments]: installs what is missing, builds a preset and runs its tests.
# Presets: dev (the default: assertions, AddressSanitizer and UBSan), tsan (the tests about threads under
# ThreadSanitizer), debug and release (no sanitizer).
#   ./test.sh                     all tests
#   ./test.sh debug -R Mailhost   the tests with that in their names, without sanitizers
set -eu
cd "$(dirname "$0")"

preset=dev
case ${1-} in
    dev | debug | tsan | release) preset=$1; shift ;;
    -* | "") ;;
    *) echo "usage: ./test.sh [dev|debug|tsan|release] [ctest arguments]" >&2; exit 2 ;;
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
