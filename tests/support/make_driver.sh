#!/usr/bin/env bash
# Makes a small real driver image (a portable executable of the native subsystem, without code) that carries a version
# resource, with the resource compiler and the linker of binutils-mingw-w64. The same arguments give the same bytes.
#
#   make_driver.sh [--x86] [--signed] OUT VERSION DESCRIPTION [COMPANY [PRODUCT]]
#
#   --x86        a 32-bit image (PE32) instead of a 64-bit one (PE32+)
#   --signed     with a certificate table as a signed driver has it; its message names no signer and proves nothing
#   OUT          the file to write, in an existing directory; about a kilobyte
#   VERSION      two to four numbers, such as 6.1.7600.16385: FileVersion and ProductVersion
#   DESCRIPTION  FileDescription; as COMPANY (CompanyName) and PRODUCT (ProductName) in UTF-8, quotes allowed
#
# The texts stand in one table, 040904b0 (American English, Unicode), which Translation names.
set -euo pipefail

architecture=x86-64 signed=
while [[ ${1:-} == --* ]]; do
  case $1 in
    --x86) architecture=i386 ;;
    --signed) signed=yes ;;
    *) set -- ;;
  esac
  shift || true
done
if [[ $# -lt 3 || $# -gt 5 || ! $2 =~ ^[0-9]+(\.[0-9]+){1,3}$ ]]; then
  echo "usage: make_driver.sh [--x86] [--signed] OUT VERSION DESCRIPTION [COMPANY [PRODUCT]]" >&2
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

# A number as four bytes, low byte first.
bytes() {
  local hex
  hex=$(printf '%08x' "$1")
  printf '%b' "\\x${hex:6:2}\\x${hex:4:2}\\x${hex:2:2}\\x${hex:0:2}"
}

put() { bytes "$2" | dd of="$out" bs=1 seek="$1" conv=notrunc status=none; }

# The table's place in the file stands in the fifth data directory; the loader checks the sum over the whole file.
sign() {
  local header directory table
  header=$(od -An -tu4 -j60 -N4 "$out")
  directory=$((header + 24 + 32 + ($(od -An -tu2 -j$((header + 24)) -N2 "$out") == 0x20b ? 112 : 96)))
  table=$(stat -c %s "$out")
  # Signed data in the form of PKCS #7: version 1, no digest, contents of the data type, no signer.
  { bytes 48; bytes 0x00020200; printf '%b' '\x30\x23\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x07\x02\xa0\x16\x30\x14' \
    '\x02\x01\x01\x31\x00\x30\x0b\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x07\x01\x31\x00\x00\x00\x00'; } >>"$out"
  put "$directory" "$table"
  put $((directory + 4)) 48
  put $((header + 88)) 0
  put $((header + 88)) "$(od -An -v -w2 -tu2 "$out" | awk -v size=$((table + 48)) \
    '{sum += $1; sum = sum % 65536 + int(sum / 65536)} END {print sum + size}')"
}
if [[ $signed ]]; then
  sign
fi
