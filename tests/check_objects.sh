#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Holds the library's objects, one for each source, against what they may need and against the table of
# docs/architecture.md that names the file of every exported function: check_objects.sh NM OBJECT...
set -euo pipefail
nm=$1
shift
here=$(dirname "$0")
failed=0
complain() { echo "FAIL: $1" >&2; failed=1; }

# Small C libraries have no more of <cmath> than this, and no other may be asked for.
maths='ceilf|cos|exp|expf|floor|floorf|log|sin|sqrt|sqrtf'
basics='calloc|fclose|flockfile|fopen|fread|free|fseek|ftell|funlockfile|fwrite|malloc|memcmp|memcpy|memmove|memset'
basics+='|printf|putc|putchar|puts|qsort|snprintf|stat|stdout|strdup|strlen|vfprintf|vprintf'
[[ $nm == *mips* ]] || basics+='|__[a-z]+_chk'  # what glibc checks, where a build asks for it
runtime='_ZN4jzdl.*|_Zn[wa].*|_Zd[la].*|_ZSt7nothrow'  # jzdl's own, and what its matrices take
compiler='_gp_disp|_GLOBAL_OFFSET_TABLE_|__(cpu|stack_chk|aeabi|asan|ubsan)_.*'
# Clang's memcmp() for equality, and its sanitizer's types.
compiler+='|bcmp|_ZTVN10__cxxabiv120__function_type_infoE'
compiler+='|__(div|mod|udiv|umod|mul|float|floatun|fix|fixuns)([sdt][if])+[34]?'
defined=$("$nm" --defined-only "$@" | awk 'NF == 3 { print $3 }' | sort -u)
needed=$("$nm" --undefined-only "$@" | awk 'NF == 2 { print $2 }' | sort -u)
unexpected=$(comm -23 <(echo "$needed") <(echo "$defined") |
  grep -vxE "$maths|$basics|$runtime|$compiler" | tr '\n' ' ' || true)
[ -z "$unexpected" ] || complain "needs $unexpected"

# The file of each name: as the objects have it, and as the rows of the table with a pattern for it have it.
declare -A file_of
while IFS=: read -r object symbol; do
  file_of[${symbol##* }]=${object##*.dir/}
done < <("$nm" -A --defined-only "$@")
rows=() helpers=()
while read -r first second; do
  if [ -n "$second" ]; then rows+=("$first $second"); else helpers+=("$first"); fi
done < <(awk -F'|' '
  /^## / { inside = $0 == "## Which file a function is in" }
  inside && /^\|.*`/ {
    file = $3; gsub(/[` ]/, "", file)
    count = split($2, part, "`")
    for (i = 2; i <= count; i += 2) print part[i], file
    count = split($4, part, "`")
    for (i = 2; i <= count; i += 2) print part[i]
  }' "$here/../docs/architecture.md")
for helper in "${helpers[@]}"; do
  compgen -G "$here/../src/${helper}*" >/dev/null || compgen -G "$here/../plat/jzt31/${helper}*" >/dev/null ||
    complain "architecture.md names $helper, which is no source"
done
while read -r name; do
  [[ $name != \#* ]] || continue
  told=
  for row in "${rows[@]}"; do
    # shellcheck disable=SC2053 # a pattern it is
    if [[ $name == ${row% *} ]]; then told+=${row#* }; fi
  done
  object=${file_of[$name]:-}
  [[ -n $told && ${object%.*} == *"$told" ]] ||
    complain "$name is in ${object:-no object}, and in architecture.md in ${told:-no row}"
done <"$here/exports.txt"
exit "$failed"
