# Completion of vxr's command line for fish.
complete -c vxr -f
@
