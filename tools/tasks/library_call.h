// Between OpenCV's pictures and the library's objects, and between its errors and a user.
#ifndef KEL_NN_TOOLS_LIBRARY_CALL_H_
#define KEL_NN_TOOLS_LIBRARY_CALL_H_

#include <opencv2/core.hpp>
#include <string>

#include "kel_nn.hpp"

namespace kelnn_cli {

// Throws a Failure: of a model that does not load, which file it is, what is wrong with it and what
// to do.
[[noreturn]] void explain(const kel_nn::Error& error, const std::string& root);

// What `call` gives, or a Failure for the library's error. `root` is where the models are.
template <typename Call>
auto explained(const std::string& root, const Call& call) {
  try {
    return call();
  } catch (const kel_nn::Error& error) {
    explain(error, root);
  }
}

inline kel_nn::Frame frame_of(const cv::Mat& bgr) {
  return kel_nn::Frame::bgr(bgr.data, bgr.cols, bgr.rows, static_cast<int>(bgr.step));
}

inline kel_nn::Size size_of(const cv::Mat& picture) { return {picture.cols, picture.rows}; }

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_LIBRARY_CALL_H_
