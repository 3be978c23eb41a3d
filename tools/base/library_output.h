// Whose standard output is it? The library prints its lines there by design; the tool's result is to
// be piped. So file descriptor 1 leads to standard error, and the result goes where it led before.
#ifndef KEL_NN_TOOLS_LIBRARY_OUTPUT_H_
#define KEL_NN_TOOLS_LIBRARY_OUTPUT_H_

#include <cstdio>
#include <string>

namespace kelnn_cli {

// From here on the library's lines go to standard error.
class ResultOutput {
 public:
  ResultOutput();
  ~ResultOutput();
  ResultOutput(const ResultOutput&) = delete;
  ResultOutput& operator=(const ResultOutput&) = delete;

  void write(const std::string& text);  // at once, nothing is held back

 private:
  int descriptor_;
};

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_LIBRARY_OUTPUT_H_
