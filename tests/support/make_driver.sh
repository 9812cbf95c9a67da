#!/usr/bin/env bash
# Makes a small real driver image (a portable executable of the native subsystem, without code) that carries a version
# resource, with the resource compiler and the linker of binutils-mingw-w64. The same arguments give the same bytes.
#
#   make_driver.sh [--x86] OUT VERSION DESCRIPTION [COMPANY [PRODUCT]]
#
#   --x86        a 32-bit image (PE32) instead of a 64-bit one (PE32+)
#   OUT          the file to write, in an existing directory; about a kilobyte
#   VERSION      two to four numbers, such as 6.1.7600.16385: FileVersion and ProductVersion
#   DESCRIPTION  FileDescription; as COMPANY (CompanyName) and PRODUCT (ProductName) in UTF-8, quotes allowed
#
# The texts stand in one table, 040904b0 (American English, Unicode), which Translation names.
set -euo pipefail

architecture=x86-64
if [[ ${1:-} == --x86 ]]; then
  architecture=i386
  shift
fi
if [[ $# -lt 3 || $# -gt 5 || ! $2 =~ ^[0-9]+(\.[0-9]+){1,3}$ ]]; then
  echo "usage: make_driver.sh [--x86] OUT VERSION DESCRIPTION [COMPANY [PRODUCT]]" >&2
  exit 2
fi
out=$1 version=$2 description=$3 company=${4:-Acme Storage} product=${5:-Acme Storage Drivers}

# A text as the resource compiler wants it between quotes.
quoted() {
  local text=${1//\\/\\\\}
  printf '"%s"' "${text//\"/\"\"}"
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
IFS=. read -r major minor build revision <<<"$version"
numbers="$major,$minor,${build:-0},${revision:-0}"
cat >"$work/version.rc" <<RESOURCE
1 VERSIONINFO
FILEVERSION $numbers
PRODUCTVERSION $numbers
FILEOS 0x40004
FILETYPE 3
FILESUBTYPE 7
BEGIN
  BLOCK "StringFileInfo"
  BEGIN
    BLOCK "040904b0"
    BEGIN
      VALUE "CompanyName", $(quoted "$company")
      VALUE "FileDescription", $(quoted "$description")
      VALUE "FileVersion", "$version"
      VALUE "ProductVersion", "$version"
      VALUE "ProductName", $(quoted "$product")
    END
  END
  BLOCK "VarFileInfo"
  BEGIN
    VALUE "Translation", 0x0409, 0x04b0
  END
END
RESOURCE

# The resources are all that the image holds.
cat >"$work/image.ld" <<SCRIPT
SECTIONS {
  .rsrc __image_base__ + __section_alignment__ : { KEEP(*(.rsrc)) KEEP(*(.rsrc\$*)) }
}
SCRIPT

case $architecture in
  x86-64) format=pe-x86-64 emulation=i386pep ;;
  i386) format=pe-i386 emulation=i386pe ;;
esac
# Nothing here needs a preprocessor, and that of a compiler need not be there: cat stands in for it.
x86_64-w64-mingw32-windres --preprocessor=cat --codepage=65001 --target="$format" --output-format=coff \
  "$work/version.rc" "$work/version.o"
x86_64-w64-mingw32-ld -m "$emulation" -T "$work/image.ld" --subsystem native -e 0 -s --no-insert-timestamp -o "$out" \
  "$work/version.o"
chmod 644 "$out"
