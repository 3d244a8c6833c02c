#!/bin/sh
# Changes one token of the sources at a time and prints the changes that no test notices:
#   mutate.sh                     in the lines that a change touched, since upstream or HEAD~1
#   mutate.sh --base REV          in the lines that differ from a revision
#   mutate.sh FILE...             in these files
#   mutate.sh --sample N --seed N some of src/ and platform/
# --help prints the other options. All of it happens in build/mutate, in copies of the tree.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
program=$top/scripts/mutate/mutate.py
MUTATE_FROM=$PWD
export MUTATE_FROM PYTHONDONTWRITEBYTECODE=1

"$top/scripts/setup.sh" test
# Tests make thousands of small files, which are kept in memory where that is allowed.
scratch=$top/build/mutate/scratch
mkdir -p "$scratch"
# shellcheck disable=SC2016  # the inner shell's words
in_memory='mount -t tmpfs -o size=2g tmpfs "$TMPDIR" && exec "$@"'
if TMPDIR=$scratch unshare --mount sh -c "$in_memory" sh true 2>/dev/null; then
  TMPDIR=$scratch exec unshare --mount sh -c "$in_memory" sh python3 "$program" "$@"
fi
TMPDIR=$scratch exec python3 "$program" "$@"
