#!/bin/sh
# Says before a board does whether a platform library suits: check-platform-library.sh LIBRARY [EXECUTABLE]
#
# Lists every operation that include/platform declares and the library does not offer. One that is
# missing ends an applet in the loader's words: at its start or, worse, in the middle of a test, when it
# is first called. With an EXECUTABLE only what that benchrig asks for counts. Works on libraries for any
# machine. It compares names; what an operation takes and does is in the headers.
#
# Status: 0 nothing is missing, 1 something is, 2 it could not be checked.
# BENCHRIG_HEADERS names the folder of the headers when they are not in the place of this script's tree.
set -eu
export LC_ALL=C

give_up() {
  echo "check-platform-library.sh: $1" >&2
  exit 2
}

[ $# -eq 1 ] || [ $# -eq 2 ] || give_up "usage: check-platform-library.sh LIBRARY [EXECUTABLE]"
library=$1
executable=${2-}
command -v readelf >/dev/null || give_up "readelf is missing (package binutils)"

# In the sources the script is in scripts/, where it is installed in share/benchrig/: the headers are in
# a folder above.
folder=$(cd "$(dirname "$0")" && pwd)
while [ "$folder" != / ] && [ ! -f "$folder/include/platform/api.h" ]; do folder=$(dirname "$folder"); done
headers=${BENCHRIG_HEADERS-$folder/include/platform}
[ -f "$headers/api.h" ] || give_up "the headers are not found, BENCHRIG_HEADERS may name their folder"

# symbols FILE WORD: the dynamic symbols of a file, "defined" or "undefined", one a line.
symbols() {
  readelf --dyn-syms --wide "$1" 2>/dev/null |
    awk -v word="$2" '
      $5 != "GLOBAL" && $5 != "WEAK" { next }
      { sub(/@.*/, "", $8); if (($7 == "UND") == (word == "undefined")) print $8 }' | sort -u
}

for file in "$library" ${executable:+"$executable"}; do
  [ -r "$file" ] || give_up "$file: cannot be read"
  readelf --file-header "$file" 2>/dev/null | grep -Eq 'Type: *(DYN|EXEC)' ||
    give_up "$file: not a shared library or an executable that loads one"
done

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cat "$headers"/*.h |
  sed -n 's/^\(extern \)\{0,1\}RIG_API [^;(]*[ *]\([a-z0-9_]*\)[;(].*/\2/p' | sort -u >"$scratch/wanted"
[ -s "$scratch/wanted" ] || give_up "$headers: no operations"
if [ -n "$executable" ]; then
  symbols "$executable" undefined >"$scratch/asked"
  comm -12 "$scratch/wanted" "$scratch/asked" >"$scratch/both"
  mv "$scratch/both" "$scratch/wanted"
  [ -s "$scratch/wanted" ] || give_up "$executable: asks for no operation of a platform library"
fi
symbols "$library" defined >"$scratch/offered"
comm -23 "$scratch/wanted" "$scratch/offered" >"$scratch/missing"

if [ -s "$scratch/missing" ]; then
  echo "$library lacks:"
  sed 's/^/  /' "$scratch/missing"
  exit 1
fi
echo "$library offers all $(wc -l <"$scratch/wanted") operations"
