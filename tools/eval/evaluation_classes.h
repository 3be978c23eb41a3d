// How often a classifier is right.
#ifndef KEL_NN_TOOLS_EVALUATION_CLASSES_H_
#define KEL_NN_TOOLS_EVALUATION_CLASSES_H_

#include <cstddef>
#include <vector>

#include "evaluation_mean.h"

namespace kelnn_cli {

class ConfusionMatrix {
 public:
  explicit ConfusionMatrix(int class_count)
      : rows_(size_t(class_count), std::vector<size_t>(size_t(class_count))) {}

  void add(int truth, int found, size_t count = 1) { rows_[size_t(truth)][size_t(found)] += count; }

  // A row for each true class, in it a count for each class that was found.
  const std::vector<std::vector<size_t>>& rows() const { return rows_; }
  size_t count(int truth, int found) const { return rows_[size_t(truth)][size_t(found)]; }
  size_t count(int truth) const {
    const std::vector<size_t>& row = rows_[size_t(truth)];
    return std::accumulate(row.begin(), row.end(), size_t{0});
  }
  size_t count() const {
    size_t all = 0;
    for (size_t c = 0; c < rows_.size(); ++c) all += count(int(c));
    return all;
  }
  // Not a number where there is nothing to be right about.
  double recall(int truth) const { return share(count(truth, truth), count(truth)); }
  double accuracy() const {
    size_t right = 0;
    for (size_t c = 0; c < rows_.size(); ++c) right += rows_[c][c];
    return share(right, count());
  }

 private:
  std::vector<std::vector<size_t>> rows_;
};

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_EVALUATION_CLASSES_H_
