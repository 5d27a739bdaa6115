#include "run/guarded_folder.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace awbcal {

namespace fs = std::filesystem;

namespace {

/// In a session of its own, so that neither Ctrl-C nor a closed terminal reaches it, and without the files of the
/// tool: whoever reads its output would wait for this one.
[[noreturn]] void guard(int socket, std::string folder) {
  setsid();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) std::signal(signal, SIG_IGN);
  dup2(socket, 0);
  close_range(1, ~0U, 0);
  // Made here, because between its making and its guarding nothing may happen to the other process.
  if (mkdtemp(folder.data()) == nullptr) _exit(errno);
  const bool is_told = write(0, folder.data(), folder.size()) == static_cast<ssize_t>(folder.size());
  char keeps = 0;
  if (!is_told || read(0, &keeps, 1) != 1) {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
  }
  _exit(0);
}

}  // namespace

GuardedFolder::GuardedFolder(const fs::path& parent, const std::string& name) {
  const std::string wanted = (parent / (name + "-XXXXXX")).string();
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw std::runtime_error(fmt::format("{}: {}", wanted, std::strerror(errno)));
  guard_ = fork();
  if (guard_ == 0) {
    close(ends[1]);
    guard(ends[0], wanted);
  }
  close(ends[0]);
  guard_socket_ = ends[1];
  std::array<char, PATH_MAX> made{};
  const ssize_t size = guard_ < 0 ? -1 : read(guard_socket_, made.data(), made.size());
  if (size > 0) {
    path_ = std::string(made.data(), static_cast<size_t>(size));
    return;
  }
  int status = 0;
  if (guard_ > 0) waitpid(guard_, &status, 0);
  close(guard_socket_);
  throw std::runtime_error(
      fmt::format("{}: cannot be made: {}", wanted, std::strerror(guard_ > 0 ? WEXITSTATUS(status) : errno)));
}

GuardedFolder::~GuardedFolder() {
  finish(false);
}

void GuardedFolder::keep() {
  finish(true);
}

void GuardedFolder::finish(bool keeps) {
  if (guard_socket_ < 0) return;
  const ssize_t written = keeps ? write(guard_socket_, "k", 1) : 0;
  static_cast<void>(written);
  close(guard_socket_);
  guard_socket_ = -1;
  waitpid(guard_, nullptr, 0);
}

}  // namespace awbcal
