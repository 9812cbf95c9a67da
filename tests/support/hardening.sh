# Sourced: what the compiler and the linker put into what is delivered.

# lacks_hardening FILE: what a program or a shared library lacks of it.
lacks_hardening() {
  local name pattern
  readelf -hldW --dyn-syms "$1" | tr '\n\t' '; ' >"$work/elf"
  while IFS='|' read -r name pattern; do
    grep -qE -- "$pattern" "$work/elf" || echo "${1##*/} has no $name"
  done <<'NEEDED'
addresses that change|Type: +DYN
stack without code|GNU_STACK +0x0+ 0x0+ 0x0+ 0x0+ 0x0+ RW +0x
relocations that are read-only|GNU_RELRO
bindings when it starts|\(FLAGS_1\) +Flags: NOW
guards of stacks|__stack_chk_fail@
guards of buffers|__[a-z]+_chk@
NEEDED
}
