#!/bin/sh
# Sets up, builds, and runs benchrig on a fresh virtual board: run.sh bt1 autotest autotest
# BOARD=DIR keeps the board in a directory; SPEED=N or max (the default) is the board's clock.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=$top/build/run

"$top/scripts/setup.sh" run
mkdir -p "$build"
{
  cmake -S "$top" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBENCHRIG_TESTS=OFF &&
    cmake --build "$build"
} >"$build/build.log" 2>&1 || { cat "$build/build.log" >&2; exit 1; }

if [ -n "${BOARD:-}" ]; then
  [ -e "$BOARD" ] || "$build/bin/vboard" new "$BOARD"
  exec "$build/bin/vboard" run --board "$BOARD" --speed "${SPEED:-max}" -- "$build/bin/benchrig" "$@"
fi
exec "$build/bin/vboard" run --speed "${SPEED:-max}" -- "$build/bin/benchrig" "$@"
