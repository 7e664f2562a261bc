#!/usr/bin/env bash
# Installs a build into an empty folder and builds a consumer against it, both ways: find_package and pkg-config.
# usage: packaging/check-install.sh BUILD_FOLDER EMPTY_FOLDER
set -euo pipefail
build=$1
prefix=$2/installed
work=$2/consumer
here=$(dirname "${BASH_SOURCE[0]}")

cmake --install "$build" --prefix "$prefix" >/dev/null
test -L "$(find "$prefix" -name 'libvellcore.so')"

cmake -S "$here/consumer" -B "$work" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work" >/dev/null
"$work/consumer"

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name vellcore.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046  # flags are meant to be split
g++ -std=c++20 "$here/consumer/main.cpp" -o "$work/by-pkg-config" $(pkg-config --cflags --libs vellcore)
LD_LIBRARY_PATH=$(pkg-config --variable=libdir vellcore) "$work/by-pkg-config"

soname=$(readelf -d "$(find "$prefix" -name 'libvellcore.so')" | sed -n 's/.*SONAME.*\[\(.*\)\].*/\1/p')
[ "$soname" = libvellcore.so.1 ] || { echo "check-install: SONAME is '$soname'" >&2; exit 1; }
echo "installed, found by find_package and by pkg-config, $soname"
