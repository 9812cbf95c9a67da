#!/usr/bin/env bash
# The interface that hosts were built against: exported names, prototypes, records and constants, as kept for SONAME 0.
#   abi_test.sh LIBRARY SOURCE [--dump]      --dump prints what is to be kept
set -u
library=$1
source=$2
kept=$source/tests/data/abi_0.txt
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C
cd "$source/include" || exit 1

headers=(vxrcore/*.h)
printf '#include "%s"\n' "${headers[@]}" >"$work/all.h"
# Without comments, on one line.
text=$(gcc -fpreprocessed -dD -E -P "${headers[@]/#/./}" 2>/dev/null | tr '\n\t' '  ' | tr -s ' ')
records=$(grep -oE 'typedef struct \w+ \{[^}]*\}' <<<"$text")
constants=$(grep -oE 'enum \{[^}]*\}' <<<"$text" | grep -oE '\bVXR\w+' | sort -u
  grep -ohE '^#define VXR_[A-Z_]+ [0-9]\w*' "${headers[@]}" | awk '{ print $2 }')

# A program that tells sizes, offsets and values.
{
  printf '#include <inttypes.h>\n#include <stdio.h>\n#include "%s/all.h"\nint main(void) {\n' "$work"
  while read -r _ _ record fields; do
    echo "printf(\"record $record %zu\\n\", sizeof($record));"
    tr ';' '\n' <<<"${fields//[\{\}]/}" | sed -E 's/^.*\(\*(\w+)\)\(.*$/\1/; s/\[[^]]*\]//g; s/^ *(const )?\w+ +\*?//; s/,/ /g' |
      xargs -n 1 | while read -r field; do
      echo "printf(\"field $record.$field %zu %zu\\n\", offsetof($record, $field), sizeof((($record *)0)->$field));"
    done
  done <<<"$records"
  for constant in $constants; do echo "printf(\"constant $constant %lld\\n\", (long long)$constant);"; done
  echo 'return 0; }'
} >"$work/dump.c"
gcc -std=c11 -I. -aux-info "$work/prototypes" "$work/dump.c" -o "$work/dump" || exit 1
{
  nm -D --defined-only --with-symbol-versions "$library" | awk '$2 != "A" { print "export", $3 }' | sort
  sed -nE 's/ = .*//; s|^.*extern (.*[ *]VXR[A-Za-z]+_.*)|function \1|p' "$work/prototypes" | sort -u
  grep -oE 'typedef \w+ \(\*\w+\)\([^)]*\)' <<<"$text" | sed 's/^typedef/callback/'
  "$work/dump"
} >"$work/now"

if [[ ${3:-} == --dump ]]; then
  cat "$work/now"
  exit 0
fi
[[ $(grep -c ^field "$work/now") -gt 100 ]] || { echo "FAILED: the headers could not be read"; exit 1; }
diff "$kept" "$work/now" && echo "$(wc -l <"$work/now") lines, as kept" && exit 0
echo "FAILED: the interface is another. Lines with < are what hosts rely on: keep them, or raise SOVERSION. Lines with >"
echo "alone are new: keep them too, by  tests/abi_test.sh $library $source --dump >$kept"
exit 1
