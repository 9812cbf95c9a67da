#!/usr/bin/env bash
# The command line from outside, on copies of the example machines: exit statuses, where output goes, one clear line for
# each bad input, and that a verification leaves the restored system as it is.
#   command_line_test.sh VXR EXAMPLES
set -u

vxr=$1
examples=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
  echo "FAILED: $*"
  sed 's/^/  out: /' "$work/out" | tail -n 15
  sed 's/^/  err: /' "$work/err"
  failures=$((failures + 1))
}

run() { "$vxr" "$@" >"$work/out" 2>"$work/err" </dev/null; }

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

fresh() {
  rm -rf "$work/machine"
  cp -r "$examples/$1" "$work/machine"
  chmod -R u+w "$work/machine"
  machine=$work/machine/machine.toml
  hive=$(find "$work/machine/restored" -ipath '*/config/system')
}

digest() { (cd "$work/machine/restored" && find . -type f -print0 | sort -z | xargs -0 sha256sum | sha256sum); }

# --- Usage
expect "no command" 2 'name a command; see vxr --help'
expect "unknown command" 2 'frobnicate: unknown' frobnicate
expect "no machine" 2 '--machine is required; see vxr run --help' run --job 1
expect "job is no number" 2 '--job = x is not a number' run --machine m --job x
expect "unknown code page" 2 'code page 7 is not known' inf --code-page 7 x
for words in --help --version 'run --help' 'run --version' 'inf --help' 'inf --version'; do
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
no INF file|3|cancelled.*\[15\]|rm ram/drivers/*.inf
no INF file that fits|3|no driver was set up|rm ram/drivers/nbstor.inf
driver file missing|11|Failed to locate file .*NBSTOR.SYS|rm ram/drivers/nbstor.sys
boot disk unknown|0|The boot disk was not found|sed -i 's/PhysicalDrive0.$/PhysicalDrive9\x27/' machine.toml
CASES

# --- INF files
run inf --json "$examples/scsi-6.1-x64/ram/drivers/nbstor.inf" && grep -q '"Northbridge 1030 SCSI Adapter"' "$work/out" ||
  fail "inf --json: the name that a token stands for"
run inf --language 0x0407 "$examples/scsi-6.1-x64/ram/drivers/nbstor.inf" && grep -q 'für Northbridge' "$work/out" ||
  fail "inf --language"
expect "INF file missing" 1 'is missing' inf "$work/none.inf"
expect "a directory" 1 'is not a file' inf "$work"
expect "not an INF file" 1 'text before the first section' inf "$0"

[[ $failures -eq 0 ]] || exit 1
echo "all as expected"
