#!/usr/bin/env bash
# vxr.exe under Wine: the commands of the described machines, without a machine to name; and every query, answered as the
# vxr of this system does.
#   windows_command_line_test.sh BUILD WINE VXR SOURCE
set -u

native=$3
source=$4
. "$(dirname "$0")/support/windows_host.sh"
export LC_ALL=C.UTF-8 # of the file names below

registry add 'HKLM\SOFTWARE\Varnelt\Halcyra' /v HCDIR /d "$windows\\product"
printf '[Version]\nSignature = "$Windows NT$"\nProvider = Maker\n' >"$work/größe.inf"
cd "$work" || exit 1

# Exit status, a pattern of the output or, when nothing is on standard output, of the complaint, arguments.
while IFS='|' read -r status pattern words; do
  # shellcheck disable=SC2086
  "$wine" "$build/vxr.exe" $words >out 2>err </dev/null
  got=$?
  [[ -s out ]] || grep '^vxr: ' err >out
  [[ $got -eq $status ]] || fail "vxr $words: exit status $got, not $status"
  tr -d '\r' <out | grep -qE -- "$pattern" || fail "vxr $words: no \"$pattern\" in: $(cat out err)"
done <<'CASES'
0|^vxr [0-9]|--version
2|--job is required; see vxr run --help|run
2|--machine: unknown option|run --machine m.toml --job 1
2|--geometry: unknown option|fix-boot disk.img --geometry 1,1,1,512
0|^größe.bme: 80,332 bytes, hot|create größe.bme --includes Ä.ini
0|Listed in Ä.ini|create größe.bme --includes Ä.ini
2|would replace größe.bme|create größe.bme --map größe.bme
9|no such directory|create nowhere\x.bme
0|^größe.bme$|show größe.bme
0|^[A-Za-z0-9-]+$|query größe.bme network Name
0|^Provider = Maker$|inf größe.inf
1|fehlt.inf is missing|inf fehlt.inf
8|^ +Log: Z:.*.logs.dir.vxr-vxr-[0-9]*.log$|run --job 3
8|"log_file": "Z:|run --job 3 --json
1|PhysicalDrive99: there is no such disk|fix-boot \\.\PhysicalDrive99
CASES
iconv -f cp1252 Ä.ini | tr -d '\r' | grep -qxF "Item0=$windows\\größe.bme" ||
  fail "the includes file names no größe.bme"

# --- Every query, of the file of a machine with volumes and disks, which Wine has not
cp -r "$source/examples/protected-5.2-x64" machine
"$native" create --machine machine/machine.toml protected.bme >out 2>&1 || fail "vxr create: $(cat out)"
mkdir queries
# ask FILE VXR...: what one of the two says and its exit status.
ask() {
  local file=$1 status
  shift
  "$@" >"$file.out" 2>&1 </dev/null
  status=$?
  tr -d '\r' <"$file.out" >"$file"
  echo "exit status $status" >>"$file"
}
while read -r class item; do
  words="query protected.bme $class $item"
  case $class,$item in
    *,DiskCount) words+=' --volume 1' ;;
    *,Disk*) words+=' --volume 1 --driver controller' ;;
    *,VolIndex) words+=' --letter D' ;;
    *,VolCount | *,*VolInd | [!v]*) ;;
    *) words+=' --volume 1' ;;
  esac
  # shellcheck disable=SC2086
  ask "queries/$item.right" "$native" $words
  # shellcheck disable=SC2086
  ask "queries/$item" "$wine" "$build/vxr.exe" $words & # several at once, since each mostly waits
  [[ $(jobs -pr | wc -l) -le 4 ]] || wait -n
done < <(sed -nE '/Reference/d; s/^  VXREQV_([A-Z][A-Za-z]*),?.*/volume \1/p; s/^  VXREQS_([A-Za-z]*),.*/system \1/p' \
  "$source/include/vxrcore/bmext.h"; printf 'network Name\narchitect KernelType\narchitect HalType\n')
wait $(jobs -pr | grep -vx "$keeper")
for right in queries/*.right; do
  diff "$right" "${right%.right}" || fail "vxr (<) and vxr.exe (>) answer another ${right%.right}"
  [[ $(tail -n 1 "$right") == 'exit status 0' ]] || fail "no answer: $(cat "$right")"
done
[[ $(ls queries/*.right | wc -l) -eq 39 ]] || fail "not every query was asked: $(ls queries)"

[[ $failures -eq 0 ]] || exit 1
echo "all as expected"
