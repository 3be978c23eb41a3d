// One task of the library with its model loaded, ready to use.
#ifndef KEL_NN_TOOLS_LOADED_TASK_H_
#define KEL_NN_TOOLS_LOADED_TASK_H_

#include <functional>
#include <string>

#include "kel_nn.h"

namespace kelnn_cli {

class LoadedTask {
 public:
  using Function = int(kel_nn_handle_t);

  // `key` is the task's in the catalogue, `result` what it gives: a Failure says that there is none
  // of it, and why the model does not load.
  LoadedTask(const std::string& directory, const char* key, const char* result,
             const std::function<Function>& init, Function* deinit);
  ~LoadedTask();
  LoadedTask(const LoadedTask&) = delete;
  LoadedTask& operator=(const LoadedTask&) = delete;

  kel_nn_handle_t handle() const { return handle_; }
  void check(int result) const;  // a Failure when the task's function did not return 0

 private:
  const char* result_;
  Function* deinit_;
  kel_nn_handle_t handle_;
};

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_LOADED_TASK_H_
