// Networks as the models of tasks, without a start of kelnn for each.
#ifndef KEL_NN_TESTS_TEST_MODELS_H_
#define KEL_NN_TESTS_TEST_MODELS_H_

#include <string>

namespace kelnn_test {

// Writes the model file of the task into the directory `root`, which is made if there is none. `network` is
// one of make_test_networks.py, or the path of an ONNX file.
void pack_model(const std::string& task, const std::string& network, const std::string& root);

// Person and four-class detection for all orientations of a frame, and face detection.
void pack_detectors(const std::string& root);

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_TEST_MODELS_H_
