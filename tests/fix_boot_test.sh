#!/usr/bin/env bash
# The boot-sector repair on disks that other tools made: partitioned by sfdisk and fdisk, with file systems of mkfs.ntfs
# and mkfs.vfat, whose own checks must still accept the repaired volume. Images are sparse.
#   fix_boot_test.sh VXR
# Exit status 77: skipped, for want of the tools.
set -u

vxr=$(realpath "$1")
PATH=$PATH:/usr/sbin:/sbin
for tool in sfdisk fdisk mkfs.ntfs mkfs.vfat ntfsfix ntfsls fsck.vfat; do
  command -v "$tool" >/dev/null && continue
  echo "skipped: there is no $tool; scripts/bootstrap installs it"
  exit 77
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failures=0

fail() {
  echo "FAILED: $*"
  sed 's/^/  out: /' out
  sed 's/^/  err: /' err
  failures=$((failures + 1))
}

# fix NAME STATUS PATTERN ARGUMENT...: a success says PATTERN on standard output alone, a failure in one line on
# standard error alone.
fix() {
  local name=$1 status=$2 pattern=$3 got said=out quiet=err
  shift 3
  "$vxr" fix-boot "$@" >out 2>err </dev/null
  got=$?
  [[ $got -eq $status ]] || fail "$name: exit status $got, not $status"
  [[ $status -eq 0 ]] || { said=err quiet=out; }
  grep -qE -- "$pattern" "$said" || fail "$name: no \"$pattern\""
  [[ ! -s $quiet && ($status -eq 0 || $(wc -l <err) -eq 1) ]] || fail "$name: it says too much"
}

# run WORD...: a tool of others, quiet unless it fails.
run() {
  "$@" >tool.log 2>&1 && return
  echo "FAILED: $*"
  sed 's/^/  /' tool.log
  exit 1
}

# make_volume FILESYSTEM BYTES FIRST SECTORS: the file `volume`, right for 255 heads and 63 sectors a track. For FAT,
# mkfs.vfat counts in blocks of 1 KiB.
make_volume() {
  rm -f volume
  if [[ $1 == ntfs ]]; then
    truncate -s $(($4 * $2)) volume
    run mkfs.ntfs -F -Q -q -s "$2" -p "$3" -H 255 -S 63 volume
  else
    run mkfs.vfat -F 32 -s 1 -S "$2" -g 255/63 -h "$3" -C volume $(($4 * $2 / 1024))
  fi
}

# check_volume TOOL...: what the tool says of the disk's volume alone.
check_volume() {
  rm -f extracted
  run dd if=disk of=extracted bs="$bytes" skip="$first" count="$sectors" conv=sparse status=none
  run "$@" extracted
}

# make_disk ENTRY TYPE: the file `disk` with `volume` as its active partition in that entry.
make_disk() {
  rm -f disk
  truncate -s $(((first + sectors + 64) * bytes)) disk
  if [[ $bytes -eq 512 ]]; then
    run sfdisk -q --no-reread --no-tell-kernel disk <<TABLE
label: dos
disk$1: start=$first, size=$sectors, type=$2, bootable
disk$(($1 % 4 + 1)): start=$((first + sectors)), size=63, type=83
TABLE
  else
    printf '%s\n' o n p "$1" "$first" "+$((sectors - 1))" t "$2" a w >commands
    run fdisk -b "$bytes" -w never -W never disk <commands
  fi
  run dd if=volume of=disk bs="$bytes" seek="$first" conv=sparse,notrunc status=none
}

# put OFFSET VALUE SIZE: little-endian, into the disk's boot sector.
put() {
  local i value=$2
  for ((i = 0; i < $3; i++)); do
    printf '%b' "\\x$(printf %02x $((value & 255)))"
    value=$((value >> 8))
  done | dd of=disk bs=1 seek=$((first * bytes + $1)) conv=notrunc status=none
}

# Where the disk differs from another, as offsets in its boot sector. Of a large disk the hole before the partition is
# passed over, all but its beginning, where an offset cut to 32 bits would lead.
differences() {
  local start=$((first * bytes))
  cmp -l -n $((start < 4 << 20 ? start : 4 << 20)) disk "$1" | awk '{ print "byte " $1 - 1 " of the disk" }'
  cmp -l -i "$start" disk "$1" | awk '{ print $1 - 1 }'
}

expect_differences() {
  local found
  found=$(differences "$2" | tr '\n' ' ')
  [[ $found == "$3" ]] || fail "$1: the disk differs at \"$found\", not at \"$3\""
}

# check FILESYSTEM BYTES FIRST SECTORS ENTRY TYPE
check() {
  local name="$1, $2 bytes, sector $3, entry $5" filesystem=$1 total='[0-9]+ -> [0-9]+  set'
  local whole=(fsck.vfat -n) usable=(fsck.vfat -n)
  # NTFS keeps a copy of its boot sector in its last sector, which stays as it is: ntfsfix wants the two to be the same.
  if [[ $1 == ntfs ]]; then whole=(ntfsfix -n) usable=(ntfsls); fi
  bytes=$2 first=$3 sectors=$4
  make_volume "$1" "$2" "$3" "$4"
  make_disk "$5" "$6"
  cp --sparse=always disk right
  local modified after
  modified=$(stat -c %y disk)
  fix "$name: right" 0 'Nothing had to be changed' disk --geometry "1044,255,63,$bytes"
  after=$(stat -c %y disk)
  [[ $after == "$modified" ]] || fail "$name: written without need"
  grep -q "entry $5, type 0x${6^^} .*, $sectors sectors from sector $first," out || fail "$name: another partition"
  expect_differences "$name: right" right ''

  put 24 17 2
  put 26 15 2
  put 28 64 4
  if [[ $filesystem == ntfs ]]; then put 40 $((sectors + 5)) 4; else total='not kept there'; fi
  fix "$name: damaged" 0 "Total sectors +$total" disk --geometry "1044,255,63,$bytes"
  grep -q "Hidden sectors  *64 -> $first  set" out || fail "$name: the hidden sectors are not told"
  expect_differences "$name: damaged" right ''
  check_volume "${whole[@]}"

  fix "$name: another disk" 0 '^Heads +255 -> 128  set' disk --geometry "2000,128,32,$bytes"
  expect_differences "$name: another disk" right '24 26 '
  check_volume "${usable[@]}"
}

bytes=512
check ntfs 512 2048 8192 1 07
check ntfs 512 63 8192 2 07
check vfat 512 2048 81920 3 0c
check vfat 512 4096 81920 4 0b
check ntfs 4096 256 4096 3 07
check vfat 4096 256 70000 1 0c
check ntfs 512 16777216 8192 4 07

# --- A disk of a described machine, and names that need care in one
bytes=512 first=2048 sectors=8192
make_volume ntfs $bytes $first $sectors
make_disk 1 7
cp --sparse=always disk right
put 26 16 2
cat >machine.toml <<'TOML'
[system]
system_directory = 'X:\Windows\System32'
windows_directory = 'X:\Windows'
os = { major = 6, minor = 1 }
[[drive]]
root = 'X:\'
type = 'ramdisk'
path = '.'
[[disk]]
number = 3
image = 'disk'
geometry = { cylinders = 1044, heads = 255, sectors = 63, bytes = 512 }
TOML
fix "machine" 0 '^Disk ....PhysicalDrive3: 1044 cylinders' --machine machine.toml '\\.\PhysicalDrive3'
expect_differences "machine" right ''
fix "machine, no such disk" 1 'there is no such disk' --machine machine.toml '\\.\PhysicalDrive4'
fix "no machine" 2 'nowhere.toml: ' --machine nowhere.toml '\\.\PhysicalDrive3'
odd=$'a "b\\c\nd'
cp --sparse=always disk "$odd"
fix "odd name" 0 'Nothing had to be changed' "$odd" --geometry 1044,255,63,512
ln -s "$work/disk" link
fix "link" 0 'Nothing had to be changed' link --geometry 1044,255,63,512

# --- What cannot be repaired stays as it is
# refuse NAME PATTERN COMMAND...: the disk as the command makes it.
refuse() {
  local name=$1 pattern=$2
  shift 2
  cp --sparse=always right disk
  put 26 16 2
  "$@"
  cp --sparse=always disk damaged
  fix "$name" 1 "$pattern" disk --geometry 1044,255,63,512
  cmp -s disk damaged || fail "$name: the disk was changed"
}
# shellcheck disable=SC2317  # they are called by refuse
activate() { run sfdisk -q --no-reread --no-tell-kernel -A disk "$@"; }
# shellcheck disable=SC2317
type_of() { run sfdisk -q --no-reread --no-tell-kernel --part-type disk 1 "$1"; }
refuse "none active" 'no partition is active' activate -
refuse "Linux" 'type 0x83, which is not Windows' type_of 83
refuse "GPT" 'no partition is active' run sfdisk -q --no-reread --no-tell-kernel --label gpt disk <<<'start=2048, size=8192'
refuse "no boot sector" 'no boot sector 1,048,576 bytes into the disk' put 510 0 2
refuse "short disk" 'the disk is too short' truncate -s $((2048 * 512)) disk
refuse "empty disk" 'first sector cannot be read' truncate -s 0 disk
refuse "no disk" 'no master boot record' dd if=/dev/zero of=disk bs=512 count=1 conv=notrunc status=none

# --- Usage
fix "neither" 2 'with --machine, or .* --geometry; see vxr fix-boot --help' disk
fix "both" 2 'excludes' disk --machine machine.toml --geometry 1,1,1,512
fix "missing image" 1 'nothing-there: .*; give a disk image' nothing-there --geometry 1,1,1,512
fix "no disk" 2 'disk: an empty text' '' --geometry 1,1,1,512
fix "directory" 1 'is a directory' . --geometry 1,1,1,512
for wrong in 1,1,1 1,1,1,512,1 1,x,1,512 1,,1,512 1,1,-1,512 0,1,1,512 1,65536,1,512 1,1,0,512 1,1,1,256 1,1,1,513 \
  1,1,1,131072 ' 1,1,1,512' 1,1,1,0x200 9223372036854775808,1,1,512; do
  fix "geometry \"$wrong\"" 2 '^vxr: --geometry: .*; see vxr fix-boot --help$' disk --geometry "$wrong"
done

[[ $failures -eq 0 ]] && echo "all passed"
exit $((failures > 0))
