#!/usr/bin/env bash
# The example in C for authors of hosts, on a file with two volumes and on what is no extension file.
#   extension_example_test.sh LIST_VOLUMES MAKE_EXTENSION
set -eu

list_volumes=$1
make_extension=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$make_extension" "$work/two.bme" volumes=2 system_volume=1 \
  'vol0.mount=C:\' vol0.file_system=NTFS vol0.label=BOOT vol0.disks=0xFFFFFFFF \
  vol0.disk0.number=3 'vol0.disk0.disk.instance=IDE\DISK1' vol0.disk0.disk.svc.name=disk \
  vol0.disk0.disk.img.version=5.2.3790.0 'vol0.disk0.disk.inf.name=C:\W\inf\disk.inf' \
  'vol0.disk0.ctrl.instance=PCIIDE\IDECHANNEL' vol0.disk0.ctrl.svc.name=atapi \
  'vol0.disk0.bus.instance=PCI\VEN_8086' vol0.disk0.bus.svc.name=intelide \
  vol0.disk1.number=4 'vol1.mount=D:\' vol1.file_system=FAT32
cat >"$work/expected" <<'TEXT'
Volume 0: C:\ NTFS BOOT
  on disk 3
    disk: IDE\DISK1
      service disk version 5.2.3790.0 from C:\W\inf\disk.inf
    controller: PCIIDE\IDECHANNEL
      service atapi
    bus extender: PCI\VEN_8086
      service intelide
  on disk 4
Volume 1: D:\ FAT32 (system)
TEXT
"$list_volumes" "$work/two.bme" >"$work/out"
diff "$work/expected" "$work/out"

"$make_extension" "$work/later.bme" version=2
head -c 1000 "$work/two.bme" >"$work/short.bme"
for file in later short missing; do
  if "$list_volumes" "$work/$file.bme" >"$work/out" 2>"$work/err"; then
    echo "FAILED: $file was listed"
    exit 1
  fi
  [[ ! -s $work/out && $(wc -l <"$work/err") -eq 1 ]]
done
echo "as expected"
