#include "fleet/judge_process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "fleet/rows.h"

namespace awbcal {

namespace {

// ---- texts over a socket, each behind its length ----------------------------------------------------------

bool send_all(int socket, const void* data, size_t size) {
  const auto* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t sent = send(socket, at, size, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    at += sent;
    size -= static_cast<size_t>(sent);
  }
  return true;
}

bool receive_all(int socket, void* data, size_t size) {
  auto* at = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t received = recv(socket, at, size, 0);
    if (received < 0 && errno == EINTR) continue;
    if (received <= 0) return false;
    at += received;
    size -= static_cast<size_t>(received);
  }
  return true;
}

bool send_text(int socket, const std::string& text) {
  const uint64_t size = text.size();
  return send_all(socket, &size, sizeof size) && send_all(socket, text.data(), text.size());
}

std::optional<std::string> receive_text(int socket) {
  uint64_t size = 0;
  if (!receive_all(socket, &size, sizeof size)) return std::nullopt;
  std::string text(size, '\0');
  return receive_all(socket, text.data(), size) ? std::optional(std::move(text)) : std::nullopt;
}

// ---- the process ------------------------------------------------------------------------------------------

/// Ctrl-C is for the one that asks: it lets the unit that was begun be finished.
[[noreturn]] void serve(int socket, const UnitQuestion& question) {
  std::signal(SIGINT, SIG_IGN);
  constexpr int kOnly = 3;
  dup2(socket, kOnly);
  close_range(kOnly + 1, ~0U, 0);
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(nothing, STDIN_FILENO);
  dup2(nothing, STDOUT_FILENO);  // what the library prints is for a person at one phone
  while (const std::optional<std::string> path = receive_text(kOnly)) {
    if (!send_text(kOnly, wire_text(judged_unit(*path, question)))) break;
  }
  _exit(0);
}

}  // namespace

JudgeProcess::JudgeProcess(const UnitQuestion& question) : question_(question) {
  begin();
}

JudgeProcess::~JudgeProcess() {
  end();
}

void JudgeProcess::begin() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw std::runtime_error(fmt::format("no process to judge in: {}", std::strerror(errno)));
  process_ = fork();
  if (process_ == 0) serve(ends[0], question_);
  close(ends[0]);
  socket_ = ends[1];
  if (process_ < 0) throw std::runtime_error(fmt::format("no process to judge in: {}", std::strerror(errno)));
}

int JudgeProcess::end() {
  if (socket_ < 0) return 0;
  close(socket_);
  socket_ = -1;
  int status = 0;
  if (process_ > 0) waitpid(process_, &status, 0);
  process_ = -1;
  return status;
}

Unit JudgeProcess::judged(const std::string& path) {
  if (socket_ < 0) begin();
  std::optional<std::string> answer;
  if (send_text(socket_, path)) answer = receive_text(socket_);
  if (answer) return unit_of_wire(*answer);
  const int status = end();
  return broken_unit(path, fmt::format("{}: judging it ended the process: {}", path,
                                       WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "it left"));
}

}  // namespace awbcal
