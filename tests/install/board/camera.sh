#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The camera, by the names of the commands that reach it: `scp FILE... HOST:DIRECTORY` copies below $CAMERA, and
# `scp -r HOST:FILE DIRECTORY` back; `ssh HOST COMMAND`
# runs there. Programs for MIPS, which the system may not start by itself, get one in front that starts them in the emulator.
set -euo pipefail
case $(basename "$0") in
  ssh)
    cd "$CAMERA"
    unset LD_LIBRARY_PATH
    exec bash -c "$2"
    ;;
  scp)
    if [[ ${*: -2:1} == "$BOARD:"* ]]; then  # back
      from=${*: -2:1}
      exec cp -r "$CAMERA/${from#"$BOARD:"}" "${*: -1:1}"
    fi
    to=$CAMERA/${*: -1:1}
    to=${to/"$BOARD:"/}
    cp -rL "${@:1:$#-1}" "$to"
    find "$to" -type f -perm -u+x ! -name '*.so*' ! -name '*.mips' -exec grep -q '^.ELF' {} \; -print | while read -r program; do
      mv "$program" "$program.mips"
      printf '#!/bin/sh\nexec qemu-mipsel -L /usr/mipsel-linux-gnu "$0.mips" "$@"\n' >"$program"
      chmod +x "$program"
    done
    ;;
esac
