#!/usr/bin/env bash
# What is in the zip of the Windows build.
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

folder=$(basename "$work"/*.zip .zip)
cmake -E tar tf "$work"/*.zip | sed "s|^$folder/||" >"$work/all"
{
  printf '%s\n' bin/vxr.exe bin/vxrcore.dll lib/vxrcore.def lib/vxrcore.dll.a include/vxrcore/bmext.h \
    include/vxrcore/vxrcore.h doc/README.md doc/CHANGELOG.md doc/CONTRIBUTING.md doc/SECURITY.md
  # Beside the documents, the examples that they point at; of those for Linux that package has none.
  cd "$source" && grep -oh '](\.\./[^)]*' docs/*.md | grep -v linux-host | sed 's|](\.\.|doc|' | sort -u
  ls docs/*.md | sed 's|^|doc/|'
} | sort >"$work/expected"
grep -v '/$' "$work/all" | sort | diff "$work/expected" - || { echo "FAILED: other files than expected"; exit 1; }
echo "$(wc -l <"$work/expected") files, as expected"
