#include "support/test_models.h"

#include <filesystem>

#include "files.h"
#include "packed_model.h"
#include "task_catalogue.h"

namespace kelnn_test {

void pack_model(const std::string& task, const std::string& network, const std::string& root) {
  const bool is_path = network.find('/') != std::string::npos;
  const std::string path = is_path ? network : KEL_NN_TEST_NETWORKS "/" + network + ".onnx";
  std::filesystem::create_directories(root);
  kelnn_cli::write_file(root + "/" + kelnn_cli::find_task(task)->file_name,
                        kelnn_cli::pack_network(kelnn_cli::read_file(path)));
}

void pack_detectors(const std::string& root) {
  pack_model("face-detection", "faces", root);
  for (const std::string orientation : {"landscape", "square", "portrait"}) {
    pack_model("person-detection-" + orientation, "persons_" + orientation, root);
    pack_model("four-class-detection-" + orientation, "objects_" + orientation, root);
  }
}

}  // namespace kelnn_test
