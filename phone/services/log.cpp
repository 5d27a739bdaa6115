#include "phone/services/log.h"

#include <unistd.h>

#include <mutex>
#include <string_view>
#include <utility>

#include "phone/calls/faults.h"

namespace phone {
namespace {

struct State {
  std::mutex mutex;
  bool open = false;
  bool lines_kept = true;
  unsigned mask = ~0u;
  std::FILE* stream = nullptr;
  std::vector<LogLine> lines;
  std::vector<std::string> questions;
};

State& state() {
  static auto* const instance = new State;
  return *instance;
}

// logcat's brief format gives every line of a message its own prefix.
void print_brief(std::FILE* stream, const LogLine& line) {
  constexpr std::string_view kLetters = "??VDIWEFS";
  const auto priority = static_cast<size_t>(line.priority);
  const char letter = priority < kLetters.size() ? kLetters[priority] : '?';
  std::string_view text = line.text;
  do {
    const size_t end = text.find('\n');
    const std::string_view part = text.substr(0, end);
    std::fprintf(stream, "%c/%-8s(%5d): %.*s\n", letter, line.tag.c_str(), static_cast<int>(getpid()),
                 static_cast<int>(part.size()), part.data());
    text = end == text.npos ? std::string_view{} : text.substr(end + 1);
  } while (!text.empty());
  std::fflush(stream);
}

}  // namespace

bool record_log_line(int priority, const char* tag, const char* text) {
  const LogLine line{tag != nullptr ? tag : "", priority, text};
  if (effect_on_service_call("__android_log_print", line.tag).error != 0) return false;
  const std::lock_guard lock(state().mutex);
  if (!state().open) return true;
  if (state().stream != nullptr) print_brief(state().stream, line);
  if (state().lines_kept) state().lines.push_back(line);
  return true;
}

unsigned answer_mask_question(const char* tag) {
  const std::lock_guard lock(state().mutex);
  if (state().open && state().lines_kept) state().questions.push_back(tag != nullptr ? tag : "");
  return state().mask;
}

std::vector<LogLine> VirtualPhone::take_log() {
  const std::lock_guard lock(state().mutex);
  return std::exchange(state().lines, {});
}

std::vector<std::string> VirtualPhone::take_mask_questions() {
  const std::lock_guard lock(state().mutex);
  return std::exchange(state().questions, {});
}

void VirtualPhone::set_log_mask(unsigned mask) {
  const std::lock_guard lock(state().mutex);
  state().mask = mask;
}

void VirtualPhone::print_log_to(std::FILE* stream) {
  const std::lock_guard lock(state().mutex);
  state().stream = stream;
}

void open_log() {
  const std::lock_guard lock(state().mutex);
  state().open = true;
  state().mask = ~0u;
  state().stream = nullptr;
  state().lines.clear();
  state().questions.clear();
}

void close_log() {
  const std::lock_guard lock(state().mutex);
  state().open = false;
}

void keep_log_lines(bool on) {
  const std::lock_guard lock(state().mutex);
  state().lines_kept = on;
}

}  // namespace phone
