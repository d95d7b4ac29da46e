#!/usr/bin/env bash
# Installs the Debian packages into an empty root, without what they depend on, and uses them from there: zalctl runs, and
# a program is built against what the root holds, and runs.
#
#   packages.sh ARCHITECTURE ROOT PACKAGE...
set -euo pipefail
architecture=$1 root=$2
shift 2
triplet=$(dpkg-architecture -a "$architecture" -q DEB_HOST_MULTIARCH 2>/dev/null)
libraries=$root/usr/lib/$triplet
consumer=$(dirname "$0")/consumer/consumer

rm -rf "$root"
mkdir -p "$root/var/lib/dpkg/"{info,updates,triggers}
touch "$root/var/lib/dpkg/"{status,available}
[[ $architecture == "$(dpkg --print-architecture)" ]] || dpkg --root="$root" --add-architecture "$architecture"
dpkg --root="$root" --force-not-root --force-depends --log=/dev/null --install "$@" >"$root/install.log" 2>&1 ||
  { cat "$root/install.log" >&2 && exit 1; }

run() { LD_LIBRARY_PATH=$libraries "$@"; }
[[ $architecture != armhf ]] || run() { qemu-arm -L / -E "LD_LIBRARY_PATH=$libraries" "$@"; }

run "$root/usr/bin/zalctl" --help >/dev/null
# uriparser, which pkg-config only looks for, may have its development package for this machine alone.
export PKG_CONFIG_PATH=$libraries/pkgconfig:/usr/lib/$triplet/pkgconfig:/usr/lib/x86_64-linux-gnu/pkgconfig
export PKG_CONFIG_SYSROOT_DIR=$root
flags=$(pkg-config --cflags --libs libzal-client)
"$triplet-gcc" -std=gnu99 "$consumer.c" $flags -o "$root/consumer-c"
"$triplet-g++" "$consumer.cpp" $flags -o "$root/consumer-cpp"
run "$root/consumer-c"
run "$root/consumer-cpp"
