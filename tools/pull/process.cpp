#include "pull/process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "common/file.h"
#include "inspect/errors.h"

extern char** environ;

namespace awbcal {

namespace {

/// Where the program's three streams go.
class Streams {
 public:
  Streams(int output, int errors) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions_, errors, STDERR_FILENO);
  }
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;
  ~Streams() { posix_spawn_file_actions_destroy(&actions_); }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

pid_t start(const std::vector<std::string>& arguments, int output, int errors) {
  std::vector<char*> words;
  for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  const Streams streams(output, errors);
  pid_t process = -1;
  const int error = posix_spawnp(&process, words[0], streams.actions(), nullptr, words.data(), environ);
  if (error == ENOENT) throw InputError(fmt::format("{}: no such program in PATH", arguments[0]));
  if (error != 0)
    throw InputError(fmt::format("{}: cannot be started: {}", arguments[0], std::strerror(error)));
  return process;
}

/// A phone that says nothing for a while is waited for, and that is said.
void wait_for(int fd, const std::string& program, bool& is_said) {
  constexpr int kPatience = 5000;
  pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
  if (is_said || poll(&waiting, 1, kPatience) != 0) return;
  std::fprintf(stderr, "awbcal: waiting for %s\n", program.c_str());
  is_said = true;
}

/// False when there is more than that.
bool read_output(int fd, const std::string& program, size_t most, Bytes& output) {
  bool is_said = false;
  while (output.size() <= most) {
    wait_for(fd, program, is_said);
    constexpr size_t kPart = 64 * 1024;
    const size_t before = output.size();
    output.resize(before + kPart);
    const ssize_t count = read(fd, output.data() + before, kPart);
    const bool is_interrupted = count < 0 && errno == EINTR;
    output.resize(before + static_cast<size_t>(count > 0 ? count : 0));
    if (count <= 0 && !is_interrupted) return true;
  }
  return false;
}

std::string text_in(int fd) {
  constexpr size_t kMost = 4096;
  std::string text(kMost, '\0');
  const ssize_t count = pread(fd, text.data(), text.size(), 0);
  text.resize(static_cast<size_t>(count > 0 ? count : 0));
  return text;
}

}  // namespace

Ended run_program(const std::vector<std::string>& arguments, size_t most) {
  int ends[2];
  const calib::Descriptor errors(memfd_create("errors", MFD_CLOEXEC));
  if (!errors.is_open() || pipe2(ends, O_CLOEXEC) != 0)
    throw InputError(fmt::format("{}: cannot be started: {}", arguments[0], std::strerror(errno)));
  const calib::Descriptor output(ends[0]);
  pid_t process = -1;
  {
    const calib::Descriptor other(ends[1]);
    process = start(arguments, other.get(), errors.get());
  }
  Ended ended;
  const bool is_all = read_output(output.get(), arguments[0], most, ended.output);
  if (!is_all) kill(process, SIGKILL);
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (!is_all) throw InputError(fmt::format("{}: says more than {} bytes", arguments[0], most));
  ended.errors = text_in(errors.get());
  if (WIFEXITED(status)) ended.exit_code = WEXITSTATUS(status);
  return ended;
}

}  // namespace awbcal
