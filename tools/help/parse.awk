# Reads what `vxr --help` or `vxr COMMAND --help` prints; what is made of it stands in the other scripts.
# Gives: title, usage, footer (one line), and for each entry: kind (P positional, O option, S subcommand), names, arg,
# choices (blanks between), dflt, required, many, excludes, text.

NR == 1 { title = $0; next }
/^Usage: / { usage = substr($0, 8); next }
/^[A-Z][a-z]+:$/ { section = substr($0, 1, 1); next }
/^$/ { section = ""; next }
section == "" { footer = footer (footer == "" ? "" : " ") $0; next }

# The text of an entry begins in column 31, on a line of its own behind a long name.
/^  [^ ]/ {
  kind[++entries] = section
  if (length($0) > 30 && substr($0, 30, 1) == " ") {
    ReadName(entries, substr($0, 1, 29))
    text[entries] = substr($0, 31)
  } else {
    ReadName(entries, $0)
  }
  next
}
{
  sub(/^ +/, "")
  text[entries] = text[entries] (text[entries] == "" ? "" : " ") $0
}

function ReadName(entry, name, words, count, i) {
  count = split(name, words, " ")
  names[entry] = words[1]
  for (i = 2; i <= count; ++i) {
    if (words[i] == "REQUIRED") required[entry] = 1
    else if (words[i] == "...") many[entry] = 1
    else if (words[i] == "Excludes:") excludes[entry] = words[++i]
    else arg[entry] = words[i]
  }
  if (match(arg[entry], /=[^{}]*$/)) {
    dflt[entry] = substr(arg[entry], RSTART + 1)
    arg[entry] = substr(arg[entry], 1, RSTART - 1)
  }
  if (match(arg[entry], /:\{.*\}$/)) {
    choices[entry] = substr(arg[entry], RSTART + 2, RLENGTH - 3)
    gsub(",", " ", choices[entry])
    arg[entry] = substr(arg[entry], 1, RSTART - 1)
  }
}
