#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The C++ header compiles without a warning, with and without RTTI, and so does each example in its comments:
# check_front_door.sh INCLUDE_DIRECTORY WORK_DIRECTORY COMPILER...
# Compilers that are not installed are left out, except for the first.
set -euo pipefail
include=$1 program=$2/front_door_examples.cpp
shift 2

# An example is a block of lines that are indented by six in a comment, after an empty line; each becomes a function.
{
  cat <<'CODE'
#include "kel_nn.hpp"
// What the examples take for granted.
struct Context {
  const kel_nn::Library& library;
  const kel_nn::Frame &frame, &other;
  kel_nn::Rect box;
  kel_nn::FaceLandmarks& landmarks;
  kel_nn::FaceFeatures& features;
  const int16_t* window;
  const uint8_t* next_frame();
  size_t record(int16_t* samples, size_t n);
  void draw(kel_nn::Rect, float);
  void look(const kel_nn::Landmarks&, const kel_nn::Feature&);
  void show(const std::array<float, 10>&);
  void plot(const uint8_t*, int, int);
  void use(const float*, size_t);
  void alarm();
  void open_door();
  void count_one_more();
  void wake_up();
CODE
  awk '/^ *\*      / && (inside || after_empty) { if (!inside++) print "  void example_" ++count "() {"; sub(/^ *\*      /, "    "); print; next }
       inside { print "  }"; inside = 0 }
              { after_empty = /^ *\*$/ }
       END           { if (count < 10) exit 1 }' "$include/kel_nn.hpp"
  echo "};"
} > "$program"

for compiler in "$@"; do
  if ! command -v "$compiler" > /dev/null; then
    [ "$compiler" != "$1" ] || { echo "no compiler $compiler"; exit 1; }
    continue
  fi
  for rtti in -frtti -fno-rtti; do
    "$compiler" -std=c++17 $rtti -Wall -Wextra -Wpedantic -Wconversion -Werror -Wno-unused-variable -fsyntax-only \
      -I "$include" "$program"
  done
done
