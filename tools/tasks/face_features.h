// The library's face features task, ready to use.
#ifndef KEL_NN_TOOLS_FACE_FEATURES_H_
#define KEL_NN_TOOLS_FACE_FEATURES_H_

#include <string>
#include <vector>

#include "files.h"
#include "loaded_task.h"

namespace kelnn_cli {

class FaceFeatures {
 public:
  explicit FaceFeatures(const std::string& root);  // a Failure says why the model does not load

  // A copy: the library's own values hold until the next face.
  std::vector<float> of(const Bytes& face);

 private:
  LoadedTask task_;
};

float similarity(std::vector<float> a, std::vector<float> b);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_FACE_FEATURES_H_
