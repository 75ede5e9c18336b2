#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds and runs a tiny host against it twice: through the
# CMake package (find_package) and through pkg-config.
set -euo pipefail
build_dir=$1 host_src=$2 work=$3
rm -rf "$work"
mkdir -p "$work"
prefix="$work/prefix"
cmake --install "$build_dir" --prefix "$prefix" >/dev/null
cmake -S "$host_src" -B "$work/host-build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/host-build" >/dev/null
LD_LIBRARY_PATH="$prefix/lib:${LD_LIBRARY_PATH:-}" "$work/host-build/host"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
cc "$host_src/host.c" -o "$work/host-pc" $(pkg-config --cflags --libs zelva)
LD_LIBRARY_PATH="$prefix/lib:${LD_LIBRARY_PATH:-}" "$work/host-pc"

# The C example of the README compiles against the installed headers.
readme="$(dirname "$host_src")/../../README.md"
awk '/^```c$/{on=1; next} /^```$/{if (on) exit} on' "$readme" > "$work/readme_example.c"
[ -s "$work/readme_example.c" ]
cc -std=c99 -Wall -Wextra -Werror -c "$work/readme_example.c" -o "$work/readme_example.o" $(pkg-config --cflags zelva)
echo "README example compiles"
