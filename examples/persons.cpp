// SPDX-License-Identifier: Apache-2.0
// Prints the people in a picture: persons MODELS PICTURE.ppm
//
// What detect_persons.c does, with the objects of kel_nn.hpp.
//
// Build: make build/persons   Run: README.md
#include <cstdio>
#include <memory>

#include "kel_nn.hpp"
#include "ppm.h"
#include "program.h"

int main(int argc, char** argv) try {
  if (argc != 3) return std::fprintf(stderr, "usage: %s MODELS PICTURE.ppm\n", argv[0]), 2;
  int width, height;
  const std::unique_ptr<uint8_t, decltype(&std::free)> pixels(read_ppm(argv[2], &width, &height),
                                                              &std::free);
  FILE* const out = own_output();
  if (!pixels || !out) return 1;
  const kel_nn::Library library(argv[1]);
  kel_nn::PersonDetector persons(library, {width, height});
  for (const auto& person : persons.detect(kel_nn::Frame::rgb(pixels.get(), width, height))) {
    const kel_nn::Rect box = person.box;
    std::fprintf(out, "%.2f %d %d %d %d\n", person.score, box.x, box.y, box.w, box.h);
  }
  return 0;
} catch (const kel_nn::Error& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
