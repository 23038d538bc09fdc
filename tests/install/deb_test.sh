#!/usr/bin/env bash
# The Debian package, from a configured and built release folder ($1, e.g. build/release): packs it
# with `cpack -G DEB`, installs it with dpkg, checks what is installed under /usr as the
# installation test does (each header compiles alone, a consumer through find_package and through
# pkg-config, the README's example, the examples and their tests), then removes the package.
# Needs root (or sudo) for dpkg.
set -euo pipefail
build=$(realpath "$1")
source_dir=$(realpath "$(dirname "$0")/../..")
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

(cd "$build" && cpack -G DEB)
deb=$(ls "$build"/libnorvane*_*.deb)
package=$(dpkg-deb -f "$deb" Package)
echo "Package: $package; Depends: $(dpkg-deb -f "$deb" Depends)"
$sudo dpkg -i "$deb"
trap '$sudo dpkg --purge "$package" >/dev/null' EXIT

cxx=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$build/CMakeCache.txt")
cmake -DPREFIX=/usr -DBUILD_DIR="$build" -DSOURCE_DIR="$source_dir/tests/install/consumer" \
  -DWORK_DIR="$build/deb-test" -DCXX="$cxx" -DGENERATOR=Ninja -DREADME="$source_dir/README.md" \
  -DEXAMPLES_DIR="$source_dir/examples" -P "$source_dir/tests/install/run_install_test.cmake"
echo "Debian package $package installed, built against and removed"
