#include "library_call.h"

#include "model_inspection.h"
#include "report.h"

namespace kelnn_cli {

void explain(const kel_nn::Error& error, const std::string& root) {
  const Task* task = find_task(error.task());
  if (error.kind() == kel_nn::Error::kModel && task) {
    const Inspection why = inspect_model(*task, root);
    throw Failure(std::string(task->key) + " has no model that can be used: " + why.path + "\n" +
                  why.problem + "\n" + "To do: " + why.command);
  }
  const bool is_told = error.kind() == kel_nn::Error::kRun && error.line().empty();
  throw Failure(error.what() + std::string(is_told ? ", see above" : ""));
}

}  // namespace kelnn_cli
