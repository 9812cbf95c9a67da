#!/usr/bin/env bash
# Every command of vxr that a page shows works, run in a folder that holds what they name, /mnt and /media below it.
#   docs_test.sh VXR SOURCE
set -u
program=$1
source=$2
. "$source/tests/support/pages.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ran=0 failures=0

# put OFFSET BYTES: into disk.img, as printf has them.
put() { printf '%b' "$2" | dd of=disk.img bs=1 seek="$1" conv=notrunc status=none; }

prepare() {
  local raid=$source/examples/raid-10.0-x64
  rm -rf "${work:?}"/* && cd "$work" && mkdir -p media/stick || exit 1
  cp -r "$source/examples/scsi-6.1-x64/." . && cp -r "$source/examples/protected-5.2-x64" protected || exit 1
  "$program" create --machine protected/machine.toml machine.bme >output 2>&1 || cat output
  cp -r "$raid/restored" mnt && cp -r "$raid/ram/drivers" media/stick/ && cp -r media/stick/drivers DIR || exit 1
  cp mnt/Windows/System32/config/SYSTEM . && "$source/examples/unpack-sysfs" "$raid/sysfs.txt" machine || exit 1
  # One active partition of type 7: 1046528 sectors from 2048.
  truncate -s $(((2048 + 1046528) * 512)) disk.img
  put 446 '\x80\0\0\0\x07\0\0\0\0\x08\0\0\0\xf8\x0f\0' && put 510 '\x55\xaa'
  put $((2048 * 512 + 510)) '\x55\xaa'
}

inject() { "$program" inject --root mnt --drivers DIR --sysfs machine/sys --disk sda >output 2>&1; }

# The root is a folder here, so that a listing of devices tells the disk; and an undo folder is today's.
vxr() {
  local arguments=("${@//\/mnt/mnt}") folders
  arguments=("${arguments[@]//\/media/media}")
  if [[ $1 == inject && " $* " != *" --controller "* ]]; then
    arguments+=(--sysfs machine/sys)
    [[ " $* " == *" --list "* ]] || arguments+=(--disk sda)
  elif [[ $1 == undo && $2 == /mnt/* ]]; then
    [[ -d mnt/Windows/vxr-undo ]] || inject
    folders=(mnt/Windows/vxr-undo/*)
    arguments=(undo "${folders[0]}")
  fi
  "$program" "${arguments[@]}" </dev/null >output 2>&1
}

for page in "$source/README.md" "$source"/docs/*.md; do
  prepare
  while read -r line; do
    ran=$((ran + 1))
    if ! eval "$line"; then
      echo "FAILED: ${page#"$source"/}: $line"
      cat output
      failures=$((failures + 1))
    fi
  done < <(page_commands "$page" | grep '^vxr ')
done
[[ $ran -gt 10 ]] || failures=1
echo "$ran commands"
exit $((failures > 0))
