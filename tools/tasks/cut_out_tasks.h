// The library's tasks on a part of a picture, cut out and scaled as a camera would.
#ifndef KEL_NN_TOOLS_CUT_OUT_TASKS_H_
#define KEL_NN_TOOLS_CUT_OUT_TASKS_H_

#include <opencv2/core.hpp>
#include <string>

#include "library_call.h"

namespace kelnn_cli {

using kel_nn::FaceClass;
using kel_nn::Feature;
using kel_nn::Landmarks;
using kel_nn::similarity;

// `part` is cut off at the picture's edges.
kel_nn::Image grey_cut_out(const cv::Mat& bgr, const cv::Rect& part);
kel_nn::Image rgb_cut_out(const cv::Mat& bgr, const cv::Rect& part);

template <typename Task>
class CutOutTask {
 public:
  // A Failure says why the model does not load.
  explicit CutOutTask(const kel_nn::Library& library)
      : root_(library.directory()), task_(explained(root_, [&] { return Task(library); })) {}
  explicit CutOutTask(const std::string& root) : CutOutTask(kel_nn::Library(root)) {}

  auto of(const kel_nn::Image& cut_out) {
    return explained(root_, [&] { return task_.of(cut_out); });
  }

 private:
  std::string root_;
  Task task_;
};

using FaceClassifier = CutOutTask<kel_nn::FaceClassifier>;
using FaceFeatures = CutOutTask<kel_nn::FaceFeatures>;
using FaceLandmarks = CutOutTask<kel_nn::FaceLandmarks>;
using PersonClassifier = CutOutTask<kel_nn::PersonClassifier>;

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_CUT_OUT_TASKS_H_
