#include "evaluation_similarity.h"

#include <algorithm>
#include <cmath>

#include "evaluation_mean.h"

namespace kelnn_cli {
namespace {

constexpr double kFalseAcceptRate = 0.01;

// In ascending order: one below all similarities, one between any two that differ, one above all.
std::vector<double> thresholds(const std::vector<float>& same,
                               const std::vector<float>& different) {
  std::vector<double> all(same.begin(), same.end());
  all.insert(all.end(), different.begin(), different.end());
  std::sort(all.begin(), all.end());
  all.erase(std::unique(all.begin(), all.end()), all.end());

  std::vector<double> between = {all.front() - 1};
  for (size_t i = 1; i < all.size(); ++i) between.push_back((all[i - 1] + all[i]) / 2);
  between.push_back(all.back() + 1);
  return between;
}

struct Rates {
  double accepted, rejected;
};

Rates rates(double threshold, const std::vector<float>& sorted) {
  const auto accepted = std::upper_bound(sorted.begin(), sorted.end(), threshold);
  return {share(static_cast<size_t>(sorted.end() - accepted), sorted.size()),
          share(static_cast<size_t>(accepted - sorted.begin()), sorted.size())};
}

}  // namespace

SimilarityFigures similarity_figures(std::vector<float> same, std::vector<float> different) {
  SimilarityFigures figures = {kUndefined, kUndefined, kUndefined, mean(same), mean(different)};
  if (same.empty() || different.empty()) return figures;
  std::sort(same.begin(), same.end());
  std::sort(different.begin(), different.end());

  double smallest_gap = 2;  // more than there can be
  for (const double threshold : thresholds(same, different)) {
    const double false_accepts = rates(threshold, different).accepted;
    const Rates same_rates = rates(threshold, same);
    const double gap = std::abs(false_accepts - same_rates.rejected);
    if (gap < smallest_gap) {
      smallest_gap = gap;
      figures.equal_error_rate = (false_accepts + same_rates.rejected) / 2;
      figures.equal_error_threshold = threshold;
    }
    if (std::isnan(figures.true_accept_rate) && false_accepts <= kFalseAcceptRate) {
      figures.true_accept_rate = same_rates.accepted;
    }
  }
  return figures;
}

}  // namespace kelnn_cli
