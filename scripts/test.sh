#!/bin/sh
# Sets up, builds and runs the test lanes: test.sh [LANE...]; without a name, every lane.
#   lint      formatting, shell scripts
#   release   unit and cli tests, g++, as installed
#   clang     the same sources with clang, unit and cli tests
#   asan      unit and cli tests under the address and undefined-behaviour sanitizers
#   tsan      unit and cli tests under the thread sanitizer
#   arm       unit and cli tests as 32-bit ARM binaries, emulated
# By name only:
#   arm-ubsan the same, and undefined behaviour ends the program
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
cannot_run=3

# Each lane states its own failures: "set -e" does not hold inside a condition.
lint() {
  shellcheck scripts/*.sh .ci/run &&
    git ls-files '*.cpp' '*.h' | xargs -r clang-format --dry-run -Werror
}

# Tests make thousands of small files. Where it may, a lane keeps them in memory, which halves its time.
with_scratch() {
  scratch=$top/build/scratch
  rm -rf "$scratch" && mkdir -p "$scratch" || return
  # shellcheck disable=SC2016  # the inner shell's words
  in_memory='mount -t tmpfs tmpfs "$TMPDIR" && exec "$@"'
  if TMPDIR=$scratch unshare --mount sh -c "$in_memory" sh true 2>/dev/null; then
    TMPDIR=$scratch unshare --mount sh -c "$in_memory" sh "$@"
  else
    TMPDIR=$scratch "$@"
  fi
}

# build_and_test PRESET: configures, builds and runs everything of one preset.
build_and_test() {
  { cmake --preset "$1" && cmake --build --preset "$1"; } >build/"$1".log 2>&1 ||
    { cat build/"$1".log; return 1; }
  with_scratch ctest --preset "$1" --no-tests=error -j "$(nproc)"
}

# What the lane takes comes from the distribution's mirror; where that fails, the reason is printed and
# the lane is one that cannot run here.
build_and_test_arm() {
  { scripts/setup.sh arm && scripts/arm-sysroot.sh; } || return "$cannot_run"
  scripts/build-arm.sh "$1" && with_scratch ctest --preset "$1" --no-tests=error -j "$(nproc)"
}

run_lane() {
  case $1 in
    lint) lint ;;
    release | clang | asan | tsan) build_and_test "$1" ;;
    arm | arm-ubsan) build_and_test_arm "$1" ;;
    *) echo "test.sh: no lane '$1'" >&2; return 2 ;;
  esac
}

"$top/scripts/setup.sh" test
mkdir -p build
# A lane that was asked for by name must run.
unable=skipped
[ $# -eq 0 ] || unable=FAILED
[ $# -gt 0 ] || set -- lint release clang asan tsan arm

failed=
skipped=
for lane in "$@"; do
  echo "== lane $lane"
  started=$(date +%s)
  status=0
  run_lane "$lane" || status=$?
  case $status in
    0) verdict=passed ;;
    "$cannot_run") verdict=$unable ;;
    *) verdict=FAILED ;;
  esac
  case $verdict in
    FAILED) failed="$failed $lane" ;;
    skipped) skipped="$skipped $lane" ;;
  esac
  echo "== lane $lane $verdict ($(($(date +%s) - started)) s)"
done
echo "== not run here: machine (emulated ARM machine): it does not exist yet"
[ -z "$skipped" ] || echo "== cannot run here, for the reasons above:$skipped"
[ -z "$failed" ] || { echo "== failed:$failed"; exit 1; }
