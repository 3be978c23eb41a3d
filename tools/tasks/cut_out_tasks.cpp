#include "cut_out_tasks.h"

namespace kelnn_cli {

FaceLandmarks::FaceLandmarks(const std::string& root)
    : task_(root, "face-landmarks", "face landmarks", kel_nn_facelm_init, kel_nn_facelm_deinit) {}

Landmarks FaceLandmarks::of(const Bytes& grey_face) {
  Landmarks found;
  task_.check(kel_nn_facelm_process(task_.handle(), grey_face.data(), found.points.data(),
                                    found.pose.data()));
  return found;
}

FaceClassifier::FaceClassifier(const std::string& root)
    : task_(root, "face-classes", "face class", kel_nn_face_classify_init,
            kel_nn_face_classify_deinit) {}

FaceClass FaceClassifier::of(const Bytes& grey_face) {
  FaceClass found;
  task_.check(
      kel_nn_face_classify_process(task_.handle(), grey_face.data(), &found.id, &found.score));
  return found;
}

PersonClassifier::PersonClassifier(const std::string& root)
    : task_(root, "person-classes", "person class", kel_nn_person_classify_init,
            kel_nn_person_classify_deinit) {}

float PersonClassifier::of(const Bytes& rgb_person) {
  float score;
  task_.check(kel_nn_person_classify_process(task_.handle(), rgb_person.data(), &score));
  return score;
}

}  // namespace kelnn_cli
