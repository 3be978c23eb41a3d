// SPDX-License-Identifier: Apache-2.0
// Follows boxes that are given: what the tracker does when nothing is wrong with the network. Reads "FRAME SECONDS COUNT" and
// COUNT lines of "X Y W H"; writes "FRAME TRACK X Y W H" for each box that has a track. The frame's size is the argument.
#include <cstdio>
#include <cstdlib>

#include "tracker.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const cv::Size size(std::atoi(argv[1]), std::atoi(argv[2]));
  kelnn_cli::Tracker tracker;
  int frame, count;
  double seconds;
  while (std::scanf("%d %lf %d", &frame, &seconds, &count) == 3) {
    std::vector<kel_nn::Detection> found;
    for (int i = 0; i < count; ++i) {
      kel_nn::Rect box;
      if (std::scanf("%d %d %d %d", &box.x, &box.y, &box.w, &box.h) != 4) return 1;
      found.push_back({box, 1, 0});
    }
    const auto changes = tracker.take(found, seconds, size);
    for (size_t i = 0; i < found.size(); ++i) {
      const kel_nn::Rect& box = found[i].box;
      if (changes.ids[i] == 0) continue;
      std::printf("%d %d %d %d %d %d\n", frame, static_cast<int>(changes.ids[i]), box.x, box.y,
                  box.w, box.h);
    }
  }
  return 0;
}
