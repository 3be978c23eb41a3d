// SPDX-License-Identifier: Apache-2.0
// A runtime without networks: it plays the outputs that a test gives it, fails on demand and
// records what it was given. The engine and the tasks cannot tell it from a real one.
#ifndef KEL_NN_TESTS_SCRIPTED_RUNTIME_H_
#define KEL_NN_TESTS_SCRIPTED_RUNTIME_H_

#include <string>
#include <vector>

namespace kelnn_test {

struct Output {
  std::vector<float> shape;  // three values
  std::vector<float> values;
};

enum class Call { kNone, kCreate, kLoad, kInputShape, kInput, kRun };
enum class Matrix { kWhole, kWithoutData, kNegative, kMisaligned };

struct ScriptedRuntime {
  // What to play.
  std::vector<int> input_shape = {1, 1, 1};  // width, height, channels
  std::vector<float> output;                 // all elements of a run's output, the trailer included
  void set_outputs(const std::vector<Output>& outputs);
  // An input of that shape, and each output a row of values.
  void play(const std::vector<int>& shape, const std::vector<std::vector<float>>& rows);

  // What fails. A code is used up by the call that it makes fail; create() fails as long as it is
  // told to.
  bool fail_create = false;
  int fail_next_load = 0, fail_next_input = 0, fail_next_run = 0;
  bool fail_dry_run = false;  // every input() and run() fails, but a run still delivers its output
  Call throws = Call::kNone;  // as memory that runs out in it does
  Matrix gives = Matrix::kWhole;

  // What happened.
  int networks_alive = 0, runs = 0, last_layer = 0;
  int loaded_from_memory = -1;         // the flag
  std::string loaded_path;             // if it was a path
  const char* loaded_model = nullptr;  // if it was memory
  const void* last_input_data = nullptr;
  std::vector<int> last_input_shape;  // width, height, channels
  std::vector<signed char> last_input;
};

// The one of the process. A test fixture resets it by assigning a new one.
ScriptedRuntime& scripted_runtime();

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_SCRIPTED_RUNTIME_H_
