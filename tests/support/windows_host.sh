# Sourced by the tests that run programs under Wine as hosts of the library, with BUILD and WINE as their arguments: a
# folder to work in, which the programs know as $windows, and what Wine's registry lacks; all gone at the end.
build=$1
wine=$2
work=$(mktemp -d)
windows="Z:${work//\//\\}"
computer='HKLM\SYSTEM\CurrentControlSet\Enum\Root\ACPI_HAL\0000'
failures=0

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

registry() { "$wine" reg "$@" /f >"$work/reg.log" 2>&1 || fail "reg $*: $(cat "$work/reg.log")"; }

# Wine's server ends soon after its last program, and one that starts at that moment ends at once, with nothing said: a
# program that waits for input until the script ends keeps the server.
mkfifo "$work/never"
exec 9<>"$work/never"
"$wine" cmd <"$work/never" >"$work/keeper.log" 2>&1 &
keeper=$!

clean() {
  registry delete "$computer"
  registry delete 'HKLM\SOFTWARE\Varnelt'
  kill "$keeper" 2>/dev/null
  rm -rf "$work"
}
trap clean EXIT

# Wine has no device of the class Computer, whose id tells the machine's kind.
registry add "$computer" /v HardwareID /t REG_MULTI_SZ /d acpiapic_mp
registry add "$computer" /v ClassGUID /d '{4D36E966-E325-11CE-BFC1-08002BE10318}'
mkdir -p "$work/product/logs.dir"
