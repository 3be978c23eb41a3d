/* SPDX-License-Identifier: Apache-2.0 */
/* Ends while a thread of it is in a call of the library, whose lines are written slowly; what is left to write at the very
 * end gives the thread the time to come back. */
#ifndef _GNU_SOURCE
#define _GNU_SOURCE /* fopencookie */
#endif
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "kel_nn.h"

static void wait_for(long milliseconds) {
  const struct timespec time = {0, milliseconds * 1000 * 1000};
  nanosleep(&time, NULL);
}

static ssize_t write_slowly(void* milliseconds, const char* bytes, size_t size) {
  (void)bytes;
  wait_for(*(const long*)milliseconds);
  return (ssize_t)size;
}

static void* create(void* unused) {
  static kel_nn_handle_t handle;
  handle = kel_nn_handle_create();
  (void)handle;
  return unused;
}

int main(void) {
  static long for_a_line = 100, at_the_end = 900;
  const cookie_io_functions_t functions = {NULL, write_slowly, NULL, NULL};
  const size_t size = 32 << 20; /* memory for it goes back to the system when it is freed */
  static char* text;
  static FILE* last;
  pthread_t thread;
  text = malloc(size);
  last = fopencookie(&at_the_end, "w", functions);
  if (!text || !last || fputc('x', last) == EOF) return EXIT_FAILURE;
  memset(text, 'x', size - 1);
  text[size - 1] = '\0';
  kel_nn_set_model_root_dir(text);
  stdout = fopencookie(&for_a_line, "w", functions);
  if (!stdout || setvbuf(stdout, NULL, _IOLBF, BUFSIZ) != 0 ||
      pthread_create(&thread, NULL, create, NULL) != 0)
    return EXIT_FAILURE;
  wait_for(50);
  return EXIT_SUCCESS;
}
