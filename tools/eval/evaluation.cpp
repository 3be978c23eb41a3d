// SPDX-License-Identifier: Apache-2.0
#include "evaluation.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "files.h"
#include "frame_sink.h"
#include "progress_bar.h"

namespace kelnn_cli {

void draw_worst(const EvaluationSettings& settings, const std::vector<std::string>& files,
                const std::vector<double>& badness, const std::function<cv::Mat(size_t)>& draw) {
  if (settings.drawings.empty()) return;
  std::vector<size_t> order(badness.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return badness[a] > badness[b]; });
  order.resize(std::min(order.size(), kMaxDrawings));
  std::vector<std::string> drawings, inputs;
  for (const size_t file : order) {
    std::string name = files[file];
    std::replace(name.begin(), name.end(), '/', '_');
    drawings.push_back(
        fmt::format("{}{:03}_{}", with_slash(settings.drawings), drawings.size() + 1, name));
  }
  for (const std::string& file : files) inputs.push_back(path_of(settings.data, file));
  check_outputs(drawings, inputs);
  ProgressBar progress("drawing", static_cast<int64_t>(order.size()), "pictures");
  for (size_t rank = 0; rank < order.size(); ++rank) {
    progress.show(static_cast<int64_t>(rank));
    const auto sink = make_picture(drawings[rank]);
    sink->write(draw(order[rank]));
    sink->finish();
  }
}

}  // namespace kelnn_cli
