// The library's face features task, ready to use.
#ifndef KEL_NN_TOOLS_FACE_FEATURES_H_
#define KEL_NN_TOOLS_FACE_FEATURES_H_

#include <string>
#include <vector>

#include "files.h"
#include "kel_nn.h"

namespace kelnn_cli {

class FaceFeatures {
 public:
  explicit FaceFeatures(const std::string& root);  // a Failure says why the model does not load
  ~FaceFeatures();
  FaceFeatures(const FaceFeatures&) = delete;
  FaceFeatures& operator=(const FaceFeatures&) = delete;

  // A copy: the library's own values hold until the next face.
  std::vector<float> of(const Bytes& face);

 private:
  kel_nn_handle_t handle_;
};

float similarity(std::vector<float> a, std::vector<float> b);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_FACE_FEATURES_H_
