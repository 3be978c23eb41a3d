// How well similarities tell pairs of the same person from pairs of different ones.
#ifndef KEL_NN_TOOLS_EVALUATION_SIMILARITY_H_
#define KEL_NN_TOOLS_EVALUATION_SIMILARITY_H_

#include <cstddef>
#include <vector>

namespace kelnn_cli {

// A pair is accepted as the same person when its similarity is above a threshold. Thresholds lie half
// way between neighbouring similarities, and at both ends beyond all. Not a number where there are no
// pairs of a kind.
struct SimilarityFigures {
  // Where the share of different pairs that are accepted and the share of same pairs that are not come
  // closest, the mean of the two; the lowest such threshold.
  double equal_error_rate, equal_error_threshold;
  // The share of same pairs accepted at the lowest threshold that accepts 1 % of different pairs or
  // fewer.
  double true_accept_rate;
  double mean_same, mean_different;
};

SimilarityFigures similarity_figures(std::vector<float> same, std::vector<float> different);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_EVALUATION_SIMILARITY_H_
