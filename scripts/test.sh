#!/bin/sh
# Sets up, builds and runs the test lanes: test.sh [LANE...]; without a name, every lane.
#   lint      formatting, shell scripts
#   release   unit and cli tests, g++, as installed
#   clang     the same sources with clang, unit and cli tests
#   asan      unit and cli tests under the address and undefined-behaviour sanitizers
#   tsan      unit and cli tests under the thread sanitizer
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"

# Each lane states its own failures: "set -e" does not hold inside a condition.
lint() {
  shellcheck scripts/*.sh .ci/run &&
    git ls-files '*.cpp' '*.h' | xargs -r clang-format --dry-run -Werror
}

# build_and_test PRESET: configures, builds and runs everything of one preset.
build_and_test() {
  { cmake --preset "$1" && cmake --build --preset "$1"; } >build/"$1".log 2>&1 ||
    { cat build/"$1".log; return 1; }
  ctest --preset "$1" -j "$(nproc)"
}

run_lane() {
  case $1 in
    lint) lint ;;
    release | clang | asan | tsan) build_and_test "$1" ;;
    *) echo "test.sh: no lane '$1'" >&2; return 2 ;;
  esac
}

"$top/scripts/setup.sh" test
mkdir -p build
[ $# -gt 0 ] || set -- lint release clang asan tsan

failed=
for lane in "$@"; do
  echo "== lane $lane"
  started=$(date +%s)
  if run_lane "$lane"; then verdict=passed; else verdict=FAILED; failed="$failed $lane"; fi
  echo "== lane $lane $verdict ($(($(date +%s) - started)) s)"
done
echo "== not run here: arm (32-bit ARM binaries), machine (emulated ARM machine): they do not exist yet"
[ -z "$failed" ] || { echo "== failed:$failed"; exit 1; }
