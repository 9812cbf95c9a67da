#!/usr/bin/env bash
# The manual pages (compressed) and the completion of shells, made of what a vxr says of itself and of docs/machine.md.
#   make_pages.sh VXR SOURCE OUT VERSION DATE
set -euo pipefail
vxr=$1 source=$2 out=$3 version=$4
scripts=$source/tools/help
date=$(date -u -d "$5" +%Y-%m-%d)
export LC_ALL=C.UTF-8

rm -rf "$out"
mkdir -p "$out/man1" "$out/man5" "$out/help" "$out/completion"
"$vxr" --help >"$out/help/vxr"
commands=$(awk '/^[A-Z][a-z]+:$/ { here = $0 == "Subcommands:" } here && /^  [^ ]/ { print $1 }' "$out/help/vxr")
for command in $commands; do "$vxr" "$command" --help >"$out/help/vxr-$command"; done

pages=$(cd "$out/help" && echo *)
for page in $pages; do
  awk -f "$scripts/parse.awk" -f "$scripts/man.awk" -v page="$page" -v date="$date" -v version="$version" \
    -v pages="$pages" -v examples="$scripts/examples.txt" "$out/help/$page" >"$out/man1/$page.1"
done
# The converter sets code in a font that terminals do not have, and puts paragraphs where headings begin one.
awk -f "$scripts/machine.awk" "$source/docs/machine.md" |
  lowdown -s -tman -M title=vxr-machine -M section=5 -M date="$date" -M source="vxrcore $version" |
  awk '{ gsub(/\\fC/, "\\fB") } !(heading && /^\.LP$/) { print } { heading = /^\.S[HS]/ ? 2 : heading - (heading > 0) }' \
    >"$out/man5/vxr-machine.5"
gzip -9n "$out"/man?/*

for shell in bash zsh fish; do
  for command in "" $commands; do
    awk -f "$scripts/parse.awk" -f "$scripts/completion.awk" -v shell=$shell -v command="$command" \
      "$out/help/vxr${command:+-$command}"
  done >"$out/completion/parts"
  awk -v parts="$out/completion/parts" '/^@/ { while ((getline line < parts) > 0) print line; next } { print }' \
    "$scripts/completion.$shell" >"$out/completion/vxr.$shell"
done
rm "$out/completion/parts"
