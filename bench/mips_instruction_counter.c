/* SPDX-License-Identifier: Apache-2.0 */
/* A plugin for QEMU's user emulation: counts the instructions that a program executes, by function.
 * Loaded by count_mips_instructions.sh. Debian has the emulator but not the plugin header, so what is
 * used of its interface (version 1) is declared here.
 */
#include <inttypes.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef uint64_t plugin_id;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
enum { INLINE_ADD_U64 = 0 };
typedef void (*tb_trans_callback)(plugin_id, struct qemu_plugin_tb*);
typedef void (*exit_callback)(plugin_id, void*);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb*);
struct qemu_plugin_insn* qemu_plugin_tb_get_insn(const struct qemu_plugin_tb*, size_t);
const char* qemu_plugin_insn_symbol(const struct qemu_plugin_insn*);
void qemu_plugin_register_vcpu_tb_trans_cb(plugin_id, tb_trans_callback);
void qemu_plugin_register_vcpu_insn_exec_inline(struct qemu_plugin_insn*, int operation,
                                                void* counter, uint64_t addend);
void qemu_plugin_register_atexit_cb(plugin_id, exit_callback, void*);

#define EXPORTED __attribute__((visibility("default")))
EXPORTED int qemu_plugin_version = 1;

enum { kMaxFunctions = 4096, kShown = 15 };
static struct Function {
  const char* name;
  uint64_t count; /* the emulator adds here */
} functions[kMaxFunctions] = {{"(no symbol)", 0}};
static size_t function_count = 1;

static char* duplicate(const char* text) {
  char* copy = malloc(strlen(text) + 1);
  return copy ? strcpy(copy, text) : NULL;
}

static struct Function* find(const char* name) {
  if (!name || !*name) return &functions[0];
  for (size_t i = 1; i < function_count; ++i) {
    if (strcmp(functions[i].name, name) == 0) return &functions[i];
  }
  if (function_count == kMaxFunctions) return &functions[0];
  functions[function_count].name = duplicate(name);
  return &functions[function_count++];
}

static void translated(plugin_id id, struct qemu_plugin_tb* block) {
  (void)id;
  for (size_t i = 0; i < qemu_plugin_tb_n_insns(block); ++i) {
    struct qemu_plugin_insn* instruction = qemu_plugin_tb_get_insn(block, i);
    struct Function* function = find(qemu_plugin_insn_symbol(instruction));
    qemu_plugin_register_vcpu_insn_exec_inline(instruction, INLINE_ADD_U64, &function->count, 1);
  }
}

static int descending(const void* a, const void* b) {
  const uint64_t x = ((const struct Function*)a)->count, y = ((const struct Function*)b)->count;
  return x < y ? 1 : x > y ? -1 : 0;
}

static void at_exit(plugin_id id, void* unused) {
  (void)id;
  (void)unused;
  uint64_t total = 0;
  for (size_t i = 0; i < function_count; ++i) total += functions[i].count;
  qsort(functions, function_count, sizeof(functions[0]), descending);
  fprintf(stderr, "%15" PRIu64 " instructions\n", total);
  for (size_t i = 0; i < function_count && i < kShown && functions[i].count > 0; ++i) {
    fprintf(stderr, "%15" PRIu64 " %s\n", functions[i].count, functions[i].name);
  }
}

struct qemu_info;
EXPORTED int qemu_plugin_install(plugin_id id, const struct qemu_info* info, int argc,
                                 char** argv) {
  (void)info;
  (void)argc;
  (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
  qemu_plugin_register_atexit_cb(id, at_exit, NULL);
  return 0;
}
