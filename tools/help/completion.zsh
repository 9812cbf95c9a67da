#compdef vxr
# Completion of vxr's command line for zsh.

_vxr() {
  local -a commands
  commands=(
@
  esac
}

_vxr "$@"
