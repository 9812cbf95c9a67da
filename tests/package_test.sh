#!/usr/bin/env bash
# What is in the package of a build: a .zip of the Windows build, a .deb of any other.
#   package_test.sh CPACK BUILD SOURCE
set -u

cpack=$1
build=$2
source=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if ! "$cpack" --config "$build/CPackConfig.cmake" -B "$work" >"$work/log" 2>&1; then
  cat "$work/log"
  exit 1
fi

docs() { (cd "$source" && ls docs/*.md | sed "s|^|$1/|"); }
shopt -s nullglob
zips=("$work"/*.zip)
if [[ ${#zips[@]} -eq 1 ]]; then
  folder=$(basename "${zips[0]}" .zip)
  cmake -E tar tf "${zips[0]}" | sed "s|^$folder/||" >"$work/all"
  prefix='' docdir=doc
  files='bin/vxr.exe bin/vxrcore.dll lib/vxrcore.def lib/vxrcore.dll.a'
else
  dpkg-deb --fsys-tarfile "$work"/*.deb | tar t | sed 's|^\./||' >"$work/all"
  prefix=usr/ docdir=share/doc/vxrcore
  version=$(sed -n 's/^project(vxrcore VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
  files="bin/vxr lib/libvxrcore.so lib/libvxrcore.so.0 lib/libvxrcore.so.$version"
  files+=" include/vxrcore/machine.h include/vxrcore/events.h include/vxrcore/drivers.h"
  for library in libhivex libnettle; do
    dpkg-deb --field "$work"/*.deb Depends | grep -q $library || { echo "FAILED: depends on no $library"; exit 1; }
  done
fi
{
  tr ' ' '\n' <<<"$files include/vxrcore/bmext.h include/vxrcore/vxrcore.h $docdir/README.md"
  # Beside the documents, the examples that they point at.
  cd "$source" && grep -oh '](\.\./[^)]*' docs/*.md | sed "s|](\.\.|$docdir|" | sort -u
  docs $docdir
} | sed "s|^|$prefix|" | sort >"$work/expected"
grep -v '/$' "$work/all" | sort | diff "$work/expected" - || { echo "FAILED: other files than expected"; exit 1; }
echo "$(wc -l <"$work/expected") files, as expected"
