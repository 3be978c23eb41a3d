#include "loaded_task.h"

#include "files.h"
#include "model_inspection.h"
#include "report.h"

namespace kelnn_cli {

LoadedTask::LoadedTask(const std::string& directory, const char* key, const char* result,
                       const std::function<Function>& init, Function* deinit)
    : result_(result), deinit_(deinit) {
  const std::string root = with_slash(directory);
  kel_nn_set_model_root_dir(root.c_str());
  handle_ = kel_nn_handle_create();
  if (!handle_) throw Failure("out of memory");
  if (init(handle_) == 0) return;
  deinit(handle_);
  kel_nn_handle_destroy(handle_);
  const Inspection why = inspect_model(*find_task(key), root);
  throw Failure(std::string("no ") + result + " without a model: " + why.path + "\n" + why.problem +
                "\n" + "To do: " + why.command);
}

LoadedTask::~LoadedTask() {
  deinit_(handle_);
  kel_nn_handle_destroy(handle_);
}

void LoadedTask::check(int result) const {
  if (result != 0)
    throw Failure(std::string("the network of the ") + result_ + " failed, see above");
}

}  // namespace kelnn_cli
