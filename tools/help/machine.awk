# docs/machine.md as a manual page's text: the title gives way to the page's own, and tables, too wide for a terminal,
# become lists of terms. Links to other pages are their names. What is for those who build the library is left out.

NR == 1 {
  print "# NAME\n\nvxr-machine - machine file of vxr\n\n# DESCRIPTION"
  next
}
/^```/ { fenced = !fenced }
/^```/ || fenced {
  if (!left_out) print
  next
}
/^##/ {
  left_out = /^## Faults$/
  sub(/^#/, "")
}
left_out { next }
{
  while (match($0, /\[[^][]*\]\([^)]*\)/)) {
    link = substr($0, RSTART + 1, RLENGTH - 1)
    sub(/\]\(.*/, "", link)
    if (link ~ /^[a-z-]+\.md$/) link = "docs/" link
    $0 = substr($0, 1, RSTART - 1) link substr($0, RSTART + RLENGTH)
  }
  $0 = Plain($0)
}
/^\|[-|]+\|$/ { next }
!/^\|/ {
  columns = 0
  print
  next
}
{
  count = split(substr($0, 2, length($0) - 2), cells, / *\| */)
  for (i = 1; i <= count; ++i) gsub(/^ +| +$/, "", cells[i])
  if (!columns) {
    columns = count
    for (i = 1; i <= count; ++i) heads[i] = cells[i]
    next
  }
  remarks = ""
  for (i = 2; i < count; ++i) {
    remark = heads[i] == "type" || cells[i] == "required" ? cells[i] : heads[i] ": " cells[i]
    if (cells[i] != "") remarks = remarks (remarks == "" ? "" : "; ") remark
  }
  if (cells[count] == "") {
    print "machine.awk: " cells[1] " has no meaning" >"/dev/stderr"
    exit wrong = 1
  }
  printf "\n%s%s\n: %s\n", cells[1], remarks == "" ? "" : " (" remarks ")", cells[count]
}
END {
  if (wrong) exit 1
  print "\n# SEE ALSO\n\n**vxr**(1), **vxr-run**(1), **vxr-describe**(1), **vxr-create**(1), **vxr-fix-boot**(1)"
  print "\nThe other pages and the examples that are named here are below /usr/share/doc/vxr; of the portable program,"
  print "beside it."
}

# Outside of code "_" is itself, and begins no emphasis.
function Plain(line, parts, count, i) {
  count = split(line, parts, "`")
  line = ""
  for (i = 1; i <= count; ++i) {
    if (i % 2 == 1) gsub(/_/, "\\\\_", parts[i])
    line = line (i > 1 ? "`" : "") parts[i]
  }
  return line
}
