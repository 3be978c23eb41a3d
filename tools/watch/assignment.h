// SPDX-License-Identifier: Apache-2.0
// Who goes with whom, so that the sum of what the pairs are worth is the largest.
#pragma once

#include <vector>

namespace kelnn_cli {

// `worth`: a row for each of the first, a number for each of the second, none below 0. Gives each row its column, or -1:
// what is left over, and pairs that are worth nothing.
std::vector<int> best_pairs(const std::vector<std::vector<double>>& worth);

}  // namespace kelnn_cli
