#!/usr/bin/env bash
# Installs a build into an empty folder, runs its program, and builds a consumer against it, both ways: find_package and pkg-config.
# usage: packaging/check-install.sh BUILD_FOLDER EMPTY_FOLDER
set -euo pipefail
build=$1
prefix=$2/installed
work=$2/consumer
here=$(dirname "${BASH_SOURCE[0]}")

cmake --install "$build" --prefix "$prefix" >/dev/null
test -L "$(find "$prefix" -name 'libvellcore.so')"

# The program finds its library and its catalogs from its own place: called by its path, by a link, and by the shell.
# The languages need no locale of the system.
ln -s "$prefix/bin/vell" "$2/link"
speaks() {
  local locale=$1 text=$2
  shift 2
  env -u LANGUAGE LC_ALL="$locale" "$@" --help | grep -q "^$text: vell" ||
    { echo "check-install: '$*' does not say '$text' in $locale" >&2; exit 1; }
}
while read -r locale text; do
  speaks "$locale" "$text" "$prefix/bin/vell"
done <<'EOT'
C Usage
de_DE.UTF-8 Aufruf
ja_JP.UTF-8 使い方
ar_EG.UTF-8 الاستخدام
sr_RS.UTF-8@latin Upotreba
EOT
speaks de_DE Aufruf "$2/link"
speaks de_DE Aufruf env PATH="$prefix/bin" vell

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
