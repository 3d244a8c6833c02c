#!/bin/sh
# Prints what an installed benchrig takes: its sections, its subsystems, the libraries that it needs,
# the most memory that a few runs had. size.sh [BUILD...]; without a name, those of build/release and
# build/arm that exist.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
if [ $# -eq 0 ]; then
  for build in "$top/build/release" "$top/build/arm"; do
    [ ! -x "$build/bin/benchrig" ] || set -- "$@" "$build"
  done
fi
[ $# -gt 0 ] || { echo "size.sh: nothing is built: scripts/test.sh release, scripts/build-arm.sh" >&2; exit 1; }
exec python3 "$top/bench/size.py" "$@"
