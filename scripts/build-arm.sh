#!/bin/sh
# Sets up, and builds the toolbox, librigcore, the virtual board and the tests for 32-bit ARM:
# build-arm.sh [PRESET]. The presets are arm (the default: build/arm) and arm-ubsan.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
preset=${1:-arm}
cd "$top"

scripts/setup.sh arm
scripts/arm-sysroot.sh
mkdir -p build
{ cmake --preset "$preset" && cmake --build --preset "$preset"; } >build/"$preset".log 2>&1 ||
  { cat build/"$preset".log; exit 1; }
