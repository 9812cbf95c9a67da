# Sourced: what became of a disk, by the serial console's text and by the disk itself. The registry is read by a library
# of its own. Each check tells of its failure; none ends the test.

faults=0
fault() {
  echo "live: FAILED: $1: $2" >&2
  faults=$((faults + 1))
}

# printed LOG DISK STEP: what a step printed.
printed() {
  awk -v begin="@@ $2 $3 begin" -v end="@@ $2 end" '
    index($0, end) == 1 {inside = 0}
    inside
    $0 == begin {inside = 1}' "$1"
}

# exit_of LOG DISK STEP
exit_of() {
  awk -v begin="@@ $2 $3 begin" -v end="@@ $2 end" '
    $0 == begin {inside = 1}
    inside && index($0, end) == 1 {print $NF; exit}' "$1"
}

# ended LOG DISK STEP STATUS [TEXT]: the step ended so, and printed this.
ended() {
  local status
  status=$(exit_of "$1" "$2" "$3")
  if [[ $status != "$4" ]]; then
    fault "$2" "step $3 ended with ${status:-nothing} in place of $4; see $1"
    return 1
  fi
  [[ -z ${5:-} ]] || printed "$1" "$2" "$3" | grep -F -- "$5" >/dev/null ||
    { fault "$2" "step $3 does not say: $5"; return 1; }
}

# value HIVE KEY NAME
value() { hivexget "$1" "$2" "$3" 2>/dev/null; }

# services HIVE: the made-up services in it.
services() {
  printf 'cd \\ControlSet001\\Services\nls\n' | hivexsh "$1" | grep '^lv' | tr '\n' ' '
}

# linux_name LOG DISK: "sda"; "sda sdb" for a volume of several disks.
linux_name() { sed -n "s/^@@ $2 is \(.*\) on .*/\1/p" "$1"; }

# verify_found LOG DISK STEP ID ADDRESS BRIDGE: what stands above the disk, of all that the step lists.
verify_found() {
  local found expected="on $4 at $5 "
  [[ $6 == - ]] || expected+="below the bridge $6 "
  found=$(printed "$1" "$2" "$3" | sed -n "/^  $(linux_name "$1" "$2")  /,/^  [^ ]/{
    s/, Linux driver.*//
    s/^      \(on\|below\) /\1 /p
  }" | tr '\n' ' ')
  [[ $found == "$expected" ]] || { fault "$2" "step $3 found '$found' in place of '$expected'"; return 1; }
}

# verify_own LOG DISK STEP: the mounted directory leads to this disk alone, or to these.
verify_own() {
  local line
  line="  The restored system lies on: $(linux_name "$1" "$2")"
  ended "$1" "$2" "$3" 0 || return 1
  printed "$1" "$2" "$3" | grep -xF -- "$line" >/dev/null || { fault "$2" "step $3 does not say: $line"; return 1; }
}

# verify_record TREE DISK WINDOWS ID: the record by which the system binds the driver to its controller.
verify_record() {
  local hive=$1/Windows/System32/config/SYSTEM id service found
  id=$(pack_id "$4") service=$(service_of "$2")
  if [[ $3 == 10.0 ]]; then
    printf 'cd \\DriverDatabase\\DeviceIds\\PCI\\%s\nlsval\n' "${id#PCI\\}" | hivexsh "$hive" 2>/dev/null |
      grep '^"oem[0-9]*.inf"' >/dev/null || { fault "$2" "no device id $id in the driver database"; return 1; }
  else
    id=${id//\\/#}
    found=$(value "$hive" "\\ControlSet001\\Control\\CriticalDeviceDatabase\\${id,,}" Service)
    [[ $found == "$service" ]] || { fault "$2" "no critical-device entry for ${id,,}"; return 1; }
  fi
}

# verify_injected TREE DISK WINDOWS ID PACK
verify_injected() {
  local hive=$1/Windows/System32/config/SYSTEM service start undo
  service=$(service_of "$2")
  [[ $(services "$hive") == "$service " ]] || { fault "$2" "services in its hive: $(services "$hive")"; return 1; }
  start=$(value "$hive" "\\ControlSet001\\Services\\$service" Start)
  [[ $((start)) -eq 0 && -n $start ]] || { fault "$2" "service $service has Start '$start'"; return 1; }
  verify_record "$1" "$2" "$3" "$4" || return 1
  cmp -s "$5/$2/$service.sys" "$1/Windows/System32/drivers/$service.sys" ||
    { fault "$2" "$service.sys is not there as it is in its package"; return 1; }
  undo=$(find "$1/Windows/vxr-undo" -name manifest.json 2>/dev/null | wc -l)
  [[ $undo -eq 1 ]] || { fault "$2" "$undo manifests for undo"; return 1; }
}

# digests TREE: of every file of the restored system, without what the test and the undo folder keep beside it.
digests() {
  (cd "$1" && find . -type f ! -name 'live-*' ! -path ./Windows/vxr-undo/\* -print0 | sort -z | xargs -0 sha256sum)
}

# verify_as_before TREE DISK BEFORE
verify_as_before() {
  diff <(digests "$3") <(digests "$1") >"$1.diff" || { fault "$2" "files differ; see $1.diff"; return 1; }
}
