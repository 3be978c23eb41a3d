#include "library_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "report.h"

namespace kelnn_cli {
namespace {

// Standard output may be closed; then nothing that is opened later may take its number by chance.
int duplicate(int descriptor) { return fcntl(descriptor, F_DUPFD_CLOEXEC, 3); }

}  // namespace

ResultOutput::ResultOutput() : descriptor_(duplicate(STDOUT_FILENO)) {
  if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {  // standard error is closed
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) dup2(nowhere, STDOUT_FILENO);
  }
  // In step with what goes to standard error directly. Lines are no unit here: the library ends its
  // colour behind the newline.
  std::setvbuf(stdout, nullptr, _IONBF, 0);
}

ResultOutput::~ResultOutput() {
  if (descriptor_ >= 0) close(descriptor_);
}

void ResultOutput::write(const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t written = ::write(descriptor_, text.data() + done, text.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) {
      throw OutputFailure(std::string("cannot write the result: ") + std::strerror(errno));
    }
    done += static_cast<size_t>(written);
  }
}

}  // namespace kelnn_cli
