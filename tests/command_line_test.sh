#!/usr/bin/env bash
# The command line from outside, on copies of the example machines: exit statuses, where output goes, one clear line for
# each bad input, and that a verification leaves the restored system as it is.
#   command_line_test.sh VXR EXAMPLES MAKE_EXTENSION MAKE_HIVE FAULTY_VXR
set -u

vxr=$1
examples=$2
make_extension=$3
make_hive=$4
faulty_vxr=$5
source=$(cd "$(dirname "$0")/.." && pwd)
page=$source/docs/machine.md
. "$source/tests/support/pages.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
  echo "FAILED: $*"
  sed 's/^/  out: /' "$work/out" | tail -n 15
  sed 's/^/  err: /' "$work/err"
  failures=$((failures + 1))
}

run() {
  local program=$vxr
  [[ -z ${VXR_FAULTS:-} ]] || program=$faulty_vxr
  timeout 60 "$program" "$@" >"$work/out" 2>"$work/err" </dev/null
}

# expect NAME STATUS PATTERN ARGUMENT...: PATTERN is looked for on standard output when STATUS comes from a run, else on
# standard error, which must then be one line, with nothing on standard output.
expect() {
  local name=$1 status=$2 pattern=$3 got
  shift 3
  run "$@"
  got=$?
  [[ $got -eq $status ]] || fail "$name: exit status $got, not $status"
  if [[ ${1:-} == run && $status -ne 2 ]]; then
    grep -qE -- "$pattern" "$work/out" || fail "$name: no \"$pattern\" in the output"
  else
    grep -qE -- "$pattern" "$work/err" || fail "$name: no \"$pattern\" on standard error"
    [[ $(wc -l <"$work/err") -eq 1 && ! -s $work/out ]] || fail "$name: more than one line of complaint"
  fi
}

# shows NAME PATTERN ARGUMENT...: exit status 0, PATTERN on standard output, nothing on standard error.
shows() {
  local name=$1 pattern=$2
  shift 2
  run "$@" || fail "$name: exit status $?"
  grep -qE -- "$pattern" "$work/out" || fail "$name: no \"$pattern\" in the output"
  [[ ! -s $work/err ]] || fail "$name: something on standard error"
}

fresh() {
  rm -rf "$work/machine"
  cp -r "$examples/$1" "$work/machine"
  chmod -R u+w "$work/machine"
  machine=$work/machine/machine.toml
  hive=$(find "$work/machine" -ipath '*/config/system')
}

digest() { (cd "$work/machine/restored" && find . -type f -print0 | sort -z | xargs -0 sha256sum | sha256sum); }

# --- Usage
expect "no command" 2 'name a command; see vxr --help'
expect "unknown command" 2 'frobnicate: unknown' frobnicate
expect "no machine" 2 '--machine is required; see vxr run --help' run --job 1
expect "unknown option" 2 '^vxr: --machin: unknown option; see vxr run --help' run --job 1 --machin=m
expect "job is no number" 2 '--job = x is not a number' run --machine m --job x
expect "unknown code page" 2 'code page 7 is not known' inf --code-page 7 x
for words in --help --version 'run --help' 'run --version' 'inf --help' 'inf --version' 'show --help' 'query --help'; do
  # shellcheck disable=SC2086
  run $words && [[ -s $work/out && ! -s $work/err ]] || fail "vxr $words"
done

# --- The examples
for example in 'scsi-6.1-x64 7 nbstor.inf' 'ide-5.1-x86 3 idecore.inf'; do
  read -r name job inf <<<"$example"
  fresh "$name"
  before=$(digest)
  expect "$name, verification" 0 "from .*\\\\$inf" run --machine "$machine" --job "$job" --verify
  [[ $(digest) == "$before" ]] || fail "$name: the verification changed the restored system"
  expect "$name, injection" 0 "from .*\\\\$inf" run --machine "$machine" --job "$job"
  [[ $(digest) != "$before" ]] || fail "$name: the injection changed nothing"
  expect "$name, again as JSON" 0 '"result": 0,' run --machine "$machine" --job "$job" --json
  [[ $(head -c 1 "$work/out") == '{' && ! -s $work/err ]] || fail "$name: something beside the JSON document"
done

# The narrow rules read no folder below the named one, and know nothing of drivers that the restored system holds back.
for words in 'machine 10' 'machine-nvme 11' 'machine-sas 12'; do
  read -r name job <<<"$words"
  fresh raid-10.0-x64
  before=$(digest)
  run run --machine "${machine%/*}/$name.toml" --job "$job"
  [[ $? -eq 3 && $(digest) == "$before" ]] && grep -q 'no driver was set up' "$work/out" ||
    fail "raid-10.0-x64, $name: not refused, or changed"
done
# Named, the folder of the laboratory's driver serves.
fresh raid-10.0-x64
sed -i "s|X:.drivers'|X:\\\\drivers\\\\raid\\\\beta'|" "$machine"
expect "raid-10.0-x64, narrow" 0 'from .*\\beta\\twraid.inf' run --machine "$machine" --job 10

# By Windows' rules: a driver of a package, one that is held back.
for words in 'raid-10.0-x64 machine 10 taken .*w10.twraid.inf' \
  'raid-10.0-x64 machine-nvme 11 held back until now; an injection lets it start'; do
  read -r name file job pattern <<<"$words"
  fresh "$name"
  before=$(digest)
  by_windows=(--machine "${machine%/*}/$file.toml" --job "$job" --rules windows --record auto)
  expect "$name, $file, Windows' rules, verification" 0 "$pattern" run "${by_windows[@]}" --verify
  [[ $(digest) == "$before" ]] || fail "$name, $file: the verification changed the restored system"
  shows "$name, $file, Windows' rules" 'Hives' run "${by_windows[@]}"
  before=$(digest)
  run run "${by_windows[@]}" --json && grep -q '"held_back": false\|"own": null' "$work/out" ||
    fail "$name, $file: not served by what is there now"
  [[ $(digest) == "$before" ]] || fail "$name, $file: the second injection changed something"
done
fresh raid-10.0-x64
rm -r "$work"/machine/ram/drivers/raid/{w10,w7,beta}
expect "raid-10.0-x64, no driver" 3 'Mend what is said above' run --machine "$machine" --job 10 --rules windows
[[ $(grep -c 'w11.twraid.inf' "$work/out") -eq 1 ]] || fail "a refused INF file is not told once"
sed -i "s/^InfDir.*/&\nDriverRules = 'narrow'/" "$machine"
expect "raid-10.0-x64, unknown rules" 3 "The job's DriverRules is \"narrow\"" run --machine "$machine" --job 10

# --- Which driver would be taken: exit status, what is printed, arguments; @ is the pack
fresh raid-10.0-x64
pack=$work/machine/ram/drivers
ln -s "$examples/raid-10.0-x64/ram/drivers/raid/w10/twraid.inf" "$pack/link.inf"
mkfifo "$pack/pipe.inf"
rm "$pack/raid/w7/twraid.sys"
mkdir "$pack"/$'no\xff'
target='--target 10.0.19045-amd64'
id='PCI\VEN_1DEA&DEV_0A42&CC_0104'
while IFS='|' read -r status pattern words; do
  # shellcheck disable=SC2086
  run drivers ${words//@/$pack}
  [[ $? -eq $status ]] && cat "$work/out" "$work/err" | tr '\n' ' ' | grep -qE -- "$pattern" || fail "drivers $words: $pattern"
  ! grep -q '[A-Z]:\\' "$work/out" || fail "drivers $words: a path that nobody gave"
done <<CASES
0|taken +$pack/raid/w10/twraid.inf.*Cannot.*w11/|@ $target --id "$id"
0|no.: the folder cannot be read: its name is not UTF-8|@ $target --id "$id"
0|^9 INF files .*file-missing: The file twraid.sys of|@ @/raid @/raid/../ $target --id 1dea:0a42:1DEA:0001:02 0x010400
0|link.inf: it is a link that.*pipe.inf: it is a FIFO|@ $target --id $id
0|taken +$pack/raid/beta/twraid.inf.*missing: The file $pack/raid/w10/TWFLT.SYS is|@/raid/w10 @/raid/beta $target --id $id --rules exact
1|^0 INF files .*INF files there: 9|@ $target --id $id --rules exact
1|lists the device. Many list|@ $target --id 1DEA:0A42
0|"files": 9.*"refused": null.*"chosen": 0|@ $target --id $id --json
1|"candidates": \[\],  *"chosen": null|@ $target --id none --json
2|is a directory, where an id|@ $target --id $id @/raid
2|01x0: is no class|@ $target --id 1DEA:0A42 01x0
2|is neither an id|@ $target --id 1DEA:0A42:1DEA
2|is a PCI function, which|@ $target --id $id --compatible-id 1DEA:0A42
2|--json: is an option|@ $target --id --json
2|twraid.inf is no directory|@/raid/w10/twraid.inf $target --id $id
2|"x64" is no architecture|@ --target 10.0-x64 --id $id
CASES

# --- Errors as JSON: exit status, what the document says, arguments
mkfifo "$work/pipe"
truncate -s 1G "$work/large.inf"
cd "$work" || exit 1
while IFS='|' read -r status pattern words; do
  # shellcheck disable=SC2086
  run $words --json
  [[ $? -eq $status && $(head -c 1 out) == '{' && $(wc -l <err) -eq 1 ]] && grep -q "\"exit_status\": $status" out &&
    grep -qE "\"error\": \".*$pattern" out || fail "$words --json"
done <<'CASES'
2|--nosuch: unknown option|run --nosuch
2|. is a directory|run --job 7 --machine .
2|file is required|inf
1|is missing|inf none.inf
1|pipe is a FIFO|show pipe
1|large.inf is not a registry hive|hive large.inf
CASES
while IFS='|' read -r status pattern words; do
  eval "expect \"\$words\" $status '$pattern' $words"
done <<'CASES'
1|has 1,073,741,824 bytes, more than|inf large.inf
1|is not a registry hive|hive large.inf
1|pipe is a FIFO|hive pipe
1|large.inf is no undo folder|undo large.inf
1|missing cannot be found|undo missing
1|missing cannot be opened: .*; name the root|undo --list missing
2|name an undo folder, or a root with --list|undo
2|excludes|undo a --list b
2|root: an empty text|system ''
2|: an empty text: one argument too many|inf a ''
2|: an empty text: unknown|'' x
2|--id: an empty text|system . --id ''
1|is a FIFO|inf pipe
1|is a FIFO|query pipe volume Label
1|is a FIFO|fix-boot pipe --geometry 1,1,1,512
2|is a FIFO|run --machine pipe --job 7
CASES
cd "$OLDPWD" || exit 1

# --- Machine files
expect "machine missing" 2 'nowhere.toml: ' run --machine "$work/nowhere.toml" --job 7
fresh scsi-6.1-x64
echo 'x = = 3' >"$machine"
expect "not TOML" 2 'machine.toml:1: ' run --machine "$machine" --job 7
fresh scsi-6.1-x64
sed -i 's/^page_size/pagesize/' "$machine"
expect "unknown key" 2 'machine.toml:[0-9]+: .*pagesize' run --machine "$machine" --job 7
fresh scsi-6.1-x64
rm -r "$work/machine/ram"
expect "path missing" 2 'machine.toml:[0-9]+: drive.path' run --machine "$machine" --job 7

# utf8_inf FILE SCRIPT: the UTF-16 file as UTF-8, edited by sed.
utf8_inf() { iconv -f UTF-16 -t UTF-8 "$1" | sed "$2" >inf.new && mv inf.new "$1"; }

# --- Jobs and files: name, exit status, what the output says, how the machine is spoilt. A refused run changes nothing.
while IFS='|' read -r name status pattern spoil; do
  [[ -n $name ]] || continue
  fresh scsi-6.1-x64
  (cd "$work/machine" && eval "$spoil") || fail "$name: cannot be set up"
  before=$(digest)
  expect "$name" "$status" "$pattern" run --machine "$machine" --job 7
  [[ $status -eq 11 || $(digest) == "$before" ]] || fail "$name: the restored system was changed"
done <<'CASES'
job missing|8|settings are incomplete|sed -i 's/Relmar\\7/Relmar\\8/' machine.toml
RootPath missing|8|RootPath.*failed|sed -i '/^RootPath/d' machine.toml
extension missing|9|CreateFile.*machine.bme|rm ram/machine.bme
extension short|9|has 1000 bytes|truncate -s 1000 ram/machine.bme
extension of another kind|9|wrong bme head magic|printf XXXX | dd of=ram/machine.bme conv=notrunc status=none
hive missing|4|not mounted: does not exist|rm "$hive"
hive cut short|4|not mounted: is too short|truncate -s 5000 "$hive"
hive of zeroes|4|not mounted: is not a registry hive|head -c 32768 /dev/zero >"$hive"
hive dirty, its log gone|4|not mounted: was not closed cleanly .*no log beside it|"$make_hive" "$hive" dirty && rm "$hive".LOG1
no INF file|3|X:.drivers holds no INF file: put|rm ram/drivers/*.inf
INF files below|3|such as X:.drivers.a\.$|mkdir ram/drivers/a && mv ram/drivers/*.inf ram/drivers/a
InfDir missing|3|X:.drivers does not exist|rm -r ram/drivers
InfDir of the host|3|is a path of this computer|sed -i "s#^InfDir.*#InfDir = '/tmp/x'#" machine.toml
InfDir a file|3|nbstor.inf is no directory|sed -i 's/^InfDir.*drivers/&\\nbstor.inf/' machine.toml
no INF file that fits|3|no file here lists the device .X:.drivers and below|rm ram/drivers/nbstor.inf ram/drivers/longvale.inf
INF file of 10.0|3|longvale.*needs 10.0 exactly; the restored system is 6.1|rm ram/drivers/nbstor.inf
another bus|3|nvme.* is on neither an IDE nor a SCSI bus|sed -i 's/?.scsi#disk/?\\nvme#disk/; s/SCSI.Disk&Ven/NVME\\Disk\&Ven/' machine.toml
disk without parent|3|no controller stands above it|sed -i '/^parent = .PCI/d' machine.toml
controller of another class|3|is not of the class SCSIAdapter|sed -i "s/'SCSIAdapter'/'hdc'/" machine.toml
OSVerMaj missing|3|nor OSVerMaj says which Windows was restored|sed -i "s/^BMEFile.*/HAL = 9/; s/^RootPath.*/RootPath = 'D:\\\\Windows'/" machine.toml
named id|58|Reboot.*which this reading refuses|sed -i "s/^InfDir.*/InfDir = 'X:\\\\drivers\\\\nbstor.inf'\nHardwareID = 'PCI\\\\VEN_1000\&DEV_0030'/" machine.toml && utf8_inf ram/drivers/nbstor.inf 's/^CopyFiles/Reboot\n&/'
named file missing|58|is no file of the machine|sed -i "s/^InfDir.*/InfDir = 'X:\\\\none.inf'\nHardwareID = 'PCI\\\\VEN_1000'/" machine.toml
driver file missing|11|Failed to locate file .*NBSTOR.SYS|rm ram/drivers/nbstor.sys
boot disk unknown|0|The boot disk was not found|sed -i 's/PhysicalDrive0.$/PhysicalDrive9\x27/' machine.toml
a text for a number|3|HAL is the text "9", of which a run takes the first byte, 57|sed -i "/^BMEF/aHAL = '9'" machine.toml
HAL of another kind|3|is x86 by the job's HAL, the running machine is x64|sed -i '/^BMEF/aHAL = 0' machine.toml
CASES

# --- INF files that list the device and are not taken: reason in the JSON document, what is said, sed on one that fits
fresh scsi-6.1-x64
rm "$work"/machine/ram/drivers/*.inf
mkdir "$work/machine/ram/drivers/sub"
cat >"$work/fits.inf" <<'INF'
[Version]
Signature = "$Windows NT$"
ClassGUID = {4D36E97B-E325-11CE-BFC1-08002BE10318}
[Manufacturer]
Maker = Models, NTamd64
[Models.NTamd64]
Driver = Inst, PCI\VEN_1000&DEV_0030
[Inst]
CopyFiles = @nbstor.sys
[Inst.Services]
AddService = abc, 2, Svc
[Svc]
StartType = 0
INF
reasons=$(cat <<'CASES'
class|{4D36E972-|s/4D36E97B/4D36E972/
running_system|lists it for NTamd64 alone, which its [Manufacturer] line does not choose for the running system (x64)|s/^Maker.*/Maker = Models, NTx86/; s/.Inst.$/[Models.NTx86]\nOther = Inst, PCI\\VEN_1\n&/
restored_system|needs 6.2 exactly; the restored system is 6.1|s/NTamd64/NTamd64.6.2/
restored_system|for x86; the restored system is x64|s/NTamd64/NTx86/
restored_system|needs 6.0 exactly; the restored system is 6.1|s/NTamd64/NTamd64.6.0/
section_missing|its install section [Inst] is not there, or empty|/^.Inst.$/,+1d
directive|its install section has `Reboot`, which this reading refuses|s/^CopyF/Reboot\n&/
directive|its install section has `FeatureScore`,|s/^CopyF/FeatureScore = FE\n&/
directive_empty|`CopyFiles` in its install section has no value|s/^CopyFiles.*/CopyFiles =/
bare_line|its install section [Inst] ends in a line|s/^CopyF.*/&\na, b/
copy_section_missing|its list of files [List] is not there|s/@nbstor.sys/List/
file_name|is not the name of one file|s/@nbstor/@..\\nbstor/
file_missing|NBNONE.SYS is not beside it|s/nbstor/nbnone/
service_missing|its install section [Inst] adds no service|/Services/,+1d
service_section_missing|its service's section [Svc] is not there|/^.Svc/,$d
service_value|`LoadOrderGroup` of its service could not be|s/^StartType.*/LoadOrderGroup =/
unreadable|has no Signature of this style|/^Signature/d
CASES
)
n=10
while IFS='|' read -r _ _ script; do
  sed "$script" "$work/fits.inf" >"$work/machine/ram/drivers/$n.inf"
  n=$((n + 1))
done <<<"$reasons"
cp "$work/fits.inf" "$work/machine/ram/drivers/sub/below.inf"
run run --machine "$machine" --job 7 --json
cp "$work/out" "$work/json"
expect "INF files, in words" 3 'lies in a folder below' run --machine "$machine" --job 7
n=10
while IFS='|' read -r reason text _; do
  grep -qF -- "$text" <(grep -F "drivers\\$n.inf" "$work/out") || fail "$n.inf: not \"$text\""
  [[ $(grep -A2 "drivers..$n.inf" "$work/json" | sed -n 's/.*"reason": "\(.*\)",/\1/p') == "$reason" ]] || fail "$n.inf: not $reason"
  n=$((n + 1))
done <<<"$reasons"
# A driver is found by way of the first file that lists the device, and may come from a later one.
cp "$work/fits.inf" "$work/machine/ram/drivers/later.inf"
expect "driver of a later file" 11 '^      from X:.drivers.later.inf$' run --machine "$machine" --job 7

# --- A key beside the new service's that cannot be read: the library's own result is 0
fresh scsi-6.1-x64
LC_ALL=C sed -i 's/\x03\x00\x00\x00pci/\xFF\xFF\x00\x00pci/' "$hive"
before=$(sha256sum "$hive")
expect "hive damaged" 4 'Services.nbstor: the key was not created: the hive is damaged' run --machine "$machine" --job 7
grep -q 'not saved: it is damaged' "$work/out" && [[ $(sha256sum "$hive") == "$before" ]] || fail "damaged hive saved"

# --- Jobs that the restored system contradicts: what is said of it, how it is told; the result stays
reg() { printf '[\\%s]\n\n' "${@:3}" | sed "\$s/^\$/$2/" >lines.reg && hivexregedit --merge "$1" lines.reg; }
while IFS='|' read -r pattern spoil; do
  fresh scsi-6.1-x64
  (cd "$work/machine/restored/Windows/System32" && eval "$spoil") || fail "$spoil"
  expect "$spoil" 0 "The extension file says 6.1, the restored system's $pattern" run --machine "$machine" --job 7 --verify
done <<'CASES'
kernel is 5.2|cp "$examples"/protected-5.2-x64/c/WINDOWS/system32/drivers/disk.sys ntoskrnl.exe
SOFTWARE hive says 6.3|"$make_hive" config/SOFTWARE empty && reg config/SOFTWARE '"CurrentVersion"="6.3"' Microsoft 'Microsoft\Windows NT' 'Microsoft\Windows NT\CurrentVersion'
SYSTEM hive is that of 6.2 or later|reg config/SYSTEM '' DriverDatabase
CASES

# --- The documentation's machine, made as the page says
mkdir "$work/page"
cd "$work/page" || exit 1
block() { awk -v begin="\`\`\`$1" '$0 == begin && !n++ {on = 1; next} /^```/ {on = 0} on' "$page"; }
block toml >machine.toml
block ini >acme.inf
cp "$examples/scsi-6.1-x64/ram/drivers/nbstor.sys" acme.sys
cp "$examples/scsi-6.1-x64/restored/Windows/System32/config/SYSTEM" .
eval "$(page_commands "$source/docs/machine.md")"
for mode in --verify ''; do
  # shellcheck disable=SC2086
  expect "the page's machine" 0 'Acme SCSI Adapter' run --machine machine.toml --job 7 $mode
  ! grep -q '^Problems' "$work/out" || fail "the page's machine $mode has problems"
done
cd "$OLDPWD" || exit 1

# --- A verification of what no injection could mend: name, fault, what the problem says, how the machine is spoilt. It
# ends with 1, and not even a time in the restored system changes.
state() { (cd "$work/machine/restored" && find . -printf '%p %y %s %m %T@ %C@\n' | sort && digest) | sha256sum; }
while IFS='|' read -r name faults pattern spoil; do
  [[ -n $name ]] || continue
  fresh scsi-6.1-x64
  (cd "$work/machine" && eval "$spoil") || fail "$name: cannot be set up"
  before=$(state)
  export VXR_FAULTS=$faults
  expect "verification, $name" 1 "$pattern" run --machine "$machine" --job 7 --verify
  grep -q '^  1: the verification succeeds, but an injection' "$work/out" || fail "$name: the result is not explained"
  ! grep -q '  0 bytes' "$work/out" || fail "$name: a size is told that nothing looked for"
  expect "verification as JSON, $name" 1 '"rehearsal": \{' run --machine "$machine" --job 7 --verify --json
  unset VXR_FAULTS
  [[ $(state) == "$before" ]] || fail "$name: the verification changed the restored system"
done <<'CASES'
hive missing||config.system: an injection could not mount it: it does not exist|rm "$hive"
hive cut short||mount it: it is too short|truncate -s 5000 "$hive"
hive damaged within||mount it: it is damaged|printf 'XXXX' | dd of="$hive" bs=1 seek=4096 conv=notrunc status=none
hive dirty, its log gone||mount it: it was not closed cleanly .*no log beside it|"$make_hive" "$hive" dirty && rm "$hive".LOG1
empty volume||mount it: drive D: is empty|rm -r restored/*
hive behind a link||mount it: it leads out of its drive|rm "$hive" && ln -s /etc/passwd "$hive"
drive nowhere||mount it: drive E: is not there|sed -i '/^RootPath/s/D:/E:/' machine.toml
directory nowhere||mount it: D:.Other does not exist|sed -i "/^BMEFile/d; s/^RootPath.*/RootPath = 'D:\\\\Other'\nOSVerMaj = 6\nOSVerMin = 1\nHAL = 9/" machine.toml
no directory for drivers||drivers: an injection could not copy files there|rm -r restored/Windows/System32/drivers
hive's directory read-only|directory write:1:30|could not be saved, .*Read-only file system|true
drivers' directory read-only|directory write:2:on:30|NBSTOR.SYS: an injection could not copy it: .*Read-only|true
no room for a driver||NBSTOR.SYS: .*there is no room: it needs 109951|truncate -s 10T ram/drivers/nbstor.sys
no room for both||NB[A-Z]*.SYS: .*there is no room|truncate -s "$(($(stat -f -c '%f*%S/10*6' .)))" ram/drivers/nb{stor,help}.sys
no room for the hive|free room:6|could not save it: there is no room: it needs 36864|true
a directory in the way||NBSTOR.SYS: .*the target is no file|mkdir restored/Windows/System32/drivers/NBSTOR.SYS
a service's section missing||nbstor.inf: an injection would not take it: its service's section .NB_Service. is not|utf8_inf ram/drivers/nbstor.inf 's/^.NB_Service\]/[NB_Other]/'
a value refused|RegSetValueExA:1:on|nbstor: an injection could not write Start: access is denied|true
CASES
fresh scsi-6.1-x64
expect "verification" 0 'SYSTEM_ORG.ControlSet001.Services.nbstor' run --machine "$machine" --job 7 --verify
grep -q '^Registry values that would be written' "$work/out" || fail "verification: its values are said to be written"

# --- Recording a machine: name, exit status, what is said, arguments, how the machine is spoilt; @ is its directory. A
# failure leaves the includes file as it is.
backup() { sha256sum "$work"/machine/c/backup/*.ini; }
while IFS='|' read -r name status pattern arguments spoil; do
  [[ -n $name ]] || continue
  fresh protected-5.2-x64
  (cd "$work/machine" && eval "${spoil:-true}") || fail "$name: cannot be set up"
  before=$(backup)
  # shellcheck disable=SC2206
  words=(create --machine "$machine" ${arguments//@/$work/machine})
  if [[ $status -eq 0 ]]; then
    shows "create, $name" "$pattern" "${words[@]}"
  else
    expect "create, $name" "$status" "$pattern" "${words[@]}"
    [[ $(backup) == "$before" ]] || fail "create, $name: the includes file was changed"
  fi
done <<'CASES'
everything|0|E:.*2 disks|@/x.bme --includes C:\backup\includes.ini --map C:\backup\map.ini
a volume left out|0|F:.*more than the two disk extents|C:\x.bme
a disk that is not there|0|one of its disks is not among|@/x.bme|sed -i '0,/^interface/{/^interface/d}' machine.toml
map file missing|0|None has its name .* from none.ini|@/x.bme --map none.ini
map file binary|0|None has its name|@/x.bme --map @/bytes.ini|head -c 9999 /dev/urandom >bytes.ini
no such directory|9|none/x.bme: .*no such directory|@/none/x.bme --includes C:\backup\includes.ini
a directory of that name|9|/c: .*it is read-only, a directory|@/c --includes C:\backup\includes.ini
no file name|9|no file name|C:\a:b.bme
the machine file itself|2|would replace the machine file|@/machine.toml
another spelling of the includes file|2|would replace C:.backup.X.BME|C:\backup\x.bme --includes C:\backup\X.BME
a link to the machine file|2|would replace the machine file|@/l.bme|ln machine.toml l.bme
a link to a file to come|2|would replace .*/l.ini|@/y.bme --includes @/l.ini|ln -s y.bme l.ini
includes file the machine file|2|is the machine file|@/x.bme --includes @/machine.toml
includes file an extension file|2|is an extension file|@/x.bme --includes @/old.bme|"$make_extension" old.bme
a live hive|2|would replace the hive of SYSTEM|C:\windows\SYSTEM32\config\System
a live hive's log|2|would replace a log of the hive of SYSTEM|C:\windows\SYSTEM32\config\system.log1|touch c/WINDOWS/system32/config/SYSTEM.LOG1
read-only includes file|9|includes.ini: not updated: .*read-only.*x.bme itself is complete|@/x.bme --includes @/c/backup/includes.ini|chmod a-w c/backup/includes.ini
a letter that the code page lacks|2|C:.backup.日.bme: .* code page 1252 lacks; use another name|C:\backup\日.bme
system directory on a floppy disk|9|cannot be recorded: the system directory|@/x.bme|sed -i "0,/'fixed'/s//'removable'/" machine.toml
no computer device|9|cannot be recorded: .*class Computer|@/x.bme|sed -i "s/'Computer'/'Net'/" machine.toml
CASES
fresh protected-5.2-x64
shows "create, a letter beyond ASCII" 'café.bme: 80,332 bytes' create --machine "$machine" 'C:\backup\café.bme'
[[ -f $work/machine/c/backup/café.bme ]] || fail "create: the file's name is not in the machine's code page"
expect "create, no machine" 2 'nowhere.toml: ' create --machine "$work/nowhere.toml" "$work/x.bme"

# --- Hives: one whose last page is only in its log
fresh scsi-6.1-x64
restored=$work/machine/restored
undo=$restored/Windows/vxr-undo/2026-11-25-1
shows "undo, nothing" 'no injection to take back' undo --list "$restored"
mkdir -p "$undo"
shows "undo, unfinished" 'unfinished: the run was stopped' undo --list "$restored"
shows "undo, as JSON" '"exit_status": 0' undo "$undo" --json
mkdir -p "$undo"
touch "$restored/new.sys"
cat >"$undo/manifest.json" <<END
{"format": 1, "program": "vxr", "time": "2026-11-25T00:00:00Z", "changes": [{"kind": "file", "path": "new.sys",
 "before": null, "after": {"size": 0, "sha256": "$(sha256sum <"$restored/new.sys" | cut -d' ' -f1)"}}]}
END
shows "undo, one file" '2026-11-25 00:00:00 UTC, vxr, 1 file, injected' undo --list "$restored"
echo x >"$restored/new.sys"
run undo "$undo" --json
[[ $? -eq 1 ]] && grep -q '"state": "changed"' "$work/out" || fail "undo, changed since"
: >"$restored/new.sys"
touch "$undo/guest"
run undo "$undo"
[[ $? -eq 1 ]] && grep -q 'removed *new.sys' "$work/out" || fail "undo, its folder holds something else"
rm "$undo/guest"
shows "undo" 'Nothing was left to take back' undo "$undo"
[[ ! -e $restored/new.sys && ! -e $undo ]] || fail "undo left something"

shows "hive, clean" 'state +clean' hive "$hive"
"$make_hive" "$hive" dirty || fail "no dirty hive can be made"
before=$(digest)
shows "hive, dirty" 'recovery +replayed 1 entry from one log; both numbers are then 41' hive "$hive"
shows "hive, as JSON" '"control_set": 1,' hive "$hive" --json
shows "hive, replayed elsewhere" 'Written to' hive "$hive" --replay "$work/recovered"
shows "hive, recovered" 'state +clean' hive "$work/recovered"
[[ $(digest) == "$before" ]] || fail "hive: a look changed something"
run hive "$hive" --replay "$work/recovered"
[[ $? -eq 1 ]] && grep -q 'exists; name a new file' "$work/err" || fail "hive: an existing file was replaced"
expect "hive missing" 1 'none does not exist; correct the path' hive "$work/none"
shows "verification of a dirty hive" 'Result' run --machine "$machine" --job 7 --verify
[[ $(digest) == "$before" ]] || fail "a verification changed a dirty hive or its log"
shows "injection into a dirty hive" 'was not closed cleanly: replayed 1 entry from one log' run --machine "$machine" --job 7
shows "hive, injected" 'sequence numbers +41 and 41' hive "$hive"
shows "hive, clean with a log" 'SYSTEM.LOG1: new format, number 40, ' hive "$hive"
rm "$hive".LOG1

# --- INF files
run inf --json "$examples/scsi-6.1-x64/ram/drivers/nbstor.inf" && grep -q '"Northbridge 1030 SCSI Adapter"' "$work/out" ||
  fail "inf --json: the name that a token stands for"
run inf --language 0x0407 "$examples/scsi-6.1-x64/ram/drivers/nbstor.inf" && grep -q 'für Northbridge' "$work/out" ||
  fail "inf --language"
expect "INF file missing" 1 'is missing' inf "$work/none.inf"
expect "a directory" 1 'is a directory' inf "$work"
expect "not an INF file" 1 'text before the first section' inf "$0"

# --- Extension files
two=$work/two.bme
"$make_extension" "$two" major=5 minor=2 build=3790 platform=2 sp_major=2 product=3 processors=4 arch=9 \
  memory=8589934592 hal=3 kernel=3 suite=0x2 computer=FILESERVER volumes=2 boot_volume=0 system_volume=0 \
  'vol0.mount=C:\' vol0.label=SYSTEM vol0.file_system=NTFS vol0.serial=0x1C2AF3B0 'vol0.device=\Device\Vol1' \
  vol0.unique_id=01F302A9 vol0.disks=1 vol0.disk0.length=64420311040 \
  vol0.disk0.disk.guid=4D36E967-E325-11CE-BFC1-08002BE10318 'vol0.disk0.disk.instance=IDE\DISK1' \
  vol0.disk0.ctrl.svc.name=atapi vol0.disk0.ctrl.svc.type=1 'vol0.disk0.ctrl.svc.group=SCSI Miniport' \
  vol0.disk0.ctrl.img.version=5.2.3790.3959 vol0.disk0.ctrl.img.written=128163792000000000 \
  'vol1.mount=D:\' vol1.label=$'Gesch\xe4ft\x1b' || fail "make_extension"
head -c 1000 "$two" >"$work/short.bme"
cat "$two" "$two" >"$work/long.bme"
head -c 80332 /dev/urandom | sed 's/^HbMe/xxxx/' | head -c 80332 >"$work/noise.bme"
"$make_extension" "$work/later.bme" version=2
: >"$work/empty.bme"

for pattern in 'Windows 5.2 build 3790 Service Pack 2, server' 'Processors +4, amd64' '8.0 GiB' '1C2A-F3B0' 'Volume 0 .*60.0 GiB' \
  'service +atapi, kernel driver, boot start, group "SCSI Miniport"' '"Geschäft\?"' '2007-02-19 17:20:00 UTC'; do
  shows "show" "$pattern" show "$two"
done
"$make_extension" "$work/host.bme" computer=files dns_hostname=FILES dns_fully_qualified=files &&
  shows "show, no domain" 'Computer +files' show "$work/host.bme" && ! grep -q DNS "$work/out" ||
  fail "show: the host's name is there twice"
shows "show --json" '"written_utc": "2007-02-19T17:20:00Z"' show --json "$two"
[[ $(head -c 1 "$work/out") == '{' ]] || fail "show --json: one file is one object"
shows "show --json of two" '^]$' show --json "$two" "$two"
[[ $(head -c 1 "$work/out") == '[' && $(grep -c '"file"' "$work/out") -eq 2 ]] || fail "show --json: two are a list"
run show --json "$work/short.bme" "$two" "$work/missing.bme"
[[ $? -eq 1 && $(grep -c '"file"' "$work/out") -eq 3 && $(grep -c '"error"' "$work/out") -eq 2 && $(wc -l <"$work/err") -eq 2 ]] ||
  fail "show: a bad file must not hide a good one"
run show "$work/short.bme" "$two"
[[ $? -eq 1 ]] && grep -q FILESERVER "$work/out" || fail "show: a bad file must not hide a good one"

while IFS='|' read -r file pattern; do
  expect "show $file" 1 "$file $pattern" show "$work/$file"
  expect "query $file" 1 "$file $pattern" query "$work/$file" volume Label
done <<CASES
short.bme|has 1000 bytes, an extension file has 80332
long.bme|has 160664 bytes
noise.bme|is not an extension file: it begins with
later.bme|is of version 2
empty.bme|is empty
missing.bme|is missing
|is a directory
CASES

# Arguments, exit status, what the answer or the complaint is.
while IFS='|' read -r words status pattern; do
  # shellcheck disable=SC2086
  if [[ $status -eq 0 ]]; then
    shows "query $words" "^$pattern\$" query "$two" $words
  else
    expect "query $words" "$status" "$pattern" query "$two" $words
  fi
done <<'CASES'
volume Label|0|SYSTEM
VOLUME vxreqv_label --volume 1|0|Geschäft.
0 7|0|SYSTEM
volume VolCount|0|2
volume BootVolInd|0|0
volume VolIndex --letter D|0|1
volume Serial|0|472576944
volume UniqId|0|040001F302A9
volume 0x8000000F|0|IDE.DISK1
volume DiskInstanceId|0|IDE.DISK1
volume DiskDevGuid|0|\{4D36E967-E325-11CE-BFC1-08002BE10318\}
volume DiskSrvName --driver controller|0|atapi
volume DiskSrvName --driver bus|0|
volume DiskImgFileTime --driver controller|0|2007-02-19T17:20:00Z
system SysOs|0|BuildNumber=3790
network Name|0|FILESERVER
architect HalType|0|3
volume Label --volume 7|1|volume 7 does not exist: the file has 2
volume DiskNumber --disk 1|1|disk 1 does not exist: volume 0 has 1
volume DiskNumber --volume 1|1|disk 0 does not exist: volume 1 has none
volume VolIndex --letter d|1|no volume was at drive letter d
volume 0x1000000F|1|no answer to code 0x1000000F
volumes Label|2|no class volumes; there are Volume, System, Network, Architect
network Label|2|class Network has no item Label; there are Name
volume VolIndex|2|VolIndex needs a drive letter
volume Label --driver bus|2|Label is not of a driver
volume 0x8000000F --driver bus|2|says whose driver already
volume Label --code-page 7|2|code page 7 is not known
CASES

[[ $failures -eq 0 ]] || exit 1
echo "all as expected"
