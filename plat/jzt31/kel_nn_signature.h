// A function's own signature as the engine's log lines show it, the same under every compiler:
// "void* f(size_t*)", where some write "void *f(size_t *)".
#ifndef KEL_NN_SIGNATURE_H_
#define KEL_NN_SIGNATURE_H_

#include <cstddef>

#include "kel_nn_compiler.h"

namespace kelnn {

class Signature {
 public:
  // Never inlined: the loop would stand in every line that is logged.
  KEL_NN_NEVER_INLINE explicit Signature(const char* pretty_function) {
    size_t length = 0;
    for (const char* p = pretty_function; *p && length + 2 < sizeof(text_); ++p) {
      const bool space_before_star = p[0] == ' ' && p[1] == '*';
      if (space_before_star) continue;
      text_[length++] = *p;
      const bool name_after_star =
          p[0] == '*' && p[1] != '*' && p[1] != ' ' && p[1] != ',' && p[1] != ')';
      if (name_after_star) text_[length++] = ' ';
    }
    text_[length] = '\0';
  }
  const char* text() const { return text_; }

 private:
  char text_[128];
};

}  // namespace kelnn

#endif  // KEL_NN_SIGNATURE_H_
