#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What each shell completes: check_completion.sh KELNN DIRECTORY_OF_SHIMS
set -euo pipefail
PATH=$(dirname "$1"):$PATH
shims=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir functions
cp "$shims/_kelnn" functions
touch picture.jpg
code=0
# What is typed, and what the word under the cursor becomes.
expect() {
  [ "$3" = "$2" ] && return
  echo "$shell: \"$1\" is completed to \"$3\", not to \"$2\"" >&2
  code=1
}
in_bash() {
  bash -c '. "$2/kelnn.bash"; read -ra COMP_WORDS <<<"$1"; COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _kelnn kelnn; echo "${COMPREPLY[@]}"' - "$1" "$shims"
}
in_fish() { HOME=$work fish --no-config -c 'source $argv[2]/kelnn.fish; complete -C "$argv[1]"' "$1" "$shims" | cut -f 1; }
# Typed into a shell of its own, at whose line's beginning an echo is put then.
cat >ask.zsh <<'END'
zmodload zsh/zpty
zpty shell 'TERM=dumb zsh -f -i'
zpty -w shell "PS1= fpath=($PWD/functions \$fpath); autoload -Uz compinit; compinit -u -D; print re''ady"
zpty -r shell said $'*ready\r\n*'
zpty -w -n shell "$1"$'\t'
zpty -w -n shell $'\x05 \x01echo "<\x05>"\n'
zpty -r shell said $'*\n<*>*'
print -r -- "$said"
END
in_zsh() { timeout 60 zsh -f ask.zsh "$1" | tr -d '\r' | sed -n 's/^<.* \([^ ]*\) >$/\1/p'; }
for shell in bash zsh fish; do
  command -v $shell >/dev/null || continue
  expect "kelnn wat" watch "$(in_$shell "kelnn wat")"
  expect "kelnn faces --save-c" --save-crops "$(in_$shell "kelnn faces --save-c")"
  expect "kelnn pack face-f" face-features "$(in_$shell "kelnn pack face-f")"
  [ $shell = bash ] ||  # which completes files by itself
    expect "kelnn faces picture.j" picture.jpg "$(in_$shell "kelnn faces picture.j")"
done
exit $code
