# Sourced: fetches Debian's kernel, and makes the file system that it starts with. Nothing is installed.

# fetch_kernel FOLDER: unpacks the package of the newest kernel that this Debian has, once.
fetch_kernel() {
  local folder=$1 package
  [[ -f $folder/done ]] && return
  rm -rf "$folder"
  mkdir -p "$folder"
  package=$(apt-cache depends linux-image-amd64 2>/dev/null | awk '$1 == "Depends:" {print $2; exit}')
  if [[ -z $package ]] || ! (cd "$folder" && quietly apt-get -q download "$package"); then
    echo "live: Debian's kernel could not be downloaded; run apt-get update, and see above" >&2
    exit 1
  fi
  dpkg -x "$folder/$package"_*.deb "$folder"
  rm "$folder/$package"_*.deb
  quietly busybox depmod -b "$folder" "${package#linux-image-}"
  touch "$folder/done"
}

# What loads everything that a rescue system's disks need: controllers, disks, USB, NTFS by the kernel or by a program.
modules=(
  ata_piix ahci sd_mod nvme virtio_pci virtio_blk virtio_scsi megaraid_sas vmw_pvscsi sym53c8xx am53c974
  xhci_pci usb_storage loop dm_mod linear fuse ntfs3
)

# list_modules FOLDER: the files of the modules, each behind those that it needs, without those that the kernel lacks.
list_modules() {
  awk -v wanted="${modules[*]}" '
    function add(file,   count, list, at) {
      if (file in added) return
      added[file] = 1
      count = split(needs[file], list, " ")
      for (at = 1; at <= count; ++at) add(list[at])
      print file
    }
    {
      file = $1; sub(":", "", file)
      name = file; sub(".*/", "", name); sub("[.]ko.*", "", name); gsub("-", "_", name)
      place[name] = file
      needs[file] = substr($0, index($0, ":") + 1)
    }
    END {
      count = split(wanted, list, " ")
      for (at = 1; at <= count; ++at) if (list[at] in place) add(place[list[at]])
    }' "$1"/lib/modules/*/modules.dep
}

# add_program ROOT PROGRAM [NAME]: into /bin, with the shared libraries that it needs; a static one needs none.
add_program() {
  local library
  install -D "$2" "$1/bin/${3:-$(basename "$2")}"
  for library in $(ldd "$2" 2>/dev/null | grep -o '/[^ ]*'); do
    [[ -f $1$library ]] || install -D "$library" "$1$library"
  done
}

# make_initramfs KERNEL PACK OUT: busybox, the kernel's modules, vxr, what mounts NTFS and joins disks, and
# the driver packages.
make_initramfs() {
  local kernel=$1 pack=$2 out=$3 root=$3.root file program
  rm -rf "$root"
  mkdir -p "$root"/{bin,dev,proc,sys,mnt,other,tmp,modules}
  install scripts/live/init "$root/init"
  install "$(command -v busybox)" "$root/bin/busybox"
  add_program "$root" "$vxr" vxr
  for program in "$(command -v ntfs-3g)" "$(command -v dmsetup)" "$(command -v mdadm)"; do
    add_program "$root" "$program"
  done
  for file in "${converters[@]}"; do
    [[ ! -f $file ]] || install -D "$file" "$root$file"
  done
  while read -r file; do
    cp "$kernel"/lib/modules/*/"$file" "$root/modules"
    basename "$file" >>"$root/modules/order"
  done < <(list_modules "$kernel")
  cp -r "$pack" "$root/pack"
  (cd "$root" && find . | cpio -o -H newc --quiet -R 0:0) >"$out"
}
