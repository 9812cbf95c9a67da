# Sourced by the scripts: runs a command and shows what it printed only when it fails.
quietly() {
  local log
  log=$(mktemp)
  if "$@" >"$log" 2>&1 </dev/null; then
    rm -f "$log"
    return 0
  fi
  cat "$log" >&2
  rm -f "$log"
  return 1
}
