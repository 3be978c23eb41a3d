#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Trains the sample networks again, on this machine's processors, and measures what came out:
#   scripts/train_models.sh [--quick | --list] [--material DIR] [NETWORK...]     (a directory of models/; default: all)
# Writes over the networks in models/. --quick trains each for 40 steps a run, into build/quick/, to see that everything works;
# the result is no good and is not measured. --list prints the commands and runs none.
#
# DIR holds what is real, each where there is any: sounds/ (recordings with labels.csv, as kelnn eval reads them), scenes/
# (photographs with boxes/ and outlines/, as models/sources/photos/photographs.py reads them) and bodies/ (MakeHuman's, to
# render people of). One recording, speaker or photograph in five is held back. Without --material networks are trained on
# drawings and made sounds alone.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/sample_networks.sh
mode= material= out=build/training
while [[ "${1:-}" = --* ]]; do
  case $1 in
    --quick | --list) mode=$1 ;;
    --material) material=$(realpath "${2:?a directory of material}") && shift ;;
    *) echo "train_models.sh: no option $1" >&2 && exit 2 ;;
  esac
  shift
done
[ "$mode" != --quick ] || out=build/quick

# How each network in models/ was made, run by run: a name for what comes out, then arguments of models/NETWORK/train.py; its
# recipe there has the seed, the examples and their shares. The last run gives the network. Capitals stand for material, without
# which a run is left out (PHOTOS brings EMPTY, desktop backgrounds, with it; RENDERED are persons, BUSTS heads and shoulders of
# persons in several poses); ALONE is a run for when there is none; @NAME is what an earlier run gave.
runs_of() {  # NETWORK
  case $1 in
    face_detection) cat <<RUNS ;;  # 2 hours on two cores
drawn --steps 1800
first --start @drawn --steps 1600 RENDERED PHOTOS
second --start @first --steps 2000 --seed 5 RENDERED PHOTOS
third --start @second --steps 1300 --rate 0.003 --seed 6 --keep 0.5 --keep-of @first RENDERED PHOTOS
RUNS
    face_landmarks) cat <<RUNS ;;  # 12 minutes on one core
alone ALONE
mixed BUSTS EMPTY
RUNS
    face_features) cat <<RUNS ;;  # 20 minutes on one core
alone ALONE
mixed BUSTS PHOTOS
RUNS
    person_detection) cat <<RUNS ;;  # 3 hours
drawn
first --start @drawn --steps 3000 RENDERED PHOTOS
second --start @first --steps 2000 --rate 0.003 --seed 21 --keep 0.5 RENDERED PHOTOS
mixed --start @second --steps 0 --keep 0.2 --keep-of @drawn RENDERED PHOTOS
RUNS
    four_class_detection) cat <<RUNS ;;  # 2 hours
drawn
first --start @drawn --steps 1500 --keep 0.3 PHOTOS
second --start @first --steps 2000 --seed 13 --keep 0.25 --keep-of @drawn PHOTOS
third --start @second --steps 800 --rate 0.0008 --seed 23 --keep 0.5 PHOTOS
mixed --start @third --steps 0 --keep 0.2 --keep-of @drawn PHOTOS
RUNS
    cry_detection) cat <<RUNS ;;  # 40 minutes; the first two runs had 16 to 96 channels
alone ALONE
first SOUNDS
second --start @first --share 0.65 --steps 1400 --rate 0.002 --seed 61 SOUNDS
third --start @second --steps 2600 --rate 0.003 --seed 62 SOUNDS
RUNS
    *) echo drawn ;;  # 5 to 40 minutes
  esac
}

command() {
  [ "$mode" != --list ] || { echo "$*"; return; }
  "$@"
}
python() { command /usr/bin/python3 -m "$@"; }

[ "$mode" = --list ] || scripts/install_packages.sh data train
parts=$out/sounds rendered=$out/rendered busts=$out/busts is_split= is_rendered= are_busts=
for line in "${sample_networks[@]}"; do
  read -r name _ <<<"$line"
  [ $# -eq 0 ] || [[ " $* " == *" $name "* ]] || continue
  [ "$mode" = --list ] || printf '\n=== %s\n' "$name"
  mapfile -t runs < <(runs_of "$name" | while read -r run; do
    [[ "$run" = *[A-Z]* && "${run##* }" != ALONE && -z "$material" || "${run##* }" = ALONE && -n "$material" ]] || echo "$run"
  done)
  for number in "${!runs[@]}"; do
    read -r result run <<<"${runs[number]}"
    if [[ "$run" = *SOUNDS* && -z "$is_split" ]]; then
      is_split=1
      command scripts/kelnn-labels split "$material/sounds" "$parts" --group 'given_.{36}|speech_.|[^_]+_.-[0-9]+'
    elif [[ "$run" = *RENDERED* && -z "$is_rendered" ]]; then
      is_rendered=1
      [ -e "$rendered" ] || python models.sources.bodies.cut_outs "$material/bodies" "$rendered" --count "$([ "$mode" = --quick ] && echo 8 || echo 800)"
    elif [[ "$run" = *BUSTS* && -z "$are_busts" ]]; then
      are_busts=1
      [ -e "$busts" ] || python models.sources.bodies.cut_outs "$material/bodies" "$busts" --busts --views 6 --seed 7 --count "$([ "$mode" = --quick ] && echo 8 || echo 1200)"
    fi
    run=${run/ALONE/} run=${run//SOUNDS/--data $parts/training} run=${run//RENDERED/--rendered $rendered} run=${run//BUSTS/--rendered $busts}
    run=${run//PHOTOS/--photos $material/scenes EMPTY} run=${run//EMPTY/--empty \/usr\/share\/backgrounds}
    file=network
    [[ "$name" != person_detection && "$name" != four_class_detection ]] || file=square
    run=$(sed -E "s|@([a-z]+)|$out/$name/\1/$file.onnx|g" <<<"$run")
    to=$out/$name/$result
    [ -n "${mode#--list}" ] || [ "$number" -lt $((${#runs[@]} - 1)) ] || to=models/$name
    # shellcheck disable=SC2086  # arguments, split at spaces
    python "models.$name.train" $run --out "$to" $([ "$mode" != --quick ] || echo --quick)
  done
done
[ -n "$mode" ] || scripts/evaluate_models.sh "$@"
