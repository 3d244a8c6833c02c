#!/bin/sh
# Sets up, builds and runs the test lanes: test.sh [LANE...]; without a name, every lane.
#   lint      layout and dialect of the sources
#   release   unit and cli tests, g++, as installed
#   clang     everything compiled with clang, unit tests
#   asan      unit and cli tests under the address and undefined-behaviour sanitizers
#   tsan      unit and cli tests under the thread sanitizer
#   arm       unit and cli tests as 32-bit ARM binaries, emulated
# By name only:
#   arm-ubsan the same, and undefined behaviour ends the program
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
cannot_run=3

# A lane fails when it takes longer than its budget: seconds on two otherwise idle cores, and one more
# for each object that had to be compiled since ccache did not have it. Those that run without a name
# may together take 20 minutes.
budgets() {
  cat <<'END'
lint       90
release   220
clang      60
asan      340
tsan      170
arm       320
arm-ubsan 400
END
}
unnamed="lint release clang asan tsan arm"
# BENCHRIG_BUDGET_FACTOR=3 gives a slower or busier machine three times as long.
factor=${BENCHRIG_BUDGET_FACTOR:-1}

budget_of() {
  budgets | while read -r name seconds; do [ "$name" != "$1" ] || echo $((seconds * factor)); done
}

# The objects that ccache has had compiled so far.
count_compiled() {
  ccache --print-stats 2>/dev/null | awk '$1 == "cache_miss" { count = $2 } END { print count + 0 }'
}

# Before anything is installed or built.
check_words() {
  case $factor in
    *[!0-9]*) echo "test.sh: BENCHRIG_BUDGET_FACTOR is not a whole number: $factor" >&2; exit 2 ;;
  esac
  for lane in "$@"; do
    [ -z "$(budget_of "$lane")" ] || continue
    echo "test.sh: no lane '$lane'; the lanes are: $(budgets | cut -d ' ' -f 1 | paste -s -d ' ')" >&2
    exit 2
  done
}

# Each lane states its own failures: "set -e" does not hold inside a condition.
lint() {
  scripts/lint.sh
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

# build PRESET: configures and builds everything of one preset.
build() {
  { cmake --preset "$1" && cmake --build --preset "$1"; } >build/"$1".log 2>&1 ||
    { cat build/"$1".log; return 1; }
}

# run_tests PRESET [OPTION...]: all tests of the preset, or those that ctest's options choose.
run_tests() {
  with_scratch ctest --preset "$@" --no-tests=error -j "$(nproc)"
}

# What a lane takes from the distribution's mirror, which its time does not count. Where that fails,
# the reason is printed and the lane is one that cannot run here.
fetch_for() {
  case $1 in
    arm | arm-ubsan) scripts/setup.sh arm && scripts/arm-sysroot.sh ;;
  esac
}

run_lane() {
  case $1 in
    lint) lint ;;
    clang) build "$1" && run_tests "$1" --label-regex unit ;;
    release | asan | tsan) build "$1" && run_tests "$1" ;;
    arm | arm-ubsan) scripts/build-arm.sh "$1" && run_tests "$1" ;;
  esac
}

check_words "$@"
# Objects are the same in every checkout, and in the builds that a test makes of a copy.
export CCACHE_BASEDIR="$top" CCACHE_NOHASHDIR=1
"$top/scripts/setup.sh" test
mkdir -p build
# A lane that was asked for by name must run.
unable=skipped
[ $# -eq 0 ] || unable=FAILED
# shellcheck disable=SC2086  # one word for each lane
[ $# -gt 0 ] || set -- $unnamed

failed=
skipped=
for lane in "$@"; do
  echo "== lane $lane"
  budget=$(budget_of "$lane")
  status=0
  fetch_for "$lane" || status=$cannot_run
  started=$(date +%s)
  compiled=$(count_compiled)
  [ "$status" -ne 0 ] || run_lane "$lane" || status=$?
  took=$(($(date +%s) - started))
  budget=$((budget + ($(count_compiled) - compiled) * factor))
  if [ "$status" -eq 0 ] && [ "$took" -gt "$budget" ]; then
    echo "test.sh: lane $lane is over its budget; BENCHRIG_BUDGET_FACTOR widens all budgets" >&2
    status=1
  fi
  case $status in
    0) verdict=passed ;;
    "$cannot_run") verdict=$unable ;;
    *) verdict=FAILED ;;
  esac
  case $verdict in
    FAILED) failed="$failed $lane" ;;
    skipped) skipped="$skipped $lane" ;;
  esac
  echo "== lane $lane $verdict ($took s of $budget s)"
done
echo "== not run here: machine (emulated ARM machine): it does not exist yet"
[ -z "$skipped" ] || echo "== cannot run here, for the reasons above:$skipped"
[ -z "$failed" ] || { echo "== failed:$failed"; exit 1; }
