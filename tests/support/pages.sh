# Sourced: what pages show and where they lead. Commands: a fence without a language, or with the shell's, holds nothing
# else: behind "$ " where any line of it has that (the rest is what they print), else on every line. What follows two
# blanks is said of it.

# page_commands PAGE: all, one a line.
page_commands() {
  awk '
    function tell(i) {
      for (i = 1; i <= count; ++i) {
        if (sub(/^\$ /, "", lines[i]) || !prompts) { sub(/  .*/, "", lines[i]); if (lines[i] != "") print lines[i] }
      }
      count = prompts = 0
    }
    /^ *```/ { if (commands) tell(); commands = !fence && /^ *```(sh)?$/; fence = !fence; next }
    commands { sub(/^ +/, ""); lines[++count] = $0; prompts += /^\$ / }' "$1"
}

# page_command PAGE BEGINNING: the one that begins so.
page_command() {
  local line found=()
  while IFS= read -r line; do [[ $line == "$2"* ]] && found+=("$line"); done < <(page_commands "$1")
  [[ ${#found[@]} -eq 1 ]] && printf '%s\n' "${found[0]}" && return
  echo "$1 has ${#found[@]} commands that begin with $2, not one" >&2
  return 1
}

# dangling_links FOLDER: the links to files, in the pages of the folder and below it, that lead nowhere; and the pages that
# a manual page there names and that are not in the folder docs/.
dangling_links() {
  local page link docs
  find "$1" \( -name build -o -name .git \) -prune -o -name '*.md' -print | while read -r page; do
    grep -oE '\]\([^):]+\)' "$page" | sed 's/^](//; s/)$//; s/#.*//' | while read -r link; do
      [[ -e $(dirname "$page")/$link ]] || echo "${page#"$1"/} links to $link, which is not there"
    done
  done
  docs=$(find "$1" -name build -prune -o -type d -name docs -print -quit)
  find "$1" -name 'vxr*.[15].gz' -exec zcat {} + | grep -oE 'docs/[a-z-]+\.md' | sort -u | while read -r link; do
    [[ -e $docs/${link#docs/} ]] || echo "a manual page names $link, which is not there"
  done
}

# missing_paths SOURCE: the files and folders of the project that its pages name and that it does not have; an ending of
# C++ may be left out.
missing_paths() (
  shopt -s nullglob
  cd "$1" || exit 1
  grep -oE '`[A-Za-z0-9_./*-]+/[A-Za-z0-9_./*-]*`' *.md docs/*.md | tr -d '`' | while IFS=: read -r page path; do
    [[ -e ${path%%/*} && $path != build/* ]] || continue
    # shellcheck disable=SC2086
    found=($path $path.h $path.cpp)
    [[ -e ${found[0]:-} || -e $path.h || -e $path.cpp ]] || echo "$page names $path, which is not there"
  done
)
