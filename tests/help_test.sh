#!/usr/bin/env bash
# The manual pages and the completion of shells that are made of a vxr.
#   help_test.sh VXR SOURCE
set -u
export LC_ALL=C.UTF-8
vxr=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

"$source/tools/help/make_pages.sh" "$vxr" "$source" "$work/help" 1.2.3 2026-11-25 || exit 1
cd "$work/help" || exit 1
gunzip man?/*.gz

# --- Pages: correct, each option of each command with its text, each example with options that there are
for page in man1/*.1 man5/*.5; do
  mandoc -Tlint -W warning "$page" || fail "$page: see above"
  [[ -z $(MANWIDTH=100 man -l --warnings -Tutf8 "$page" 2>&1 >/dev/null) ]] || fail "$page: man warns of it"
done
for page in $(grep -ohE 'docs/[a-z-]+\.md' man?/*); do [[ -s $source/$page ]] || fail "a page names $page, which is not there"; done
commands=$("$vxr" --help | sed -n '/^Subcommands:/,$s/^  \([a-z-]*\) .*/\1/p')
[[ $(wc -w <<<"$commands") -gt 10 ]] || fail "the commands are not known"
for command in '' $commands; do
  page=man1/vxr${command:+-$command}.1
  # shellcheck disable=SC2086
  "$vxr" $command --help >text
  mandoc -Tascii -Owidth=1000 "$page" | sed 's/.\x08//g' >shown || fail "$page: cannot be shown"
  grep -q '^EXAMPLES' shown || fail "$page: no examples"
  options=$(grep -oE '^  -[^ ]+' text | tr ',' '\n' | tr -d ' ')
  [[ -n $options ]] || fail "$command: no options are known"
  for option in $options; do grep -qE "^ +(-h, )?$option\b" shown || fail "$page: lacks $option"; done
  while read -r word; do grep -qF -- "$word" shown || fail "$page: lacks \"$word\""; done < <(grep -E '^.{29} ' text | cut -c31- | grep -oE '[^ ]+ [^ ]+$')
  sed -n '/^EXAMPLES/,/^SEE/p' shown | grep -oE '^ +vxr .*' >examples
  while read -r _ used line; do
    for option in $(grep -oE -- '--[a-z-]+' <<<"$line"); do
      "$vxr" "$used" --help | grep -qE "^  (-h,)?$option\b" || fail "$page: $used has no $option"
    done
  done <examples
done
mandoc -Tascii -Owidth=1000 man5/vxr-machine.5 | sed 's/.\x08//g' >shown
for key in system_directory code_page interface hardware_ids RootPath DriverRules driver_directory; do
  grep -qE "^ +$key" shown || fail "vxr-machine(5): lacks $key"
done
for word in $(sed '/^## Faults/,$d' "$source/docs/machine.md" | grep -oE '\w+_\w+' | sort -u) 'SEE ALSO'; do
  grep -qF -- "$word" shown || fail "vxr-machine(5): $word is not as the page has it"
done

# --- Completion
mkdir -p files/folder && cd files && touch a.toml b.inf || exit 1
while IFS='|' read -r line expected; do
  # shellcheck disable=SC2016
  got=$(bash -uc '. ../completion/vxr.bash; read -ra COMP_WORDS <<<"$1"; [[ $1 == *" " ]] && COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _vxr; printf "%s\n" "${COMPREPLY[@]}" | sort | xargs' _ "$line" 2>&1)
  [[ $got == "$expected" ]] || fail "bash: \"$line\" gives \"$got\", not \"$expected\""
done <<'END'
vxr in|inf inject
vxr run --ver|--verify --version
vxr run --rules |exact windows
vxr run --rules = w|windows
vxr run --machine |a.toml b.inf folder
vxr run --job |
vxr inject --root |folder
vxr inject --drivers folder f|folder
vxr inject --root folder --dr|--drivers --dry-run
vxr inject --root folder |
vxr show |a.toml b.inf folder
vxr drivers |folder
vxr drivers --id x |folder
vxr system --id x --|--help --id --json --version
vxr unknown --|
END
if command -v zsh >/dev/null; then
  zsh -n ../completion/vxr.zsh || fail "zsh: see above"
  mkdir ../zsh && cp ../completion/vxr.zsh ../zsh/_vxr
  cat >../zsh/try <<'END'
zmodload zsh/zpty && zpty shell zsh -f -i
zpty -w shell "stty cols 250; fpath=($1 \$fpath); autoload -Uz compinit; compinit -u -D; print rea\dy"
zpty -r shell shown '*ready*'
zpty -n -w shell $'vxr --\t' && zpty -r shell shown '*Show the version*' &&
  zpty -n -w shell $'\025vxr inject --\t' && zpty -r shell shown '*root: PCI\\VEN_*1000:0054\[:SUBV:SUBD\[:REV\]\] with*'
END
  timeout 20 zsh -f ../zsh/try "$work/help/zsh" || fail "zsh: options are not shown with their texts"
else
  echo "zsh is not installed: skipped"
fi
if command -v fish >/dev/null; then
  got=$(HOME=$work fish --no-config -c 'source ../completion/vxr.fish; complete -C "vxr run --rules "' | cut -f1 | xargs)
  [[ $got == 'exact windows' ]] || fail "fish: the rules are \"$got\""
  ! grep '^complete -c vxr -n' ../completion/vxr.fish | grep -vE ' -[adF]( |$)' || fail "fish: they complete nothing"
else
  echo "fish is not installed: skipped"
fi
[[ $failures -eq 0 ]] && echo "passed"
exit $((failures > 0))
