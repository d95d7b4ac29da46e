#!/usr/bin/env bash
# Builds the Debian packages for one architecture, installs them into an empty root and uses them there.
#
#   scripts/package.sh ARCHITECTURE DIRECTORY      the packages are left in the directory
set -euo pipefail
cd "$(dirname "$0")/.."
architecture=$1
mkdir -p "$2"
dir=$(cd "$2" && pwd)
source=$dir/source
rm -rf "$source" "$dir"/*.deb
mkdir -p "$source"
git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents -t "$source"

# Whatever belongs to no architecture comes from the build for this machine. uriparser's development package exists for
# one architecture at a time, so a cross build does not ask for it (-d).
options=(-b)
[[ $architecture == "$(dpkg --print-architecture)" ]] || options=(-B -d --host-arch "$architecture")
(cd "$source" && dpkg-buildpackage -us -uc -j"$(nproc)" "${options[@]}" >"$dir/build.log" 2>&1) ||
  { tail -n 60 "$dir/build.log" >&2 && exit 1; }
packages=("$dir"/*.deb)

tests/install/packages.sh "$architecture" "$dir/root" "${packages[@]}"
lintian --allow-root --fail-on error,warning --suppress-tags copyright-without-copyright-notice "${packages[@]}"
