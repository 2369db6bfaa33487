#!/bin/sh
# Installs the build into a scratch prefix and builds a C program against it
# twice: with pkg-config and with CMake's find_package(rvtjp).
set -eu
build=$1
program=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cmake --install "$build" --prefix "$tmp/prefix" >/dev/null
libdir=$(dirname "$(find "$tmp/prefix" -name 'librvtjp.so' | head -n 1)")
export PKG_CONFIG_PATH="$libdir/pkgconfig"
cc -std=c99 -pedantic-errors -o "$tmp/pc" "$program" $(pkg-config --cflags --libs rvtjp) \
  -Wl,-rpath,"$libdir"
"$tmp/pc"
mkdir "$tmp/user"
cp "$program" "$tmp/user/main.c"
cat > "$tmp/user/CMakeLists.txt" <<'CM'
cmake_minimum_required(VERSION 3.25)
project(user C)
find_package(rvtjp 7 REQUIRED)
add_executable(user main.c)
target_link_libraries(user PRIVATE rvtjp::rvtjp)
CM
cmake -S "$tmp/user" -B "$tmp/user/build" -DCMAKE_PREFIX_PATH="$tmp/prefix" >/dev/null
cmake --build "$tmp/user/build" >/dev/null
"$tmp/user/build/user"
echo "installed package builds with pkg-config and find_package"
