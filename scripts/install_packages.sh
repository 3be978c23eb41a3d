#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs Debian packages by group, those that are missing alone: scripts/install_packages.sh [GROUP...]
#   build   the library for a PC, the command line, the Python module, the examples, and the scripts that make samples
#   test    what scripts/test.sh needs on top
#   data    what scripts/evaluate_models.sh needs on top, to draw pictures and make sounds
#   train   what scripts/train_models.sh needs on top of those
#   photographs  photographs for the page of scripts/demo.sh, and the video of scripts/fine_tune_street.sh
#   docs    what scripts/document.sh needs
#   packages what scripts/install.sh needs on top of build and docs
#   notebook what executes examples/first_steps.ipynb as Jupyter does, on top of build and test
#   digests what scripts/digests.sh needs on top of build and test: compilers for other processors
#   browser what shows the live page to its test, on top of build and test, which is done without where it is not
#   lint    what scripts/lint.sh needs on top
#   coverage what scripts/coverage.sh needs on top of build and test
# Silent when everything is there. Needs root only when something is missing.
set -euo pipefail

declare -A groups=(
  [build]="ca-certificates cmake ninja-build g++ libopencv-dnn-dev libopencv-imgcodecs-dev libopencv-imgproc-dev
           libopencv-videoio-dev libavcodec-dev libavformat-dev libavutil-dev libswresample-dev libswscale-dev libpng-dev
           libturbojpeg0-dev libonnx-dev libprotobuf-dev protobuf-compiler
           zlib1g-dev pkg-config libsndfile1-dev libsamplerate0-dev libcpp-httplib-dev libsodium-dev libsqlite3-dev libcli11-dev libfmt-dev nlohmann-json3-dev
           python3 python3-dev python3-numpy python3-onnx python3-pil python3-soundfile pybind11-dev"
  [test]="clang libclang-rt-14-dev g++-mipsel-linux-gnu qemu-user googletest libgtest-dev libgmock-dev
          libbenchmark-dev libfftw3-dev libyuv-dev espeak-ng meson abigail-tools lintian dpkg-dev file python3-pytest
          python3-jsonschema fish zsh python3-pip python3-matplotlib python3-distributed mypy jq mosquitto mosquitto-clients"
  [data]="python3-opencv python3-scipy python3-moderngl libegl1 libgl1 libgl1-mesa-dri espeak-ng"
  [train]="python3-torch gnome-backgrounds mate-backgrounds ukui-wallpapers"
  [photographs]="opencv-doc python3-skimage"
  [docs]="doxygen doxygen-awesome-css"
  [packages]="dpkg-dev file"
  [notebook]="python3-nbconvert python3-ipykernel"
  [digests]="g++-aarch64-linux-gnu g++-arm-linux-gnueabihf g++-i686-linux-gnu g++-mips-linux-gnu"
  [browser]="chromium"
  [coverage]="llvm-14"
  [lint]="clang-format clang-tidy flake8 mypy"
)

[ $# -gt 0 ] || set -- build
wanted=()
for group in "$@"; do
  if [ -z "${groups[$group]:-}" ]; then
    echo "install_packages.sh: no group '$group'; there are: browser build coverage data digests docs lint notebook packages photographs test train" >&2
    exit 2
  fi
  read -r -d '' -a packages <<<"${groups[$group]}" || true
  wanted+=("${packages[@]}")
done

installed=$(dpkg-query -W -f='${Package} ${db:Status-Status}\n' "${wanted[@]}" 2>/dev/null || true)
missing=()
for package in "${wanted[@]}"; do
  grep -qxF "$package installed" <<<"$installed" || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "install_packages.sh: run this as root first: apt-get install ${missing[*]}" >&2
  exit 1
fi
echo "Installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# A mirror may be busy for a while.
for attempt in 1 2 3 4 5; do
  if { apt-get update && apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    exit 0
  fi
  echo "apt-get did not get through (attempt $attempt of 5)" >&2
  [ "$attempt" -eq 5 ] || sleep $((attempt * 5))
done
tail -n 20 "$log" >&2
exit 1
