// SPDX-License-Identifier: Apache-2.0
// The same as stranger.c, with the C++ objects.
#include <cstdio>
#include <kel_nn.hpp>
#include <vector>

int main() {
  kel_nn::Library library("models");
  std::printf("%d\n", 0);
}
