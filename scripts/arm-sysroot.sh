#!/bin/sh
# Fetches what the ARM build and its test runs take from the distribution, beside what comes with the
# cross compiler: third-party libraries with their headers, and the C library that the emulated
# programs are started with. All of it goes into build/arm-sysroot; the machine's own package lists,
# architectures and installed packages stay as they are.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
sysroot=$top/build/arm-sysroot
apt=$top/build/arm-apt

# Apt finds the runtime packages behind these, the C library among them. The C library's tools are what
# tests compare with.
packages="libubootenv-dev libfdt-dev libpng-dev zlib1g-dev libstdc++6 libubsan1 libc-bin"
# The cross compiler brings these; their copies in the sysroot would only stand in its way.
provided="libc6-dev linux-libc-dev"

[ "$(cat "$sysroot/.packages" 2>/dev/null)" != "$packages" ] || exit 0
rm -rf "$sysroot" "$apt"
mkdir -p "$sysroot" "$apt/state/lists/partial" "$apt/cache/archives/partial"

# The mirror that this machine uses itself, without its suites of updates: the main suite is complete
# for every architecture.
# shellcheck disable=SC1091
suite=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
# shellcheck disable=SC2016  # $(...) is apt's
mirror=$(apt-get indextargets --no-release-info --format '$(REPO_URI) $(RELEASE)' 'Created-By: Packages' |
  awk -v suite="$suite" '$2 == suite { print $1; exit }')
[ -n "$mirror" ] || {
  echo "arm-sysroot.sh: apt has no source for the suite '$suite' of this Debian" >&2
  exit 1
}
echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $suite main" >"$apt/sources.list"
for package in $provided; do
  printf 'Package: %s\nStatus: install ok installed\nArchitecture: armhf\nMulti-Arch: same\nVersion: 99\n\n' "$package"
done >"$apt/state/status"

# Read after the machine's own settings, so that its proxies and credentials serve here as well.
cat >"$apt/apt.conf" <<END
#clear APT::Architectures;
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Install-Recommends "false";
APT::Sandbox::User "";
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
#clear DPkg::Pre-Invoke;
#clear DPkg::Post-Invoke;
Acquire::Languages "none";
Acquire::Retries "3";
Debug::NoLocking "true";
Dir::Etc::sourcelist "$apt/sources.list";
Dir::Etc::sourceparts "-";
Dir::Etc::preferences "-";
Dir::Etc::preferencesparts "-";
Dir::State "$apt/state";
Dir::State::status "$apt/state/status";
Dir::Cache "$apt/cache";
END

# The words of $packages must fall apart.
# shellcheck disable=SC2086
{
  apt-get -c "$apt/apt.conf" update -q &&
    apt-get -c "$apt/apt.conf" install -q -y --download-only $packages
} >"$apt/log" 2>&1 || {
  cat "$apt/log" >&2
  echo "arm-sysroot.sh: the armhf packages could not be fetched" >&2
  exit 1
}
for archive in "$apt"/cache/archives/*.deb; do
  dpkg-deb -x "$archive" "$sysroot"
done
# Links to absolute paths would lead out of the sysroot.
find "$sysroot" -type l -lname '/*' | while read -r link; do
  ln -sfn "$sysroot$(readlink "$link")" "$link"
done
rm -rf "$apt"
echo "$packages" >"$sysroot/.packages"
