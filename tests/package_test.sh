#!/usr/bin/env bash
# What is in the zip of the Windows build, and that its links lead somewhere.
#   package_test.sh SOURCE
set -u
source=$1
. "$source/scripts/quietly.sh"
. "$source/tests/support/pages.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$source" || exit 1

rm -f build/packages/vxrcore-*.zip
quietly eval "$(page_command "$source/docs/windows.md" 'cpack --preset windows')" || exit 1
(cd "$work" && cmake -E tar xf "$source"/build/packages/vxrcore-*.zip) || exit 1
folder=$(echo "$work"/*)
{
  printf '%s\n' bin/vxr.exe bin/vxrcore.dll lib/vxrcore.def lib/vxrcore.dll.a include/vxrcore/bmext.h \
    include/vxrcore/vxrcore.h doc/README.md doc/CHANGELOG.md doc/CONTRIBUTING.md doc/SECURITY.md
  # Beside the documents, the examples that they point at.
  grep -oh '](\.\./[^)]*' docs/*.md | sed 's|](\.\.|doc|' | sort -u
  ls docs/*.md | sed 's|^|doc/|'
} | sort >"$work/expected"
(cd "$folder" && find . -type f | sed 's|^\./||' | sort) | diff "$work/expected" - ||
  { echo "FAILED: other files than expected"; exit 1; }
[[ -z $(dangling_links "$folder") ]] || { dangling_links "$folder"; echo "FAILED: see above"; exit 1; }

# The import library for Microsoft's linker, where LLVM's tool is there.
if command -v llvm-dlltool >/dev/null; then
  (cd "$folder/lib" && eval "$(page_command "$source/docs/windows.md" 'llvm-dlltool ')" &&
    x86_64-w64-mingw32-nm vxrcore.lib 2>/dev/null | grep -q '__imp_VXREng_RunVXR') ||
    { echo "FAILED: no import library is made by the page's command"; exit 1; }
else
  echo "llvm-dlltool is not installed: skipped"
fi
echo "$(wc -l <"$work/expected") files, as expected"
