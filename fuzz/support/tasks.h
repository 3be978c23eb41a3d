// SPDX-License-Identifier: Apache-2.0
// A handle, and a directory that has a file for every task's model.
#ifndef KEL_NN_FUZZ_TASKS_H_
#define KEL_NN_FUZZ_TASKS_H_

#include "kel_nn.h"
#include "support/model_directory.h"

namespace kelnn_fuzz {

inline kel_nn_handle_t handle_with_models() {
  static const kelnn_test::TemporaryDirectory models;
  write_model_files(models);
  kel_nn_set_model_root_dir(models.with_slash().c_str());
  return kel_nn_handle_create();
}

}  // namespace kelnn_fuzz

#endif  // KEL_NN_FUZZ_TASKS_H_
