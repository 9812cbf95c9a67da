# What one command adds to the completion of a shell; with parse.awk. Variables: shell, command (empty: vxr itself).
# The frames that it goes into are completion.bash, .zsh and .fish.

END {
  for (i = 1; i <= entries; ++i) {
    names_of = split(names[i], each, ",")
    if (shell == "bash") Bash(i)
    else if (shell == "zsh") Zsh(i)
    else Fish(i)
  }
  if (shell == "zsh") ZshEnd()
}

# What an argument is: file, directory, words (its choices) or text; empty for an option without one.
function Kind(i) {
  if (choices[i] != "") return "words"
  if (arg[i] ~ /^(DIR|ROOT)$/) return "directory"
  if (arg[i] ~ /^(FILE|OUT|DISK)$/ && !(kind[i] == "O" && arg[i] == "DISK")) return "file"
  return arg[i] == "" ? "" : "text"
}

# One line for each entry: COMMAND NAME KIND MANY CHOICES...; a positional's name is "-".
function Bash(i, j, what) {
  what = Kind(i) == "" ? "none" : Kind(i)
  for (j = 1; j <= names_of; ++j) {
    name = kind[i] == "P" ? "-" : each[j]
    printf "%s %s %s %d %s\n", command == "" ? "vxr" : command, name, what, many[i], choices[i]
  }
}

function Quoted(line) {
  gsub(/'/, "'\\''", line)
  return "'" line "'"
}

function Zsh(i, j, action, value) {
  if (kind[i] == "S") {
    print "    " Quoted(names[i] ":" text[i])
    return
  }
  if (command != "" && !begun++) printf "  %s)\n    _arguments -s", command
  action = Kind(i) == "file" ? "_files" : Kind(i) == "directory" ? "_directories" : ""
  if (Kind(i) == "words") action = "(" choices[i] ")"
  value = Kind(i) == "" ? "" : ":" Escaped(arg[i], ":") ":" action
  if (kind[i] == "P") {
    specs = specs " \\\n      " Quoted((many[i] ? "*:" : ":") Escaped(names[i], ":") ":" action)
    return
  }
  for (j = 1; j <= names_of; ++j) {
    specs = specs " \\\n      " Quoted((many[i] ? "*" : "") each[j] (value == "" ? "" : "=") "[" Escaped(text[i], "]") "]" value)
  }
}

# With a backslash before each of its own and before the character that would end the text.
function Escaped(line, end) {
  gsub(/\\/, "&&", line)
  gsub("[" end "]", "\\\\&", line)
  return line
}

# Behind the list of commands come the options of vxr itself, and what chooses among the commands.
function ZshEnd() {
  if (command != "") {
    print specs "\n    ;;"
    return
  }
  print "  )\n  if ((CURRENT == 2)) && [[ $PREFIX == -* ]]; then\n    _arguments -s" specs "\n    return\n  fi"
  print "  if ((CURRENT == 2)); then\n    _describe command commands\n    return\n  fi"
  print "  local command=$words[2]\n  shift words\n  ((--CURRENT))\n  case $command in"
}

function Fish(i, j, line) {
  if (kind[i] == "S") {
    printf "complete -c vxr -n __fish_use_subcommand -a %s -d %s\n", names[i], FishQuoted(text[i])
    return
  }
  if (kind[i] == "P" && Kind(i) == "text") return
  line = "complete -c vxr -n " (command == "" ? "__fish_use_subcommand" : "'__fish_seen_subcommand_from " command "'")
  if (kind[i] == "O") {
    for (j = 1; j <= names_of; ++j) {
      line = line (each[j] ~ /^--/ ? " -l " substr(each[j], 3) : " -s " substr(each[j], 2))
    }
    line = line " -d " FishQuoted(text[i])
    if (Kind(i) != "") line = line (Kind(i) == "file" ? " -r -F" : " -x")
  } else if (Kind(i) == "file") {
    line = line " -F"
  }
  if (Kind(i) == "directory") line = line " -a '(__fish_complete_directories)'"
  if (Kind(i) == "words") line = line " -a '" choices[i] "'"
  print line
}

function FishQuoted(line) {
  gsub(/[\\']/, "\\\\&", line)
  return "'" line "'"
}
