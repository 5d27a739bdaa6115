#include "run/bounded_process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <new>
#include <stdexcept>

#include "common/file.h"

namespace awbcal {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kOutOfMemory = 3;
constexpr int kThrew = 4;
constexpr int kPart = 1 << 20;  // of a reply, moved at once

// A sanitizer reserves more addresses than any bound.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kBoundsMemory = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kBoundsMemory = false;
#else
constexpr bool kBoundsMemory = true;
#endif
#else
constexpr bool kBoundsMemory = true;
#endif

void limit(__rlimit_resource resource, rlim_t most) {
  // One more for the hard limit: at that of time comes SIGKILL, which does not say why.
  const rlimit both{.rlim_cur = most, .rlim_max = most + 1};
  setrlimit(resource, &both);
}

size_t address_space() {
  size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

bool write_all(int fd, const Bytes& bytes) {
  for (size_t done = 0; done < bytes.size();) {
    const ssize_t moved = write(fd, bytes.data() + done, bytes.size() - done);
    if (moved < 0 && errno == EINTR) continue;
    if (moved <= 0) return false;
    done += static_cast<size_t>(moved);
  }
  return true;
}

/// It ends with the tool, leaves no core file, and no handler of the tool's runs in it.
[[noreturn]] void serve(int fd, const std::function<Bytes()>& work, const Bounds& bounds) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGSEGV, SIGBUS, SIGFPE, SIGABRT, SIGILL, SIGXCPU})
    std::signal(signal, SIG_DFL);
  limit(RLIMIT_CORE, 0);
  limit(RLIMIT_CPU, bounds.cpu_seconds);
  if (kBoundsMemory) limit(RLIMIT_AS, address_space() + bounds.memory);
  try {
    _exit(write_all(fd, work()) ? 0 : kThrew);
  } catch (const std::bad_alloc&) {
    _exit(kOutOfMemory);
  } catch (...) {
    _exit(kThrew);
  }
}

/// False when the time is over before the other end is closed.
bool read_all(int fd, Clock::time_point deadline, Bytes& bytes) {
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    const int ready = left > 0 ? poll(&waiting, 1, static_cast<int>(left)) : 0;
    if (ready == 0) return false;
    if (ready < 0) continue;  // a signal
    const size_t before = bytes.size();
    bytes.resize(before + kPart);
    const ssize_t count = read(fd, bytes.data() + before, kPart);
    bytes.resize(before + static_cast<size_t>(std::max<ssize_t>(count, 0)));
    if (count == 0 || (count < 0 && errno != EINTR)) return true;
  }
}

int status_of(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

BoundedReply reply_of(bool in_time, int status, Bytes bytes) {
  using End = BoundedReply::End;
  if (!in_time || (WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU)) return {.end = End::out_of_time};
  if (WIFSIGNALED(status)) return {.end = End::crashed, .bytes = {}, .signal = strsignal(WTERMSIG(status))};
  if (WEXITSTATUS(status) == kOutOfMemory) return {.end = End::out_of_memory};
  if (WEXITSTATUS(status) != 0) return {.end = End::crashed, .bytes = {}, .signal = "it left"};
  return {.end = End::replied, .bytes = std::move(bytes)};
}

}  // namespace

BoundedReply run_bounded(const std::function<Bytes()>& work, const Bounds& bounds) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0)
    throw std::runtime_error(fmt::format("no process to work in: {}", std::strerror(errno)));
  const calib::Descriptor output(ends[0]);
  fcntl(ends[0], F_SETPIPE_SZ, kPart);
  pid_t process = -1;
  {
    const calib::Descriptor input(ends[1]);
    process = fork();
    if (process == 0) serve(input.get(), work, bounds);
  }
  if (process < 0) throw std::runtime_error(fmt::format("no process to work in: {}", std::strerror(errno)));
  Bytes bytes;
  const bool in_time = read_all(output.get(), Clock::now() + bounds.time, bytes);
  if (!in_time) kill(process, SIGKILL);
  return reply_of(in_time, status_of(process), std::move(bytes));
}

}  // namespace awbcal
