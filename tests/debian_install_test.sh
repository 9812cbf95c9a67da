#!/usr/bin/env bash
# The Debian packages in a root of their own that holds, beside them, nothing but what they depend on: installed, used,
# taken away. Needs the superuser.
#   debian_install_test.sh SOURCE
set -u
source=$1
packages=$source/build/packages
. "$source/tests/support/hardening.sh"
. "$source/tests/support/pages.sh"
if [[ $EUID -ne 0 ]]; then
  echo "skipped: only the superuser can change the root"
  exit 77
fi
# What is mounted in the root is not seen outside, and goes with the test.
if [[ -z ${VXR_OWN_MOUNTS:-} ]]; then
  unshare -m true || { echo "skipped: no mounts of its own are allowed here"; exit 77; }
  VXR_OWN_MOUNTS=1 exec unshare -m "$0" "$@"
fi
work=$(mktemp -d)
root=$work/root
trap 'umount "$root/proc" 2>/dev/null; rm -rf --one-file-system "$work"' EXIT
failures=0
export LC_ALL=C.UTF-8

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# --- The root: the packages that ours need, and that those need, as this system has them; and what scripts of packages
# may rely on everywhere
names=$(for package in "$packages"/*.deb; do dpkg-deb -f "$package" Depends; done |
  tr ',|' '\n' | awk '{ print $1 }' | grep -v vxr | sort -u)
# shellcheck disable=SC2086
names=$(apt-cache depends --recurse --installed --important $names dash libc-bin | grep '^[a-z]' | sort -u)
[[ $names == *libc6* ]] || { echo "FAILED: what the packages depend on is not known"; exit 1; }
mkdir -p "$root"/usr/{lib,lib64,bin,sbin} "$root"/var/lib/dpkg/{info,updates} "$root"/{tmp,etc,proc}
ln -s usr/lib usr/lib64 usr/bin usr/sbin "$root"
for name in $names; do
  dpkg-query -s "$name"
  echo
done >"$root/var/lib/dpkg/status"
# shellcheck disable=SC2086
dpkg-query -L $names | sort -u | while read -r file; do [[ ! -d $file || -L $file ]] && echo "$file"; done |
  grep -v '^/usr/share/' | tar -C / --no-recursion -cf - -T - 2>/dev/null |
  tar -C "$root" --keep-directory-symlink -xf - || fail "the root was not made"

# The library opens files by their descriptors.
mount -t proc proc "$root/proc" || fail "/proc was not mounted"

dpkg --root="$root" --install "$packages"/*.deb >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }

# --- The command line, its pages and completion
version=$(sed -n 's/^project(vxrcore VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
examples=$root/usr/share/doc/libvxrcore-dev/examples
# A program that obeyed VXR_FAULTS, which what is installed must not, would refuse this plan and open no machine.
in_root() { env -i VXR_FAULTS=nonsense "$(command -v chroot)" "$root" "$@"; }
machine() { rm -rf "$root/tmp/machine" && cp -r "$examples/scsi-6.1-x64" "$root/tmp/machine"; }
[[ $(in_root vxr --version) == *"$version"* ]] || fail "vxr does not run, or is not $version"
machine
in_root vxr run --machine /tmp/machine/machine.toml --job 7 >"$work/log" || { cat "$work/log"; fail "vxr run"; }
in_root vxr show --code-page 932 /tmp/machine/ram/machine.bme >"$work/log" || fail "vxr show: code page 932"
for command in '' $(in_root vxr --help | sed -n '/^Subcommands:/,$s/^  \([a-z-]*\) .*/-\1/p'); do
  [[ -s $root/usr/share/man/man1/vxr$command.1.gz ]] || fail "no manual page vxr$command"
done
for file in man/man5/vxr-machine.5.gz bash-completion/completions/vxr zsh/vendor-completions/_vxr \
  fish/vendor_completions.d/vxr.fish doc/vxr/docs/rescue.md doc/vxr/changelog.Debian.gz doc/vxr/copyright; do
  [[ -s $root/usr/share/$file ]] || fail "no $file"
done
page=$(grep -o '/usr/share/.*\.md' "$root/usr/share/doc/libvxrcore-dev/README.Debian")
[[ -s $root$page && ! -e $examples/host ]] || fail "libvxrcore-dev points at no page for hosts, or has the example for Windows"
while read -r line; do fail "$line"; done < <(dangling_links "$root/usr/share"
  for file in "$root/usr/bin/vxr" "$root"/usr/lib/*/libvxrcore.so.0; do lacks_hardening "$file"; done)

# --- Hosts, built with what is installed there, in strict C99, and run there
libraries=$(dirname "$(ls "$root"/usr/lib/*/libvxrcore.so.0)")
export PKG_CONFIG_LIBDIR=$libraries/pkgconfig PKG_CONFIG_SYSROOT_DIR=$root PKG_CONFIG_ALLOW_SYSTEM_CFLAGS=1 \
  PKG_CONFIG_ALLOW_SYSTEM_LIBS=1
# shellcheck disable=SC2046
build() {
  cc -std=c99 -pedantic-errors -Wall -Wextra -Werror "$examples/$1" -o "$root/tmp/$2" $(pkg-config --cflags --libs vxrcore)
}
build extension-file/list_volumes.c list_volumes || fail "pkg-config: list_volumes"
build linux-host/host.c pkg_config_host || fail "pkg-config: host"
{
  cmake -S "$examples/linux-host" -B "$work/cmake" -Dvxrcore_DIR="$libraries/cmake/vxrcore" &&
    cmake --build "$work/cmake" && cp "$work/cmake/host" "$root/tmp/cmake_host"
} >"$work/log" 2>&1 || { cat "$work/log"; fail "find_package"; }

# As the page says; only the last line is of a program that needs the root to run in.
mkdir "$root/tmp/page" && cp "$examples/linux-host/host.c" "$root/tmp/page"
while read -r line; do
  (cd "$root/tmp/page" && eval "${line// \/usr\// $root/usr/}") >"$work/log" 2>&1 || { cat "$work/log"; fail "$line"; }
done < <(page_command "$source/docs/linux-host.md" 'cc -std=c99 host.c'
  page_command "$source/docs/linux-host.md" 'cp -r /usr/share/'
  page_command "$source/docs/linux-host.md" 'cc -std=c99 examples')
in_root sh -c "cd /tmp/page && $(page_command "$source/docs/linux-host.md" './host ')" >"$work/log" ||
  { cat "$work/log"; fail "the page's host"; }

in_root /tmp/list_volumes /tmp/machine/ram/machine.bme >/dev/null || fail "list_volumes"
for host in pkg_config_host cmake_host; do
  machine
  in_root "/tmp/$host" /tmp/machine/machine.toml 7 >"$work/log" || fail "$host: $?"
  grep -q '^inject   0: 5 files, 8 values$' "$work/log" || { cat "$work/log"; fail "$host: another injection"; }
done

in_root /tmp/pkg_config_host /tmp/machine/machine.toml 7x >"$work/log" 2>&1
[[ $? -eq 2 && $(<"$work/log") == usage:* ]] || fail "host: 7x is taken for a job"
machine
truncate -s 5000 "$root/tmp/machine/restored/Windows/System32/config/SYSTEM"
in_root /tmp/pkg_config_host /tmp/machine/machine.toml 7 >"$work/log"
[[ $? -eq 4 ]] && grep -q '^failed .*too short' "$work/log" || { cat "$work/log"; fail "host: a refused hive is not told"; }

# --- Nothing tells where the packages were made, and nothing stays behind
mapfile -t ours < <(dpkg-query --admindir="$root/var/lib/dpkg" -L vxr libvxrcore0 libvxrcore-dev | sort -u)
for file in "${ours[@]}"; do
  [[ -f $root$file ]] && grep -qF "$source" "$root$file" && fail "$file names the folder it was built in"
done
dpkg --root="$root" --purge vxr libvxrcore-dev libvxrcore0 >"$work/log" 2>&1 || { cat "$work/log"; fail "purge"; }
left=$(find "$root/usr" "$root/etc" -iname '*vxr*')
[[ -z $left ]] || fail "left behind: $left"
[[ $failures -eq 0 ]] && echo "$(wc -w <<<"$names") packages beside ours (${#ours[@]} files and folders): passed"
exit $((failures > 0))
