/* SPDX-License-Identifier: Apache-2.0 */
/* What these programs do first. In C99 define _POSIX_C_SOURCE as 200112L before anything is included. */
#ifndef KEL_NN_EXAMPLES_PROGRAM_H_
#define KEL_NN_EXAMPLES_PROGRAM_H_

#include <stdio.h>
#include <unistd.h>

#include "kel_nn.h"

/* Standard output for the program alone. The library prints there, and there is no switch: from here on
 * its lines go to standard error. NULL when there is no such file.
 */
static inline FILE* own_output(void) {
  FILE* own = fdopen(dup(STDOUT_FILENO), "w");
  return own && dup2(STDERR_FILENO, STDOUT_FILENO) >= 0 ? own : NULL;
}

/* The directory of the models, with or without the "/" that the library wants at its end. */
static inline int set_model_directory(const char* directory) {
  char root[4096];
  const int length = snprintf(root, sizeof(root), "%s%s", directory, *directory ? "/" : "");
  return length < (int)sizeof(root) ? kel_nn_set_model_root_dir(root) : -1;
}

#endif /* KEL_NN_EXAMPLES_PROGRAM_H_ */
