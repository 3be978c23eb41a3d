// Shares and means. Of nothing they are not a number, which JSON shows as null.
#ifndef KEL_NN_TOOLS_EVALUATION_MEAN_H_
#define KEL_NN_TOOLS_EVALUATION_MEAN_H_

#include <cstddef>
#include <limits>
#include <numeric>
#include <vector>

namespace kelnn_cli {

constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

inline double share(size_t part, size_t whole) {
  return whole == 0 ? kUndefined : static_cast<double>(part) / static_cast<double>(whole);
}

template <typename Number>
double mean(const std::vector<Number>& values) {
  return values.empty() ? kUndefined
                        : std::accumulate(values.begin(), values.end(), 0.0) /
                              static_cast<double>(values.size());
}

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_EVALUATION_MEAN_H_
