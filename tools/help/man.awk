# A manual page of section 1; with parse.awk. Variables: page (vxr-run), date, version, pages (of all commands, for "see
# also"), and examples: a file with a section [run] for each command, in which lines that begin with "$ " are commands.

END {
  printf ".TH %s 1 %s \"vxrcore %s\" \"User Commands\"\n", toupper(page), date, version
  summary = tolower(substr(title, 1, 1)) substr(title, 2)
  sub(/\.$/, "", summary)
  printf ".SH NAME\n%s \\- %s\n", Roff(page), Roff(summary)
  Synopsis()
  status = index(footer, "Exit status: ")
  before = status ? substr(footer, 1, status - 1) : footer
  sub(/ +$/, "", before)
  printf ".SH DESCRIPTION\n%s.\n", Roff(toupper(substr(summary, 1, 1)) substr(summary, 2))
  if (before != "") printf ".PP\n%s\n", Roff(before)
  Entries("P", "ARGUMENTS")
  Entries("S", "COMMANDS")
  Entries("O", "OPTIONS")
  if (status) {
    result = substr(footer, status + 13)
    printf ".SH EXIT STATUS\n%s\n", Roff(toupper(substr(result, 1, 1)) substr(result, 2))
  }
  Examples()
  if (page == "vxr") Files()
  SeeAlso()
}

function Roff(line) {
  gsub(/\\/, "\\e", line)
  gsub(/-/, "\\-", line)
  if (line ~ /^[.']/) line = "\\&" line
  return line
}

function Synopsis(words, count, i) {
  count = split(usage, words, " ")
  command = page
  sub(/-/, " ", command)
  printf ".SH SYNOPSIS\n.B %s\n", Roff(command)
  for (i = split(command, unused, " ") + 1; i <= count; ++i) {
    word = tolower(words[i])
    if (word ~ /^\[.*\]$/) printf "[\\fI%s\\fR]\n", Roff(substr(word, 2, length(word) - 2))
    else printf "\\fI%s\\fR\n", Roff(word)
  }
}

function Entries(which, heading, i, remark) {
  for (i = 1; i <= entries; ++i) {
    if (kind[i] != which) continue
    if (heading != "") printf ".SH %s\n", heading
    heading = ""
    name = names[i]
    gsub(/,/, ", ", name)
    if (which == "S") {
      printf ".TP\n.BR vxr\\-%s (1)\n%s\n", Roff(name), Roff(text[i])
      continue
    }
    printf ".TP\n\\fB%s\\fR", Roff(name)
    if (choices[i] != "") {
      value = choices[i]
      gsub(/ /, "\\fR|\\fB", value)
      printf " \\fB%s\\fR", value
    } else if (which == "O" && arg[i] != "") {
      printf " \\fI%s\\fR", Roff(arg[i])
    }
    printf "%s\n%s.", (many[i] ? " ..." : ""), Roff(text[i])
    if (required[i] && which == "O") printf "\nRequired."
    if (dflt[i] != "") printf "\nWithout it %s.", Roff(dflt[i])
    if (excludes[i] != "") printf "\nNot together with %s.", Roff(excludes[i])
    printf "\n"
  }
}

function Examples(line, here, texts) {
  section = page == "vxr" ? "vxr" : substr(page, 5)
  while ((getline line < examples) > 0) {
    if (line ~ /^\[.*\]$/) {
      if (here) break
      here = line == "[" section "]"
      if (here) print ".SH EXAMPLES"
    } else if (here && line != "") {
      if (line ~ /^\$ /) printf ".PP\n.nf\n.RS 4\n%s\n.RE\n.fi\n", Roff(substr(line, 3))
      else printf "%s%s\n", (++texts > 1 ? ".PP\n" : ""), Roff(line)
    }
  }
}

function Files() {
  print ".SH FILES"
  print ".TP\n.I /usr/share/doc/vxr/docs\nThe pages that manual and help texts name as docs/...;"
  print "rescue.md among them leads from a rescue stick to a system that starts."
  print ".TP\n.I /usr/share/doc/vxr/examples\nMachines to try the commands on, which its README.md tells apart."
  print ".PP\nWith the portable program both lie beside it."
}

function SeeAlso(words, count, i) {
  print ".SH SEE ALSO"
  count = split(pages, words, " ")
  for (i = 1; i <= count; ++i) if (words[i] != page) printf ".BR %s (1),\n", Roff(words[i])
  print ".BR vxr\\-machine (5)"
}
