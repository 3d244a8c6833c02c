#!/bin/sh
# Prints comparisons with peers, as ratios from one run.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=$top/build/bench
image=$build/image

"$top/scripts/setup.sh" bench
mkdir -p "$build"

# A root directory like a board's: the programs, the libraries that they load, the loader's cache.
make_image() {
  rm -rf "$image"
  mkdir -p "$image/usr/bin" "$image/etc"
  cmake -S "$top" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBENCHRIG_TESTS=OFF \
    -DCMAKE_INSTALL_PREFIX=/usr &&
    cmake --build "$build" && DESTDIR=$image cmake --install "$build" --strip &&
    echo 'int main(void) { return 0; }' | cc -O2 -s -x c -o "$image/usr/bin/empty" - &&
    cp "$(command -v busybox)" "$image/usr/bin/busybox" &&
    ldd "$image/usr/bin/empty" "$image/usr/bin/busybox" | grep -o '/[^ :]*/[^ :]*' | sort -u |
    grep -v "^$image" | while read -r library; do
      mkdir -p "$image$(dirname "$library")"
      cp -L "$library" "$image$library"
    done &&
    ldconfig -r "$image"
}
make_image >"$build/build.log" 2>&1 || { cat "$build/build.log" >&2; exit 1; }

as_root=
[ "$(id -u)" -eq 0 ] || as_root='unshare -r'
echo "Start-up, whole process, by turns in a board's root directory (median wall time, ratio)"
$as_root python3 "$top/bench/startup.py" "$image" "${ROUNDS:-2000}" \
  "empty C program=/usr/bin/empty" \
  "benchrig version=/usr/bin/benchrig version" \
  "busybox true (dynamic)=/usr/bin/busybox true"

echo
echo "A command on a virtual board (mean processor and wall time, ratios to true alone)"
python3 "$top/bench/boards.py" "$build/bin/vboard" "${BOARD_ROUNDS:-30}"

cc -O2 -o "$build/calls" "$top/bench/calls.c"
echo
echo "Single calls on a virtual board (processor time, ratios to a PC's)"
python3 "$top/bench/calls.py" "$build/bin/vboard" "$build/calls" "${CALL_ROUNDS:-200000}"

echo
echo "Physical memory of a virtual board (median wall time, ratio to dd)"
python3 "$top/bench/memory.py" "$build/bin/vboard" "$image/usr/bin/benchrig" "${MEMORY_ROUNDS:-20}"

echo
echo "Process events of a storm of short processes (events told, processor time as a ratio)"
python3 "$top/bench/process_events.py" "$image/usr/bin/benchrig" "${PROCESSES:-5000}"

"${CXX:-c++}" -std=c++20 -O2 -D_GNU_SOURCE -I"$top" -I"$top/include" -I"$top/src" -o "$build/block_event" \
  "$top/bench/block_event.cpp" "$top/src/storage/block_event.cpp"
echo
echo "An event of the block trace, without process look-up and sync (ratio of median times)"
"$build/block_event" "$build/block_event.log"
rm -f "$build/block_event.log"
