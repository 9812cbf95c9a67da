#!/usr/bin/env bash
# vxrcore.dll as a file: what it exports and imports, that its calls go straight to Windows, its version; and what vxr.exe
# imports and declares.
#   windows_library_test.sh BUILD SOURCE
set -u

build=$1
source=$2
dll=$build/vxrcore.dll
tool=x86_64-w64-mingw32-
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
export TZ=UTC LC_ALL=C

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

${tool}objdump -p "$dll" >"$work/headers" || exit 1

# --- Exports: the functions that the header declares, under their own names
grep -oE '^VXR_API [a-z0-9_ ]+ VXR[A-Za-z]+_[A-Za-z]+\(' "$source/include/vxrcore/vxrcore.h" |
  sed 's/.* \(.*\)(/\1/' | sort >"$work/declared"
sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^\t\[.*\] //p' "$work/headers" | sort >"$work/exported"
[[ $(wc -l <"$work/declared") -eq 14 ]] || fail "vxrcore.h declares $(wc -l <"$work/declared") functions, not 14"
diff "$work/declared" "$work/exported" || fail "declared (<) and exported (>) functions differ"

# --- Imports
# imports FILE LIST...: complains of what is in none of the lists, files of tests/data.
imports() {
  local file=$1 module symbol
  shift
  ${tool}objdump -p "$build/$file" |
    awk '/DLL Name:/ { dll = $3 } /^\t[0-9a-f]+\t/ && NF == 3 && dll != "vxrcore.dll" { print dll, $3 }' |
    sort -u >"$work/imported"
  (cd "$source/tests/data" && cat "$@") | sort >"$work/known"
  [[ -s $work/imported ]] || fail "$file: no imports were found"
  while read -r module symbol; do
    fail "$file imports $symbol from $module, which is not in $*: is it in 64-bit Windows 5.2?"
  done < <(comm -23 "$work/imported" "$work/known")
}
imports vxrcore.dll windows_imports.txt
imports vxr.exe windows_imports.txt windows_program_imports.txt

# --- Every call of Windows is one indirect call through the import table, in the function that makes it
${tool}objdump -d --no-show-raw-insn "$dll" >"$work/code"
perl - "$work/headers" "$work/code" <<'PERL' || fail "calls do not go straight to Windows"
my ($module, $slot, $base, %slots, %jumps, %used, %called);
open my $headers, '<', $ARGV[0] or die;
while (<$headers>) {
  $base = hex $1 if /^ImageBase\s+([0-9a-f]+)/;
  $slot = $base + hex $1 if /^ [0-9a-f]{8}(?:\t[0-9a-f]{8}| [0-9a-f]{8}){4} ([0-9a-f]{8})$/;
  $module = $1 if /DLL Name: (\S+)/;
  next unless /^\t[0-9a-f]+\t\s*\d+\s+(\S+)/;
  # The headers of these two do not mark their functions as imported: the linker's jumps serve them.
  $slots{$slot} = $1 unless $module =~ /^(msvcrt|VERSION)\.dll$/;
  $slot += 8;
}
open my $code, '<', $ARGV[1] or die;
while (<$code>) {
  my ($at) = /^\s*([0-9a-f]+):/ or next;
  $called{hex $1} = $at if /\scall\s+0x([0-9a-f]+)/;
  next unless /\s(call|jmp|mov)\s.*# 0x([0-9a-f]+)/ and my $name = $slots{hex $2};
  $used{$name} = 1;
  $jumps{hex $at} = $name if $1 eq 'jmp';
}
my @wrong = map { "unused in code: $_" } grep { !$used{$_} } sort values %slots;
push @wrong, map { "through a thunk: $jumps{$_}, from $called{$_}" } grep { $called{$_} } sort keys %jumps;
print "  $_\n" for @wrong;
printf "%d Windows calls, all direct\n", scalar keys %used unless @wrong;
exit(@wrong || keys %used < 50);
PERL

# --- Version resource
for text in VS_VERSION_INFO Varnelt vxrcore.dll "$(sed -n 's/^project(vxrcore VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")"; do
  ${tool}strings -e l "$dll" | grep -qxF "$text" || fail "no \"$text\" in the version resource"
done

grep -qF 'supportedOS Id="{8e0f7a12-' "$build/vxr.exe" || fail "vxr.exe has no manifest: Windows 10 would tell it that it is 6.2"

[[ $failures -eq 0 ]] || exit 1
echo "all as expected"
