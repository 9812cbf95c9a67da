# Sourced: disks with a made-up Windows on NTFS, made and read without mounting anything.

# A disk is an MBR, then at this byte its one partition.
volume_start=1048576 volume_size=$((40 * 1048576))

# make_tree VERSION FOLDER: a restored system of Windows 6.1 or 10.0, from those of the examples.
make_tree() {
  if [[ $1 == 10.0 ]]; then
    cp -r examples/raid-10.0-x64/restored "$2"
  else
    cp -r examples/scsi-6.1-x64/restored "$2"
    tests/support/make_driver.sh --signed "$2/Windows/System32/ntoskrnl.exe" 6.1.7601.24214 'Kernel and system' Generic
  fi
}

# make_volume TREE OUT
make_volume() {
  rm -f "$2" "$2.wim"
  truncate -s $volume_size "$2"
  quietly mkntfs -Q -F -s 512 -p $((volume_start / 512)) -H 255 -S 63 -L Windows "$2"
  quietly wimcapture "$1" "$2.wim" --compress=none
  quietly wimapply "$2.wim" 1 "$2"
  rm "$2.wim"
}

# make_disk VOLUME NAME OUT: a copy of the volume, which holds its name in a file, on a disk.
make_disk() {
  local signature
  signature=$(cksum <<<"$2" | cut -d' ' -f1)
  rm -f "$3"
  truncate -s $((volume_start + volume_size + 1048576)) "$3"
  printf 'label: dos\nlabel-id: 0x%08x\nstart=%d, size=%d, type=7, bootable\n' "$signature" $((volume_start / 512)) \
    $((volume_size / 512)) | sfdisk -q --no-reread --no-tell-kernel "$3"
  cp "$1" "$3.volume"
  echo "$2" >"$3.name"
  quietly ntfscp -f "$3.volume" "$3.name" live-name
  dd if="$3.volume" of="$3" bs=1M seek=$((volume_start / 1048576)) conv=notrunc,sparse status=none
  rm "$3.volume" "$3.name"
}

# read_disk DISK FOLDER: all files of its volume.
read_disk() {
  rm -rf "$2" "$2.volume" "$2.wim"
  dd if="$1" of="$2.volume" bs=1M skip=$((volume_start / 1048576)) count=$((volume_size / 1048576)) conv=sparse \
    status=none
  mkdir "$2"
  quietly wimcapture "$2.volume" "$2.wim" --compress=none
  quietly wimapply "$2.wim" 1 "$2"
  rm "$2.volume" "$2.wim"
}
