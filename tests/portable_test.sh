#!/usr/bin/env bash
# The portable program, in a root directory that holds nothing but it and the C library.
#   portable_test.sh SOURCE
set -u

if [[ $EUID -ne 0 ]]; then
  echo "skipped: only root can change its root directory"
  exit 77
fi
# Mounts made here are gone with the test.
if [[ -z ${VXR_OWN_MOUNTS:-} ]] && unshare -m true 2>/dev/null; then
  VXR_OWN_MOUNTS=1 exec unshare -m "$0" "$@"
fi

source=$1
. "$source/scripts/quietly.sh"
. "$source/tests/support/hardening.sh"
. "$source/tests/support/pages.sh"
work=$(mktemp -d)
trap 'umount -l "$work"/root/{proc,sys} 2>/dev/null; rm -rf --one-file-system "$work"' EXIT
failures=0
fail() {
  echo "FAILED: $*"
  sed 's/^/  /' "$work/out" | tail -n 15
  failures=$((failures + 1))
}

(cd "$source" && quietly eval "$(page_command "$source/docs/portable.md" 'cmake --preset portable')") || exit 1
version=$(sed -n 's/^project(vxrcore VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
name=vxr-$version-linux-$(uname -m)
root=$work/root
mkdir -p "$root"/{proc,sys,tmp}
cd "$source/build/packages" && sha256sum --quiet -c "$name.tar.gz.sha256" && cp "$name.tar.gz" "$root/tmp" &&
  tar xzf "$name.tar.gz" -C "$root" && cd "$root/tmp" || exit 1
eval "$(page_command "$source/docs/portable.md" 'tar xzf ')" >"$work/out" 2>&1 || fail "the page's command"
while read -r line; do fail "$line"; done < <(dangling_links "$root/$name")
vxr=$root/$name/vxr

readelf -d "$vxr" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' >"$work/out"
! grep -vE '^(ld-linux-x86-64\.so\.2|lib(c|m|dl|pthread|rt)\.so\.[0-9])$' "$work/out" || fail "needs more than the C library"
objdump -T "$vxr" | grep -o 'GLIBC_[0-9.]*' | sort -uV | tail -n 1 >"$work/out"
newest=$(<"$work/out")
grep -qF "glibc ${newest#GLIBC_}" "$source/docs/portable.md" || fail "docs/portable.md names another C library than $newest"
nm "$vxr" >"$work/out" 2>&1
grep -q 'no symbols' "$work/out" || fail "is not stripped"
while read -r line; do fail "$line"; done < <(lacks_hardening "$vxr")
for linked in hivex tomlplusplus nettle json cli11 gcc-runtime; do
  [[ -s $root/$name/licences/$linked.txt ]] || fail "no licence of $linked"
done
[[ -s $root/$name/man/man1/vxr.1.gz ]] || fail "no manual page"

ldd "$vxr" | grep -o '/[^ ]*' | while read -r library; do
  install -D "$library" "$root$library"
done

# shows NAME PATTERN ARGUMENT...: exit status 0, and PATTERN in the output. A program that obeyed VXR_FAULTS, which
# what is installed must not, would refuse this plan and open no machine.
shows() {
  local name=$1 pattern=$2
  shift 2
  VXR_FAULTS=nonsense chroot "$root" "/${vxr#"$root/"}" "$@" >"$work/out" 2>&1 || fail "$name: exit status $?"
  grep -qE -- "$pattern" "$work/out" || fail "$name: no \"$pattern\" in the output"
}

shows version "^vxr ${version//./\\.} \(library linked in, [A-Za-z]+, Linux $(uname -m)\)$" --version
cat <<'INF' | iconv -f UTF-8 -t CP932 >"$root/tmp/oem.inf"
[Version]
Signature="$Windows NT$"
Provider=%Maker%
[Strings]
Maker="表示ディスク"
INF
shows 'code page 932' '表示ディスク' inf --code-page 932 /tmp/oem.inf

# The examples come with all that their page tries on them.
while read -r line; do
  (cd "$root/$name/examples" && PATH=$root/$name:$PATH && eval "$line") </dev/null >"$work/out" 2>&1 || fail "examples/README.md: $line"
done < <(page_commands "$source/examples/README.md")

# libhivex is given its files below /proc; disks are looked for below /sys.
if mount --bind /proc "$root/proc" 2>/dev/null && mount --rbind /sys "$root/sys" 2>/dev/null; then
  cp -r "$source/examples/raid-10.0-x64" "$root/tmp/machine"
  shows run '0: success \(driver files injection\)' run --machine /tmp/machine/machine.toml --job 10 --rules windows --record auto
  shows 'inject --list' '^Disks of this machine' inject --list
else
  echo "skipped: run and inject, since nothing may be mounted here"
fi

[[ $failures -eq 0 ]] || exit 1
echo "$name: $(stat -c %s "$vxr") bytes, needs glibc ${newest#GLIBC_}; packed $(stat -c %s "$root/tmp/$name.tar.gz") bytes"
