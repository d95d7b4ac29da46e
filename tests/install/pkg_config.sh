#!/usr/bin/env bash
# Builds the consumer with what pkg-config tells of an installation, and runs it.
#
#   pkg_config.sh BUILD LIBDIR CONSUMER      LIBDIR below the prefix; CC and CXX name the compilers
set -euo pipefail
build=$1 libdir=$2 consumer=$3
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

# consume ROOT FLAGS...: as C and as C++, against the library below the root.
consume() {
  local root=$1
  shift
  $CC -std=gnu99 "$consumer.c" "$@" -Wl,-rpath,"$root/$libdir" -o "$dir/c"
  $CXX "$consumer.cpp" "$@" -Wl,-rpath,"$root/$libdir" -o "$dir/cpp"
  "$dir/c"
  "$dir/cpp"
}

# Installed in a prefix, shared and static; the prefix is moved then.
cmake --install "$build" --prefix "$dir/first" >/dev/null
export PKG_CONFIG_PATH=$dir/first/$libdir/pkgconfig
consume "$dir/first" $(pkg-config --cflags --libs libzal-client)
static=$(pkg-config --static --cflags --libs libzal-client)
consume "" ${static/-lzal-client/-l:libzal-client.a}
mv "$dir/first" "$dir/moved"
export PKG_CONFIG_PATH=$dir/moved/$libdir/pkgconfig
consume "$dir/moved" $(pkg-config --define-prefix --cflags --libs libzal-client)

# Installed for /usr, in a sysroot.
DESTDIR=$dir/sysroot cmake --install "$build" --prefix /usr >/dev/null
export PKG_CONFIG_PATH=$dir/sysroot/usr/$libdir/pkgconfig
flags=$(PKG_CONFIG_SYSROOT_DIR=$dir/sysroot pkg-config --cflags --libs libzal-client)
consume "$dir/sysroot/usr" $flags
