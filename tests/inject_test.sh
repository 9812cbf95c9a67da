#!/usr/bin/env bash
# `vxr inject` from outside, as in a rescue system: a copy of an example's restored system, and a machine whose disk hangs
# off a RAID controller behind a bridge, as sysfs shows it. What it finds, does, leaves alone, and says of bad input.
#   inject_test.sh VXR EXAMPLES MAKE_HIVE UNPACK_SYSFS FAULTY_VXR
set -u

vxr=$1
example=$2/raid-10.0-x64
make_hive=$3
faulty_vxr=$5
work=$(mktemp -d)
export TMPDIR=$work
trap 'umount "$work/mount" 2>/dev/null; rm -rf "$work"' EXIT
failures=0
cd "$work" || exit 1

fail() {
  echo "FAILED: $*"
  tail -n 15 out | sed 's/^/  out: /'
  sed 's/^/  err: /' err
  failures=$((failures + 1))
}

run() {
  local program=$vxr
  [[ -z ${VXR_FAULTS:-} ]] || program=$faulty_vxr
  timeout 60 "$program" "$@" >out 2>err </dev/null
}

# expect STATUS PATTERN ARGUMENT...: PATTERN is on standard output when there is one, else on standard error, which is
# one line then. With --json there is a document that gives the status, and of each choice its service or null.
expect() {
  local status=$1 pattern=$2 got where=err
  shift 2
  run "$@"
  got=$?
  [[ $got -eq $status ]] || fail "$*: exit status $got, not $status"
  [[ -s out ]] && where=out
  tr '\n' ' ' <$where | grep -qE -- "$pattern" || fail "$*: no \"$pattern\""
  [[ -s out || $(wc -l <err) -eq 1 ]] || fail "$*: more than one line of complaint"
  run "$@" --json
  [[ $? -eq $status ]] && jq -e "(.exit_status // 0) == $status and
    ([.run?.devices[]?.choice // empty | .service | type] - [\"string\", \"null\"] == [])" out >json 2>&1 || fail "$* --json"
}

fresh() {
  chmod -R u+w restored 2>/dev/null
  rm -rf restored
  cp -r "$example/restored" restored
  chmod -R u+w restored
  hive=restored/Windows/System32/config/SYSTEM
}

# All that is there, with digests; of directories not the times, which no undo brings back.
state() { (cd "${1:-restored}" && find . \( -type d -printf '%p %m\n' -o -printf '%p %y %m %s %T@\n' \) | sort &&
  find . -type f -print0 | sort -z | xargs -0 -r sha256sum); }
exported() { hivexregedit --export --unsafe-printable-strings "$1" '\'; }

"$4" "$example/sysfs.txt" machine || exit 1
cp -r "$example/ram/drivers" pack
chmod -R u+w pack
mkdir mount empty nowhere
touch file
sda=(--sysfs machine/sys --disk sda)
pack=(--drivers pack)

# --- What is there
fresh
expect 0 'sda +TARNWICK RAID 1 VOLUME, 250.1 GB.*SUBSYS_00011DEA&REV_02 at 0000:02:00.0.*bridge PCI.VEN_1DEA&DEV_7001.*sdc.*USB.*does not start' inject --list --sysfs machine/sys
run inject --list --json --root restored "${sda[@]}" &&
  jq -e '.system.version == "10.0.19041" and .system.drive == "C" and (.all_disks | length) == 3 and .disks[0].name == "sda"
    and .disks[0].controller_and_bridges[0].hardware_ids[3] == "PCI\\VEN_1DEA&DEV_0A42&CC_0104"
    and .disks[0].controller_and_bridges[1].hardware_ids[0] == "PCI\\VEN_1DEA&DEV_7001&SUBSYS_00001DEA&REV_05"
    and .all_disks[2].unfit != null and .obstacles == []' out >json || fail "the list as JSON"

# --- Dry, described, real, again, and back
before=$(state)
run inject --root restored "${sda[@]}" "${pack[@]}" --dry-run || fail "dry run"
[[ $(state) == "$before" ]] || fail "a dry run changed something"
sed -n '/^Result/q; s/ that would be / /; p' out >dry
run inject --root restored "${sda[@]}" "${pack[@]}" --dry-run --json && jq -e '.run | .log_file == null and
  ([.files[], .values[], .hives[], .deletions[] | .state | startswith("would_")] | all)' out >json || fail "a dry run's states"
cp -r restored described
run describe --root described "${sda[@]}" "${pack[@]}" && cp out machine.toml && sed '/^clock/d' out >once || fail "describe"
run run --machine machine.toml --job 1 || fail "the described machine's run"
run inject --root restored "${sda[@]}" "${pack[@]}" || fail "injection"
sed '/^Result/,$d' out | diff dry - >json || fail "the dry run said something else: $(cat json)"
undo=$(find restored/Windows/vxr-undo -mindepth 1 -maxdepth 1)
grep -q "take it back.*: vxr undo $work/$undo\$" out || fail "nothing says how to take it back"
# Of what the clock decides there is nothing but times.
diff <(exported described/Windows/System32/config/SYSTEM) <(exported $hive) >json || fail "another hive: $(cat json)"
for name in twraid twflt; do
  cmp -s restored/Windows/System32/drivers/$name.sys "$(find pack/raid/w10 -name $name.sys)" || fail "$name.sys"
done
[[ $(jq -r '.changes[] | select(.path | endswith("SYSTEM")) | .after.digest // .after.sha256' $undo/manifest.json) == \
  $(sha256sum <$hive | cut -d' ' -f1) ]] || fail "the rehearsal told another digest than the hive's: $(cat $undo/manifest.json)"
after=$(state)
for mode in '' --dry-run; do
  # shellcheck disable=SC2086
  expect 0 'taken +the restored system.s own driver.*nothing has to be changed' inject --root restored "${sda[@]}" "${pack[@]}" $mode
  [[ $(state) == "$after" ]] || fail "the second injection changed something"
done
expect 0 '3 files, injected ' undo --list restored
run undo "$undo" || fail "undo"
[[ $(state) == "$before" ]] || fail "the undo left something: $(diff <(echo "$before") <(state))"

# --- Hardware: exit status, what is said, arguments
while IFS='|' read -r status pattern words; do
  eval "expect '$status' '$pattern' inject --root restored --dry-run $words"
done <<'CASES'
0|on PCI.VEN_1DEA&DEV_0A42&CC_0104 .*w10.twraid.inf|--drivers pack --controller 1DEA:0A42 0104
0|SUBSYS_00011DEA&REV_02 .*w10.twraid.inf|--drivers pack --controller "1dea:0a42:1DEA:0001:02 010400"
0|w10.twraid.inf|--drivers pack --controller 'pci\ven_1dea&dev_0a42&cc_0104'
0|w10.twraid.inf.*hba.twhba.inf|--drivers pack/raid --drivers pack/hba --controller 1DEA:0A42 0104 --controller 1DEA:0A60 0107
0|w10.twraid.inf.*hba.twhba.inf|--drivers pack --sysfs machine/sys --disk sda --disk /dev/sdb --disk sda
0|for Primary_IDE_Channel .*service atapi .*pciide.StartOverride|--controller 8086:7010 0101
0|nothing has to be changed|--controller 'ACPI\PNP0A08'
3|lists one of +PCI.VEN_1DEA&DEV_0A42 .*Name the controller with its class|--drivers pack --controller 1DEA:0A42
3|CC_0104 .*read: 0  Result.*Give a directory|--sysfs machine/sys --disk sda
3|read: 0  Result.*Add the controller.s driver|--sysfs machine/sys --disk sda --drivers empty
3|twraid.*lists one of.*Add the controller|--sysfs machine/sys --disk sda --drivers pack/raid/w11
2|1DEA:0A42:1DEA: names no|--controller 1DEA:0A42:1DEA
2|PCI.CC_0104: is no id|--controller 'PCI\CC_0104'
2|--controller: an empty text|--controller ''
2|0104: names no|--controller 0104
2|--controller excludes --disk|--controller 1DEA:0A42 --disk sda
2|no disk "sdz"|--sysfs machine/sys --disk sdz
1|sdc: a USB disk|--sysfs machine/sys --disk sdc
1|which disk holds the root|--sysfs machine/sys
2|nowhere is no sysfs|--sysfs nowhere
2|file is no sysfs|--sysfs file
2|--sysfs: given more than once|--sysfs machine/sys --sysfs machine/sys
2|--list excludes --dry-run|--list
2|one argument too many|restored
2|--nosuch: unknown|--nosuch
2|--drivers: needs a DIR|--drivers
2|none is missing|--drivers none
2|file is no directory|--drivers file
2|--drivers: an empty text|--drivers ''
2|the path is not UTF-8|--drivers $'pack\xff'
CASES
[[ $(state) == "$before" ]] || fail "a refused or a dry run changed something"

# --- Roots and what is in them: exit status, what is said, root, how the restored system is bent. Nothing is changed.
while IFS='|' read -r status pattern root bend; do
  fresh
  eval "$bend"
  before=$(state)
  expect "$status" "$pattern" inject --root "$root" "${sda[@]}" "${pack[@]}"
  [[ $(state) == "$before" ]] || fail "$root, $bend: something was changed"
  chmod -R u+rwX restored
done <<'CASES'
2|--root: an empty text||
2|file is a file|file|
2|none does not exist|none|
1|empty: nothing is mounted|empty|
1|holds no Windows|machine|
1|inside a Windows directory: name .*restored/Windows|restored/Windows/System32|
1|more than one Windows .Windows, Windows.old.|restored|cp -r restored/Windows restored/Windows.old
1|has Windows and windows|restored|mkdir restored/windows
1|Windows is a link|restored|mv restored/Windows elsewhere; ln -s ../elsewhere restored/Windows
1|no config/SYSTEM in it|restored|rm $hive
1|too short for a registry hive|restored|echo x >$hive
1|not closed cleanly|restored|"$make_hive" $hive dirty; rm $hive.LOG1
1|cannot be told: ntoskrnl|restored|rm restored/Windows/System32/ntoskrnl.exe
1|stopped half-way; take it back first: vxr undo .*vxr-undo|restored|run inject --root restored "${sda[@]}" "${pack[@]}"; cp -p restored/Windows/vxr-undo/*/1 $hive
1|hibernated.*or use --force: Memory that was saved|restored|printf hibr >restored/hiberfil.sys
1|not a registry hive .*; restore the file again|restored|head -c 9999 /dev/zero >$hive
1|is a FIFO; restore the file again|restored|rm $hive; mkfifo $hive
2|restored Windows is not UTF-8|link|cp -r restored $'bad\xff'; ln -s $'bad\xff' link
3|put in: a file is in the way of a directory: C:.*drivers|restored|rm -r restored/Windows/System32/drivers; touch restored/Windows/System32/drivers
CASES

jq -e '.problems | length == 1 and (.[0] | test("in the way"))' out >json || fail "no problem in the document"

# --- All reasons, in their order; more controllers than a run takes; no /proc
fresh
printf hibr >restored/hiberfil.sys
run inject --root restored --sysfs machine/sys --disk sdc --json
jq -e '(.errors | length) == 2 and (.errors[0] | test("hibernated")) and .error == .errors[1] and (.error | test("USB"))' out >json ||
  fail "two reasons as JSON"
fresh
for command in inject describe; do
  # shellcheck disable=SC2046
  run "$command" --root restored $(printf -- '--controller 1DEA:0A4%d ' {0..9})
  [[ $? -eq 1 && $(cat err) == *'10 controllers are too many'* && ! -s out ]] || fail "$command: ten controllers"
done
without_proc() { unshare -m sh -c 'mount -t tmpfs none /proc && exec "$@"' _ "$vxr" "$@" >out 2>err; }
if without_proc --version && [[ ! -s err ]]; then  # a sanitizer needs it too
  for words in 'system restored' 'inject --root restored' 'describe --root restored' \
    'undo --list restored' 'undo restored' "hive $hive"; do
    # shellcheck disable=SC2086
    without_proc $words
    [[ $? -eq 1 && $(cat err) == *'mount -t proc proc /proc' && $(wc -l <err) -eq 1 ]] || fail "$words without /proc"
  done
fi

# --- What cannot be written: the work is done all the same, and only who asked for a document is told by the status. A
# look has no other outcome, and ends as other programs do when nobody reads.
while IFS='|' read -r full pipe left words; do
  for output in full pipe; do
    fresh
    [[ $words == inject* ]] || run inject --root restored "${sda[@]}" "${pack[@]}"
    eval "called=($words)"
    if [[ $output == full ]]; then
      timeout 60 "$vxr" "${called[@]}" >/dev/full 2>err
      [[ $? -eq $full && $(cat err) == *'output cannot be written'* && $(wc -l <err) -eq 1 ]] || fail "$words: a full disk"
    else
      (sleep 0.2; timeout 60 env --default-signal=PIPE "$vxr" "${called[@]}" 2>err; echo $? >got) | true
      [[ $(cat got) -eq $pipe && ($pipe -ne 141 || ! -s err) ]] || fail "$words: nobody reads"
    fi
    [[ $(ls restored/Windows/vxr-undo | wc -l) -eq $left ]] || fail "$words: not done"
  done
done <<'CASES'
0|0|1|inject --root restored "${sda[@]}" "${pack[@]}"
1|1|1|inject --root restored "${sda[@]}" "${pack[@]}" --json
0|0|0|undo restored/Windows/vxr-undo/*
1|1|0|undo restored/Windows/vxr-undo/* --json
1|141|1|system restored
1|141|1|system restored --json
CASES

# --- A command to paste, of a path that a shell would take for something else
mkdir -p $'a b\'c\n/x%d\\'
fresh
mv restored $'a b\'c\n/x%d\\/r'
before=$(state $'a b\'c\n/x%d\\/r')
run inject --root $'a b\'c\n/x%d\\/r' "${sda[@]}" "${pack[@]}"
eval "'$vxr' $(sed -n 's/.*take it back.*: vxr //p' out)" >json && [[ $(state $'a b\'c\n/x%d\\/r') == "$before" ]] || fail "pasted"

# --- Taken at one's own risk: the system forgets what it saved. A hive that was not closed is brought up to date.
fresh
printf hibr >restored/hiberfil.sys
run inject --root restored "${sda[@]}" "${pack[@]}" --force --dry-run --json && grep -q 'would be lost' err &&
  jq -e '.warnings | length == 1' out >json || fail "a forced dry run"
run inject --root restored --sysfs machine/sys --disk sdc --force --json
[[ $(cat err) != *lost* && $(jq '.errors | length' out) -eq 1 ]] || fail "a loss is told that there is not"
run inject --root restored "${sda[@]}" "${pack[@]}" --force || fail "forced"
[[ $(cat err) == 'vxr: --force: '*lost* && $(tr -d '\0' <restored/hiberfil.sys) == '' ]] || fail "forced: not said, or not forgotten"
fresh
# The rehearsal mounts and unmounts the hive; the run cannot.
printf hibr >restored/hiberfil.sys
VXR_FAULTS=CreateProcessA:3 run inject --root restored "${sda[@]}" "${pack[@]}" --force
[[ $? -eq 4 && ! -e restored/Windows/vxr-undo ]] && grep -q 'nothing was changed but the memory' out || fail "forced, and failed"
"$make_hive" $hive dirty
before=$(state)
run inject --root restored "${sda[@]}" "${pack[@]}" && grep -q 'not closed cleanly' out || fail "a dirty hive"
run undo restored/Windows/vxr-undo/* && [[ $(state) == "$before" ]] || fail "a dirty hive is not put back"

# --- Directories of drivers: links in a circle
fresh
mkdir circle && cp -r pack/raid/w10/. circle && ln -s ../circle circle/loop && ln -s self circle/self
expect 0 'taken +circle/twraid.inf' inject --root restored "${sda[@]}" --drivers circle --dry-run
expect 2 'circle/self is missing' inject --root restored "${sda[@]}" --drivers circle/self --dry-run

# --- No file may be as large as the hive
before=$(state)
old=$(sha256sum <$hive)
(ulimit -f 60 && run inject --root restored "${sda[@]}" "${pack[@]}")
[[ $? -eq 4 && $(state) == "$before" ]] && grep -q 'File too large' out || fail "a limit of file sizes"

# --- A call that fails here and there, once or from then on: 0 is said of the whole injection alone, and all that there is
# can be taken back.
for ((n = 1; n < 2200; n += 61)); do
  VXR_FAULTS="*:$n:$([[ $((n % 2)) -eq 0 ]] && echo once || echo on)" run inject --root restored "${sda[@]}" --drivers pack/raid/w10
  got=$?
  folder=$(find restored/Windows/vxr-undo -mindepth 1 -maxdepth 1 2>/dev/null)
  [[ $n -gt 1 || $got -ne 0 ]] || fail "every call was to fail, and none did"
  [[ $got -ne 0 || ($(sha256sum <$hive) != "$old" && -n $folder) ]] || fail "fault $n: 0, and nothing was done"
  [[ -z $folder ]] || run undo "$folder" || fail "fault $n: undo"
  [[ $(state) == "$before" ]] || fail "fault $n: not as it was"
done

# --- An injection that goes on is not told as one that was stopped
run inject --root restored "${sda[@]}" "${pack[@]}" && cp -p restored/Windows/vxr-undo/*/1 $hive
flock restored/Windows "$vxr" undo --list restored | grep -q ", at work$" && "$vxr" undo --list restored | grep -q ", stopped$" ||
  fail "at work, or stopped"
fresh

# --- Volumes that a user without rights cannot have: read-only, full, not to be read
if [[ $EUID -eq 0 ]] && mount -t tmpfs -o size=800k none mount 2>err; then
  cp -r restored/. mount
  expect 1 "controller that Windows will have" inject --root mount "${pack[@]}"
  mount -o remount,ro mount
  expect 1 'mounted read-only; mount it anew' inject --root mount "${sda[@]}" "${pack[@]}"
  mount -o remount,rw mount
  # Room for nothing, for a driver, for the drivers, for the changes but not for what takes them back; then for all.
  for free in 0:3 4:3 40:4 100:1 190:1 260:0; do
    dd if=/dev/zero of=mount/fill bs=1k 2>/dev/null
    truncate -s "-${free%:*}k" mount/fill
    before=$(state mount)
    run inject --root mount "${sda[@]}" "${pack[@]}"
    [[ $? -eq ${free#*:} ]] || fail "$free: another status"
    if [[ $free == *:0 ]]; then
      run undo mount/Windows/vxr-undo/* || fail "undo on a small volume"
    else
      grep -q ' room ' out && grep -q '^  .: .*; nothing was changed' out || fail "$free: not said"
    fi
    [[ $(state mount) == "$before" ]] || fail "$free: something was changed"
  done
  # What is kept would go with another file system; and a manifest reaches none.
  mkdir mount/Windows/vxr-undo && mount -t tmpfs none mount/Windows/vxr-undo
  expect 1 'vxr-undo lies on another file system' inject --root mount "${sda[@]}" "${pack[@]}"
  umount mount/Windows/vxr-undo
  run inject --root mount "${sda[@]}" "${pack[@]}" || fail "injection on a volume"
  mount -t tmpfs none mount/Windows/System32/drivers
  expect 1 'drivers/twraid.sys leads to another file system' undo mount/Windows/vxr-undo/*
  umount mount/Windows/System32/drivers mount
fi
if [[ $EUID -eq 0 ]] && command -v setpriv >/dev/null; then
  chmod a+rx "$work"
  while IFS='|' read -r pattern bend; do
    fresh
    eval "$bend"
    setpriv --reuid 65534 --regid 65534 --clear-groups "$vxr" inject --root restored "${sda[@]}" "${pack[@]}" >out 2>err
    [[ $? -eq 1 && $(wc -l <err) -eq 1 ]] && grep -q "$pattern; run as root" err || fail "$bend"
  done <<'CASES'
restored cannot be read: Permission denied|chmod 0 restored
SYSTEM cannot be opened: Permission denied|chmod 0 $hive
Windows cannot be changed: Permission denied|
CASES
fi

[[ $failures -eq 0 ]] || exit 1
