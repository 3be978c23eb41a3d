// SPDX-License-Identifier: Apache-2.0
// The library's three detectors, each on whole frames of any size.
#ifndef KEL_NN_TOOLS_DETECTOR_H_
#define KEL_NN_TOOLS_DETECTOR_H_

#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "detection.h"
#include "kel_nn.hpp"

namespace kelnn_cli {

class Detector {
 public:
  virtual ~Detector() = default;
  // Best score first. The model is loaded when a frame needs another one than the frame before.
  virtual std::vector<Detection> detect(const cv::Mat& bgr) = 0;
  // Whether a frame of that size needs no other model than the frame before.
  virtual bool is_ready_for(cv::Size frame_size) const = 0;
};

std::unique_ptr<Detector> make_face_detector(const kel_nn::Library& library);
std::unique_ptr<Detector> make_object_detector(const kel_nn::Library& library);
std::unique_ptr<Detector> make_person_detector(const kel_nn::Library& library);

// The key of the person detection task for frames of that size.
std::string person_task(cv::Size frame_size);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_DETECTOR_H_
