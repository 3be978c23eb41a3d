// SPDX-License-Identifier: Apache-2.0
#include "assignment.h"

#include <algorithm>
#include <limits>

namespace kelnn_cli {

// Kuhn's Hungarian method with Munkres's potentials, one row after the other: each takes the cheapest way to a free column
// that leads over the pairs so far. Rows and columns are filled up to a square with what is worth nothing.
std::vector<int> best_pairs(const std::vector<std::vector<double>>& worth) {
  const size_t rows = worth.size(), columns = rows ? worth[0].size() : 0;
  const size_t side = std::max(rows, columns);
  const auto cost = [&](size_t row, size_t column) {
    return row < rows && column < columns ? -worth[row][column] : 0.0;
  };
  constexpr double kFar = std::numeric_limits<double>::infinity();
  std::vector<double> of_row(side, 0), of_column(side + 1, 0);  // potentials
  std::vector<size_t> row_at(side + 1, side);                   // a column's row; `side`: none
  for (size_t row = 0; row < side; ++row) {
    std::vector<double> distance(side, kFar);
    std::vector<size_t> before(side, side);
    std::vector<bool> is_done(side + 1, false);
    size_t at = side;  // a column that does not exist, where the way begins
    row_at[at] = row;
    do {
      is_done[at] = true;
      size_t next = side;
      double step = kFar;
      for (size_t column = 0; column < side; ++column) {
        if (is_done[column]) continue;
        const double length = cost(row_at[at], column) - of_row[row_at[at]] - of_column[column];
        if (length < distance[column]) {
          distance[column] = length;
          before[column] = at;
        }
        if (distance[column] < step) {
          step = distance[column];
          next = column;
        }
      }
      for (size_t column = 0; column <= side; ++column) {
        if (is_done[column]) {
          of_row[row_at[column]] += step;
          of_column[column] -= step;
        } else {
          distance[column] -= step;
        }
      }
      at = next;
    } while (row_at[at] != side);
    for (; at != side; at = before[at]) row_at[at] = row_at[before[at]];
  }
  std::vector<int> pairs(rows, -1);
  for (size_t column = 0; column < columns; ++column) {
    const size_t row = row_at[column];
    if (row < rows && worth[row][column] > 0) pairs[row] = static_cast<int>(column);
  }
  return pairs;
}

}  // namespace kelnn_cli
