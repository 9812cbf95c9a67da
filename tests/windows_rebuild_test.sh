#!/usr/bin/env bash
# vxrcore.dll built once more, from a copy of the sources in another folder, without the compiler's cache: the same bytes,
# which bear no time and no place.
#   windows_rebuild_test.sh BUILD SOURCE CMAKE
set -eu

build=$1
source=$2
cmake=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C TZ=Asia/Tokyo CCACHE_DISABLE=1

fail() {
  echo "FAILED: $*"
  exit 1
}

mkdir -p "$work/other/sources"
tar c -C "$source" --exclude=./build --exclude=./.git . | tar x -C "$work/other/sources"
mapfile -t options < <(sed -n 's/^\(CMAKE_BUILD_TYPE\|VXR_QUICK_BUILD\):/-D&/p' "$build/CMakeCache.txt")
"$cmake" -G Ninja -S "$work/other/sources" -B "$work/elsewhere" --toolchain "$work/other/sources/cmake/mingw.cmake" \
  "${options[@]}" >"$work/log" &&
  "$cmake" --build "$work/elsewhere" --target vxrcore >>"$work/log" || fail "cannot be built: $(tail -n 20 "$work/log")"

dll=$build/vxrcore.dll
cmp "$work/elsewhere/vxrcore.dll" "$dll" || fail "built again, it differs"
x86_64-w64-mingw32-objdump -p "$dll" | TZ=UTC grep -q '^Time/Date.*Thu Jan  1 [0-9:]* 1970' || fail "it bears a time"
for place in "$source" "$build"; do
  grep -qF "$place" "$dll" && fail "it names $place"
done
echo "the same bytes"
