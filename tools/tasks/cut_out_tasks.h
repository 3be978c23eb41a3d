// The library's tasks on a 112 x 112 cut-out that are not face features: landmarks and classes.
#ifndef KEL_NN_TOOLS_CUT_OUT_TASKS_H_
#define KEL_NN_TOOLS_CUT_OUT_TASKS_H_

#include <array>
#include <string>

#include "files.h"
#include "loaded_task.h"

namespace kelnn_cli {

struct Landmarks {
  std::array<float, 10> points;  // x, y of five; the model's own values
  std::array<float, 3> pose;
};

class FaceLandmarks {
 public:
  explicit FaceLandmarks(const std::string& root);  // a Failure says why the model does not load
  Landmarks of(const Bytes& grey_face);

 private:
  LoadedTask task_;
};

struct FaceClass {
  int id;
  float score;
};

class FaceClassifier {
 public:
  explicit FaceClassifier(const std::string& root);
  FaceClass of(const Bytes& grey_face);

 private:
  LoadedTask task_;
};

class PersonClassifier {
 public:
  explicit PersonClassifier(const std::string& root);
  float of(const Bytes& rgb_person);  // the probability of class 0

 private:
  LoadedTask task_;
};

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_CUT_OUT_TASKS_H_
