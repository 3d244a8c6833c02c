#!/bin/sh
# Checks the layout and the dialect of the sources: lint.sh [--all]
#   shell scripts   shellcheck
#   Python          black
#   C++             clang-format; dialect.py, the rules of CONTRIBUTING.md that no other tool knows; and
#                   clang-tidy, on the files that changed since LINT_BASE or, with --all, on all of them
# LINT_BASE is by default where the branch left its upstream, or ten commits ago when it has not.
# Each check prints how many files it read. A check that finds no file fails: git may be missing, or
# refuse a directory that another user owns.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
case ${1:-} in
  '' | --all) scope=${1:-} ;;
  *) echo "usage: lint.sh [--all]" >&2; exit 2 ;;
esac

scripts/setup.sh test
lists=$(mktemp -d)
trap 'rm -rf "$lists"' EXIT
failed=

# list_files LIST PATTERN...: the sources that match, whether or not they were committed.
list_files() {
  list=$lists/$1
  shift
  git ls-files --cached --others --exclude-standard -- "$@" >"$list.all" || exit 1
  while read -r file; do
    [ ! -e "$file" ] || echo "$file"
  done <"$list.all" >"$list"
}

# check NAME LIST COMMAND...: runs the command with the files of the list as its last arguments.
check() {
  name=$1
  list=$lists/$2
  shift 2
  echo "$name: $(wc -l <"$list") files"
  { [ -s "$list" ] && xargs -d '\n' "$@" <"$list"; } || failed="$failed $name"
}

# The commit since which changes are looked at; empty when there is only one commit.
base_commit() {
  if [ -n "${LINT_BASE:-}" ]; then
    git rev-parse --verify --quiet "$LINT_BASE^{commit}" ||
      { echo "lint.sh: no commit '$LINT_BASE' (LINT_BASE)" >&2; return 1; }
    return
  fi
  head=$(git rev-parse HEAD) || return
  base=$(git merge-base HEAD '@{upstream}' 2>/dev/null) || base=$head
  [ "$base" != "$head" ] || base=$(git rev-list --first-parent --max-count=11 HEAD | tail -n 1)
  [ "$base" = "$head" ] || echo "$base"
}

# Leaves in the list "tidy" what clang-tidy is to read. Files that this machine does not build, such
# as those for 32-bit processors, have no compiler options to read them with.
list_for_clang_tidy() {
  base=
  [ "$scope" = --all ] || base=$(base_commit) || exit 1
  since=
  cp "$lists/cpp" "$lists/changed"
  if [ -n "$base" ]; then
    git diff --name-only --diff-filter=d "$base" -- '*.cpp' '*.h' >"$lists/diff" || exit 1
    git ls-files --others --exclude-standard -- '*.cpp' '*.h' >>"$lists/diff" || exit 1
    grep -Fxf "$lists/diff" "$lists/cpp" >"$lists/changed" || true
    since=" that changed since $(git rev-parse --short "$base")"
  fi
  while read -r file; do
    case $file in
      *.h) echo "$file" ;;
      *) ! grep -Fq "\"$top/$file\"" build/lint/compile_commands.json || echo "$file" ;;
    esac
  done <"$lists/changed" >"$lists/tidy"
}

check_clang_tidy() {
  mkdir -p build
  # Clang reads no header that gcc has precompiled.
  cmake --preset release -B build/lint -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON >build/lint.log 2>&1 ||
    { cat build/lint.log; failed="$failed clang-tidy"; return; }
  list_for_clang_tidy
  echo "clang-tidy: $(wc -l <"$lists/tidy") files$since"
  # Clang does not know each warning of gcc's. Its output is shown for a failure alone: it counts what
  # it found in the system's headers, too.
  # shellcheck disable=SC2016  # the inner shell's words
  one='clang-tidy -quiet -p build/lint --extra-arg=-Wno-unknown-warning-option "$1" >"$2/$$" 2>&1 ||
    { cat "$2/$$"; exit 1; }'
  xargs -r -d '\n' -P "$(nproc)" -I '{}' sh -c "$one" sh '{}' "$lists" <"$lists/tidy" ||
    failed="$failed clang-tidy"
}

list_files sh '*.sh' .ci/run
list_files py '*.py'
list_files cpp '*.cpp' '*.h'

check shellcheck sh shellcheck
check black py black --check --quiet --diff
check clang-format cpp clang-format --dry-run -Werror
python3 -B scripts/dialect_test.py || failed="$failed dialect_test.py"
check dialect.py cpp python3 -B scripts/dialect.py
check_clang_tidy
[ -z "$failed" ] || { echo "lint.sh: failed:$failed"; exit 1; }
