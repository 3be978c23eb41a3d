#include "interruption.h"

#include <csignal>

namespace kelnn_cli {
namespace {

volatile std::sig_atomic_t g_is_interrupted = 0;

void remember(int) { g_is_interrupted = 1; }

}  // namespace

void catch_interruption() {
  struct sigaction action = {};
  action.sa_handler = remember;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool is_interrupted() { return g_is_interrupted != 0; }

}  // namespace kelnn_cli
