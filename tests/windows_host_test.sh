#!/usr/bin/env bash
# The example host under Wine: every line that it prints, the logs, the includes file; and the extension file that it
# made, read by vxr.exe and by a vxr of this system, against what the host asked Windows itself.
#   windows_host_test.sh BUILD WINE VXR
set -u

native=$3
. "$(dirname "$0")/support/windows_host.sh"
export LC_ALL=C

# --- What the host finds
mkdir "$work/drivers"
printf '[debugging]\r\nvxrcore=4\r\n' >"$work/product/master.ini"
printf '[C]\r\nDeviceName=Backup of C\r\n' >"$work/map.ini"
printf '[Files]\r\nItem0=data\r\n[BMExtension]\r\nItem0=old\r\n' >"$work/includes.ini"
touch "$work/drivers/fast.sys"

# driver NAME MODELS ID: an INF file with one driver.
driver() {
  cat >"$work/drivers/$1.inf" <<INF
[Version]
Signature = "\$Windows NT\$"
Class = SCSIAdapter
ClassGuid = {4D36E97B-E325-11CE-BFC1-08002BE10318}
Provider = Maker
[Manufacturer]
Maker = Models, NTamd64
[$2]
"Fast adapter" = Install, $3
[Install]
CopyFiles = @$1.sys
[Install.Services]
AddService = fast, 2, Service
[Service]
ServiceType = 1
StartType = 0
ErrorControl = 1
ServiceBinary = %12%\\$1.sys
INF
}
driver fast Models.NTamd64 'PCI\VEN_1000&DEV_0030'
driver later Models.NTamd64.10.0 'PCI\VEN_1000&DEV_0030'
driver nofile Models.NTamd64 'PCI\VEN_1000&DEV_0030'
driver other Models.NTamd64 'PCI\VEN_1000&DEV_0031'
echo 'no INF file' >"$work/drivers/text.inf"

"$wine" "$build/host.exe" "$windows" 2>"$work/err" | tr -d '\r' >"$work/out"
status=${PIPESTATUS[0]}
[[ $status -eq 0 ]] || fail "host: exit status $status: $(cat "$work/err")"

# --- Its lines; times, sizes, and what tells of this system are compared further on
value() { sed -n "s/^system: \(.* \)\{0,1\}$1 \([^ ]*\).*/\2/p" "$work/out"; }
answer() { sed -n "s/^query: $1: \"\{0,1\}\([^\"]*\)\"\{0,1\}$/\1/p" "$work/out"; }

job=$'settings: SOFTWARE\\Varnelt\\Relmar\\7 '
cat >"$work/expected" <<LINES
settings: SOFTWARE\\Varnelt\\Halcyra HCDIR = $windows\\product
log window: *** Varnelt VXRCORE LOG STARTS:#:[L=04:F=00000003:$windows\\product\\logs.dir\\host-vxr-#.log]
log: VXRDbg_Initialize: 1
log: VXREng_FileExists: 1
log window: ERROR:VXREng_FileExists:FindFirstFile():failed!ec=2:0x00000002:msg=$windows\\no such file
log: VXREng_FileExists, a missing file: 0
log window: host:VXRDbg_SetLevel:setting level = 0x00000000
log window: *** Varnelt VXRCORE LOG ENDS:#:[L=00:F=00000003:$windows\\product\\logs.dir\\host-vxr-#.log]
log: VXRDbg_Cleanup: 1
log: log of # bytes
log: started again, # bytes
log: log kept
engine: VXREng_Initialize: 1
engine: VXREng_Cleanup: 1
engine: log kept
create: VXREng_CreateBMExtFile: 0
create: log kept
query: log kept
${job}Disk = \\\\.\\PhysicalDrive0
${job}BootPart = \\\\.\\PhysicalDrive0\\Partition1
${job}RootPath = R:\\
${job}OSVerMaj = 5
${job}OSVerMin = 2
${job}HAL = 9
${job}HardwareID = PCI\\VEN_1000&DEV_0030
${job}InfDir = $windows\\drivers\\fast.inf
check: PCI\\VEN_1000&DEV_0030 in fast.inf: 0
${job}InfDir = $windows\\drivers\\later.inf
check: PCI\\VEN_1000&DEV_0030 in later.inf: 58
${job}InfDir = $windows\\drivers\\nofile.inf
check: PCI\\VEN_1000&DEV_0030 in nofile.inf: 58
${job}InfDir = $windows\\drivers\\other.inf
check: PCI\\VEN_1000&DEV_0030 in other.inf: 58
${job}InfDir = $windows\\drivers\\text.inf
check: PCI\\VEN_1000&DEV_0030 in text.inf: 58
check: log kept
${job}Disk = \\\\.\\PhysicalDrive0
${job}BootPart = \\\\.\\PhysicalDrive0\\Partition1
${job}RootPath = R:\\
${job}InfDir = $windows\\drivers
status: Initializing Vexmorph engine for driver files verification...
status: Found Bare Metal extension with Magic = 0x654d6248 Version = 0x00000001
status: Looking for the restored system volume...
status: Check only, bypass mounting the restored volume...
status: Loading the original registry hive from the restored volume...
status: Check only, bypass loading the original registry hive...
status: Unloading the original registry hive...
status: Successfully finished Vexmorph for driver files verification!
verify: VXREng_RunVXR: 0
verify: log kept
boot sector: VXREng_FixBootVolume: 0
boot: log kept
LINES
sed -E '/^(load|system|query: .* .*):/d; s/(LOG (STARTS|ENDS)):[0-9/:@]*:/\1:#:/; s/-vxr-[0-9]{8}\./-vxr-#./
  s/^(log: .*) [0-9]+ bytes$/\1 # bytes/' "$work/out" >"$work/printed"
diff "$work/expected" "$work/printed" || fail "host.exe prints (>) other lines than expected (<)"

# --- The logs
sizes=$(sed -n 's/^log: .* \([0-9]*\) bytes$/\1/p' "$work/out" | tr '\n' ' ')
read -r first again <<<"$sizes"
[[ $again -gt 0 && $again -lt $first && $again -eq $(stat -c %s "$work/log.log") ]] ||
  fail "a log started again is not emptied: $sizes"
for log in log engine create query check verify boot; do
  [[ $(head -n 1 "$work/$log.log") == '*** Varnelt VXRCORE LOG STARTS:'* ]] || fail "$log.log: no first line"
  [[ $(tail -n 1 "$work/$log.log") == '*** Varnelt VXRCORE LOG ENDS:'* ]] || fail "$log.log: no last line"
  grep -q '___ENTER___' "$work/$log.log" && fail "$log.log: lines of level 5, of which master.ini says nothing"
done
# says LOG TIMES LINE
says() { [[ $(grep -cF "$3" "$work/$1.log") -eq $2 ]] || fail "$1.log: not $2 times: $3"; }
says engine 1 'CHECK:VXREng_Initialize:gpVXRParaBlock initailzed ok at '
says create 1 'CHECK:VXRDev_GetHalType:retrieved hardwareid =acpiapic_mp'
says create 1 'CHECK:VXRExt_BuildVXRVolumeHBM:C:\ --> Backup of C'
says create 1 "CHECK:VXRExt_CreateBMExtFile:succesffully updated $windows\\includes.ini with $windows\\machine.bme"
says check 5 "checking HardwareID PCI\\VEN_1000&DEV_0030 in $windows\\drivers..."
says check 5 ':_FINISH_'
says check 4 'error= 58.'
says verify 8 STMSG:
says verify 1 'CHECK:VXREng_RunVXR:building vxr devices...'
says boot 1 'CHECK:VXREng_FixBootVolume:opening disk \\.\PhysicalDrive99...'
says boot 1 'ERROR:VXREng_FixBootVolume:CreateFile():failed!ec='

# --- The includes file
printf '[Files]\nItem0=data\n[BMExtension]\nItem0=%s\\machine.bme\nItemCount=1\n' "$windows" >"$work/expected"
tr -d '\r' <"$work/includes.ini" | grep . | diff "$work/expected" - || fail "the includes file is another"

# --- The extension file
"$wine" "$build/vxr.exe" show --json "$windows\\machine.bme" 2>"$work/err" | tr -d '\r' >"$work/shown" ||
  fail "vxr.exe show: $(cat "$work/err")"
[[ -x $native ]] || fail "there is no $native: build the native preset's vxr, or name another in VXR_NATIVE_PROGRAM"
"$native" show --json "$work/machine.bme" | diff <(sed 2d "$work/shown") <(sed 2d /dev/stdin) ||
  fail "vxr.exe (<) and the vxr of this system (>) show other things"
# same KEY TEXT: the value of a key that the document has once.
same() {
  local shown
  shown=$(sed -n "s/,$//; s/^ *\"$1\": \"\{0,1\}\([^\"]*\)\"\{0,1\}$/\1/p" "$work/shown")
  shown=${shown//\\\\/\\}
  [[ -n $2 && $shown == "$2" ]] || fail "$1 is recorded as \"$shown\", the system says \"$2\""
}
IFS=. read -r major minor number <<<"$(value version)"
IFS=. read -r pack pack_minor <<<"$(value pack)"
while read -r key text; do same "$key" "$text"; done <<VALUES
kind hot
major_version $major
minor_version $minor
build_number $number
platform_id $(value platform)
service_pack_major $pack
service_pack_minor $pack_minor
suite_mask $(value suite)
product_type $(value product)
physical_memory $(value memory)
processors $(value processors)
processor_architecture $(value architecture)
computer $(value computer)
computer $(answer 'network Name')
system_path $(value directory)
system_path $(answer 'system SystemPath')
windows_path $(answer 'system WindowsPath')
boot_media $(answer 'system BootMedia')
hal_type $(answer 'architect HalType')
kernel_type $(answer 'architect KernelType')
hal_type 3
volume_count $(answer 'volume VolCount')
VALUES
[[ $(answer 'system SysOs' | wc -c) -eq 129 ]] || fail "SysOs has not 64 bytes: $(answer 'system SysOs')"
while read -r root; do
  says create 1 "CHECK:VXRExt_BuildVXRVolumesHBM:checking mnpnt = $root..."
done < <(sed -n 's/^system: drive \(.*\) type 3$/\1/p' "$work/out")

load=$(sed -n 's/^load: best of [0-9]* loads and unloads: \([0-9.]*\) ms$/\1/p' "$work/out")
echo "loading and unloading takes ${load:-?} ms"
[[ -n $load && ${load%.*} -lt 10 ]] || fail "loading and unloading takes too long"

[[ $failures -eq 0 ]] || exit 1
echo "all as expected"
