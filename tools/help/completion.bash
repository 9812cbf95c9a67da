# Completion of vxr's command line for bash.

# COMMAND NAME KIND MANY CHOICES...; "-" names a positional argument.
_vxr_entries() {
  cat <<'END'
@
END
}

_vxr() {
  local word=${COMP_WORDS[COMP_CWORD]} command=vxr i name= entry rest kind many choices words= positional= wanted= values=
  ((COMP_CWORD > 1)) && command=${COMP_WORDS[1]}
  # The option before the word, and how far back. "--root=/mnt" comes as three words.
  for ((i = COMP_CWORD - 1; i > 1; --i)); do
    [[ ${COMP_WORDS[i]} == -* ]] && name=${COMP_WORDS[i]} && break
  done
  local distance=$((COMP_CWORD - i))
  [[ $name && ${COMP_WORDS[i + 1]-} == '=' ]] && distance=$((distance - 1))
  [[ $word == '=' ]] && word= distance=1
  COMPREPLY=()
  while read -r entry rest; do
    [[ $entry == "$command" ]] || continue
    read -r entry kind many choices <<<"$rest"
    if [[ $entry == - ]]; then
      positional=${positional:-$kind} # the first; of further ones the command line tells no more
    else
      words+=" $entry"
      if [[ $entry == "$name" && $kind != none ]] && ((distance == 1 || many)); then wanted=$kind values=$choices; fi
    fi
  done < <(_vxr_entries)
  # Of several texts the last word may be the positional argument.
  if [[ -z $wanted || (($word == -* || $wanted == text) && $distance -gt 1) ]]; then
    wanted=$positional
    [[ $word == -* || $command == vxr ]] && wanted=words values=$words
  fi
  case $wanted in
    words) mapfile -t COMPREPLY < <(compgen -W "$values" -- "$word") ;;
    file) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    directory) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
  esac
}
complete -F _vxr vxr
