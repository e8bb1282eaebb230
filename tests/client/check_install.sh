#!/bin/sh
# check_install.sh CMAKE BUILD_FOLDER SOURCE_FOLDER COMPILER NM: what the library installs is enough
# to build the example, by pkg-config and by CMake, and the library shows its interface alone.
set -eu
cmake=$1
build=$2
source=$3
compiler=$4
nm=$5
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

for component in client dev; do
    DESTDIR=$root "$cmake" --install "$build" --component $component >> "$root/log"
done
pc=$(find "$root" -name orvclient.pc)
library=$(find "$root" -name liborvclient.so)
LD_LIBRARY_PATH=$(dirname "$library")
export LD_LIBRARY_PATH

check() {
    if "$1" 2> "$root/said" || [ "$(cat "$root/said")" != "watch_captions: usage: watch_captions FILE.ts|-" ]; then
        cat "$root/said"
        echo "$2: the example does not run"
        exit 1
    fi
}

PKG_CONFIG_PATH=$(dirname "$pc")
export PKG_CONFIG_PATH
flags=$(PKG_CONFIG_SYSROOT_DIR=$root pkg-config --cflags --libs orvclient)
# shellcheck disable=SC2086  # flags are words
"$compiler" -std=c++20 "$source/examples/watch_captions.cpp" $flags -o "$root/by_pkg_config"
check "$root/by_pkg_config" pkg-config

mkdir "$root/project"
cat > "$root/project/CMakeLists.txt" <<'PROJECT'
cmake_minimum_required(VERSION 3.25)
project(Example LANGUAGES CXX)
find_package(OrvClient 0.1 REQUIRED)
add_executable(by_cmake ${EXAMPLE})
target_link_libraries(by_cmake PRIVATE OrvClient::orvclient)
PROJECT
"$cmake" -S "$root/project" -B "$root/project/build" -DCMAKE_CXX_COMPILER="$compiler" \
    -DEXAMPLE="$source/examples/watch_captions.cpp" \
    -DOrvClient_DIR="$(dirname "$library")/cmake/OrvClient" > "$root/log"
"$cmake" --build "$root/project/build" > "$root/log" || { cat "$root/log"; exit 1; }
check "$root/project/build/by_cmake" CMake

others=$("$nm" -DC --defined-only "$library" | cut -d ' ' -f 3- |
    grep -v -E '^(typeinfo (name )?for |vtable for )?orvclient::' || true)
internal=$("$nm" -DC --defined-only "$library" | grep -E 'orvclient::.*(Impl|Halves|Session)::' || true)
if [ -n "$others$internal" ]; then
    echo "liborvclient.so also exports:"
    echo "$others$internal"
    exit 1
fi
