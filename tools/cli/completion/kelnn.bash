# What follows a kelnn on bash's command line; kelnn says it. Where it says nothing, names of files do.
_kelnn() {
  mapfile -t COMPREPLY < <("$1" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null | cut -f 1)
}
complete -o default -F _kelnn kelnn
