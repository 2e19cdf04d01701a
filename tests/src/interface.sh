#!/bin/sh
# What the two libraries export lies in the namespaces of their interface, and the module needs nothing but what it may.
#   interface.sh UTIL-LIBRARY MODULE-LIBRARY
set -eu
status=0

for library in "$1" "$2"; do
  nm -D --defined-only -C "$library" | sed -e 's/^[0-9a-f]* . //' -e 's/^\(typeinfo\|typeinfo name\|vtable\) for //' |
    grep -Ev '^(Tarn::|Perenna::|LocalAccessManager::|calculate_sha_password_expression\(|PERENNA_)' &&
    { echo "$library exports these"; status=1; }
done

for needed in $(readelf -d "$2" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
  case $needed in
    libperenna-util.so.* | libsqlite3.so.* | libstdc++.so.* | libgcc_s.so.* | libm.so.* | libc.so.* | ld-linux*) ;;
    *) echo "the module needs $needed"; status=1 ;;
  esac
done
exit $status
