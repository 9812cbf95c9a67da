# Sourced: the commands that pages show. A fence without a language, or with the shell's, holds nothing else: behind "$ "
# where any line of it has that (the rest is what they print), else on every line. What follows two blanks is said of it.

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
