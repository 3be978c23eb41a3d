// How far a long command is, on standard error, for someone who sits in front of it.
#ifndef KEL_NN_TOOLS_PROGRESS_BAR_H_
#define KEL_NN_TOOLS_PROGRESS_BAR_H_

#include <chrono>
#include <cstdint>

namespace kelnn_cli {

// Draws nothing when standard error is not a terminal, when the total is not known (0), and in the
// first half second.
class ProgressBar {
 public:
  explicit ProgressBar(uint64_t total);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void update(uint64_t done);
  void hide();  // before a line of text; the next update draws it again

 private:
  using Clock = std::chrono::steady_clock;
  uint64_t total_;
  bool is_drawn_ = false;
  Clock::time_point next_;
};

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_PROGRESS_BAR_H_
