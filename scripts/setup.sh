#!/bin/sh
# Installs the Debian packages that are missing: setup.sh [run|test|arm|bench]
#   run    what building and running takes
#   test   also what the test lanes take
#   arm    also the cross compiler and the emulator for 32-bit ARM
#   bench  also the peers that the benchmarks compare with
set -eu

packages="g++ cmake ninja-build pkgconf libubootenv-dev libfdt-dev libpng-dev zlib1g-dev"
case ${1:-run} in
  run) ;;
  test) packages="$packages googletest clang ccache python3 python3-pytest python3-pytest-xdist binutils git shellcheck black clang-format clang-tidy smartmontools hdparm mtd-utils" ;;
  arm) packages="$packages googletest ccache python3 python3-pytest binutils g++-arm-linux-gnueabihf qemu-user-static" ;;
  bench) packages="$packages python3 busybox forkstat" ;;
  *) echo "usage: setup.sh [run|test|arm|bench]" >&2; exit 2 ;;
esac

missing=
for package in $packages; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

as_root=
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || {
    echo "setup.sh: these packages are missing, and installing them takes root:$missing" >&2
    exit 1
  }
  as_root=sudo
fi
echo "setup.sh: installing$missing" >&2
export DEBIAN_FRONTEND=noninteractive
# The words of $missing and an empty $as_root must fall apart.
# shellcheck disable=SC2086
{ $as_root apt-get update -q && $as_root apt-get install -y -q --no-install-recommends --no-remove $missing; } >&2
