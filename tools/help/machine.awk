# docs/machine.md as a manual page's text: the title gives way to the page's own, and tables, too wide for a terminal,
# become lists of terms. Links to other pages lose their addresses.

NR == 1 {
  print "# NAME\n\nvxr-machine - machine file of vxr\n\n# DESCRIPTION"
  next
}
/^##/ { sub(/^#/, "") }
{
  while (match($0, /\[[^][]*\]\([^)]*\)/)) {
    link = substr($0, RSTART + 1, RLENGTH - 1)
    sub(/\]\(.*/, "", link)
    $0 = substr($0, 1, RSTART - 1) link substr($0, RSTART + RLENGTH)
  }
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
  meaning = cells[count] == "" ? "as its name says" : cells[count]
  printf "\n%s%s\n: %s\n", cells[1], remarks == "" ? "" : " (" remarks ")", meaning
}
