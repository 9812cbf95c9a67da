#!/usr/bin/env bash
# What pages name is there, and every command that they show is run by a test: those of vxr by docs_test.sh; those that
# take long by the test that takes them from the page, or by .ci/run; the others here, in a copy of the project that is
# configured, but whose builds and tests are only looked up. What cannot be run stands below, each with the reason, and
# nothing else is left.
#   pages_test.sh BUILD SOURCE
set -u
build=$1
source=$2
. "$source/tests/support/pages.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0 ran=0

declare -A cannot=(
  ['mount /dev/sda2 /mnt']='wants the disk of a machine that is to be mended'
  ['lib /def:vxrcore.def /machine:x64 /out:vxrcore.lib']="wants Microsoft's tools; the line below it makes the same file"
)

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# --- What other tests take from pages, by the calls with which they do, and what .ci/run runs
{
  cat "$source"/tests/*_test.sh | grep -oE "page_commands? \"\\\$source/[^\"]+\"( '[^']+')?" | while read -r call; do
    eval "$call" || echo "no command: $call"
  done
  grep -E '^scripts/' "$source/.ci/run"
} >"$work/taken" 2>&1
while read -r line; do fail "$line"; done < <(grep '^no command: ' "$work/taken")

while read -r line; do fail "$line"; done < <(dangling_links "$source"; missing_paths "$source")

# --- The copy, and what stands before cmake and ctest in it
mkdir -p "$work/copy" "$work/bin"
tar c -C "$source" --exclude=./build --exclude=./.git . | tar x -C "$work/copy"
cd "$work/copy" || exit 1
cat >"$work/bin/cmake" <<SCRIPT
#!/bin/sh
if [ "\$1" = --build ]; then
  case "\$*" in
    *' --target '*) exec $(command -v cmake) "\$@" -- -t query ;;
    *) exec $(command -v cmake) "\$@" -- -t query all ;;
  esac
elif [ ! -f "build/\$2/build.ninja" ]; then
  exec $(command -v cmake) "\$@"
fi
SCRIPT
cat >"$work/bin/ctest" <<SCRIPT
#!/bin/sh
$(command -v ctest) "\$@" -N | tee tests.listed
grep -q 'Total Tests: [1-9]' tests.listed
SCRIPT
printf '#!/bin/sh\n' | tee scripts/bootstrap >scripts/nothing
mkdir -p build/bench/tests/bench && mv scripts/nothing build/bench/tests/bench/vxr_bench
chmod +x "$work"/bin/* build/bench/tests/bench/vxr_bench
export PATH=$work/bin:$PATH

# What is built is not in the copy.
built() {
  eval "${1//build\/native/$build}" >output 2>&1 && grep -q '^\[==========\] 1 test ' output
}

run() {
  case $1 in
    'cmake --preset '* | 'ctest '* | 'scripts/test '* | scripts/bench) eval "$1" >output 2>&1 ;;
    build/native/*) built "$1" ;;
    *) echo 'no test runs it; and it is not among those that cannot be run' >output && false ;;
  esac
}

while IFS=: read -r page line; do
  if [[ -n ${cannot[$line]:-} ]]; then
    cannot[$line]=told
  elif [[ $line != 'vxr '* ]] && ! grep -qxF -- "$line" "$work/taken"; then
    ran=$((ran + 1))
    run "$line" || fail "$page: $line: $(tail -n 5 output)"
  fi
done < <(cd "$source" && for page in *.md docs/*.md $(find examples -name '*.md'); do
  page_commands "$page" | sed "s|^|$page:|"
done | sort -t: -k2 -u)
for line in "${!cannot[@]}"; do
  [[ ${cannot[$line]} == told ]] || fail "no page shows any more: $line"
done
echo "$ran commands run here, $(sort -u "$work/taken" | wc -l) elsewhere, ${#cannot[@]} not"
exit $((failures > 0))
