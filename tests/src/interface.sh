#!/bin/sh
# Compares what the two libraries export with the checked-in lists, and what the module needs with what it may.
#   interface.sh UTIL-LIBRARY MODULE-LIBRARY
set -eu
export LC_ALL=C
here=$(dirname "$0")
status=0

exported() {
  nm -D --defined-only -C "$1" | sed -e 's/^[0-9a-f]* . //' -e 's/@@PERENNA_.*//' | grep -v '^PERENNA_.*_1$' | sort -u
}

for library in "$1" "$2"; do
  name=$(basename "$library" .so | sed 's/\.so.*//')
  if ! exported "$library" | diff -u "$here/$name.exports" -; then
    echo "$name: the exported symbols (+) differ from the list (-)"
    status=1
  fi
done

for needed in $(readelf -d "$2" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
  case $needed in
    libperenna-util.so.* | libsqlite3.so.* | libstdc++.so.* | libgcc_s.so.* | libm.so.* | libc.so.* | ld-linux*) ;;
    *) echo "the module needs $needed"; status=1 ;;
  esac
done
exit $status
