#include "run/folder_guard.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace awbcal {

namespace fs = std::filesystem;

namespace {

/// In a session of its own, so that neither Ctrl-C nor a closed terminal reaches it, and without the files of the
/// tool: whoever reads its output would wait for this one.
[[noreturn]] void guard(int alive, const fs::path& folder) {
  setsid();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) std::signal(signal, SIG_IGN);
  dup2(alive, 0);
  close_range(1, ~0U, 0);
  char keeps = 0;
  if (read(0, &keeps, 1) != 1) {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
  }
  _exit(0);
}

}  // namespace

FolderGuard::FolderGuard(const fs::path& folder) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  guard_ = fork();
  if (guard_ == 0) {
    close(ends[1]);
    guard(ends[0], folder);
  }
  close(ends[0]);
  alive_ = ends[1];
}

FolderGuard::~FolderGuard() {
  finish(false);
}

void FolderGuard::keep() {
  finish(true);
}

void FolderGuard::finish(bool keeps) {
  if (alive_ < 0) return;
  const ssize_t written = keeps ? write(alive_, "k", 1) : 0;
  static_cast<void>(written);
  close(alive_);
  alive_ = -1;
  if (guard_ > 0) waitpid(guard_, nullptr, 0);
}

}  // namespace awbcal
