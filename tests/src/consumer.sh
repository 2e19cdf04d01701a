#!/bin/sh
# Installs into a prefix, moves that elsewhere, and builds a small host against it, as C++17 and as C++20, through the
# CMake package and through pkg-config; compiles each installed header alone as C++17, all together as C++20. The moved
# tool runs, and nothing installed holds debugging information.
#   consumer.sh CMAKE BUILD-DIRECTORY COMPILER
set -eu
cmake=$1 build=$2 compiler=$3
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
warnings="-Wall -Wextra -Wpedantic -Werror"

"$cmake" --install "$build" --prefix "$work/made" >"$work/log" || { cat "$work/log"; exit 1; }
mv "$work/made" "$prefix"
if grep -rl "$work/made" "$prefix"; then
  echo "these files name the prefix that they were installed into"
  exit 1
fi
package=$(find "$prefix" -name perenna-localaccessmanager.pc)
libraries=$(dirname "$(dirname "$package")")

for standard in 17 20; do
  "$cmake" -S "$here/consumer" -B "$work/$standard" -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_STANDARD=$standard >"$work/log" 2>&1 && "$cmake" --build "$work/$standard" >>"$work/log" 2>&1 ||
    { cat "$work/log"; exit 1; }
  "$work/$standard/consumer" "$work/package-$standard.db"

  flags=$(PKG_CONFIG_PATH=$(dirname "$package") pkg-config --cflags --libs perenna-localaccessmanager)
  # shellcheck disable=SC2086 # lists of words
  "$compiler" -std=c++$standard $warnings "$here/consumer/main.cpp" $flags -o "$work/plain-$standard"
  LD_LIBRARY_PATH=$libraries "$work/plain-$standard" "$work/plain-$standard.db"
done

for header in "$prefix"/include/perenna/*.h; do
  echo "#include \"$header\"" | tee "$work/alone.cpp" >>"$work/all.cpp"
  # shellcheck disable=SC2086
  "$compiler" -std=c++17 $warnings -fsyntax-only "$work/alone.cpp"
done
# shellcheck disable=SC2086
"$compiler" -std=c++20 $warnings -fsyntax-only "$work/all.cpp"
ls "$prefix"/include/perenna

for binary in "$prefix"/bin/perenna-access "$libraries"/*.so; do
  if readelf -S -W "$binary" | grep -q ' \.debug_info '; then
    echo "$binary is not stripped"
    exit 1
  fi
done
"$prefix/bin/perenna-access" --version
