#include "pull/adb.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <random>
#include <sstream>

#include "inspect/errors.h"
#include "inspect/files.h"
#include "pull/process.h"

namespace awbcal {

namespace {

constexpr const char* kProgram = "adb";

// An answer is one file, or a piece of one.
constexpr size_t kLargestAnswer = kLargestFile + 1024 * 1024;

// What older phones take in one request, with room for adb's own words.
constexpr size_t kLongestScript = 3500;

struct Connected {
  std::string serial;
  std::string state;  ///< "device" for one that answers
};

std::vector<Connected> connected_phones() {
  const Ended ended = run_program({kProgram, "devices"}, kLargestAnswer);
  if (ended.exit_code != 0) throw InputError(fmt::format("adb: {}", ended.errors));
  std::vector<Connected> phones;
  std::istringstream lines{std::string(text_of(ended.output))};
  for (std::string line; std::getline(lines, line);) {
    const size_t tab = line.find('\t');
    if (tab != std::string::npos) phones.push_back({line.substr(0, tab), line.substr(tab + 1)});
  }
  return phones;
}

std::string serials_of(const std::vector<Connected>& phones) {
  std::vector<std::string> serials;
  for (const Connected& phone : phones) serials.push_back(phone.serial);
  return fmt::format("{}", fmt::join(serials, ", "));
}

Connected chosen(const std::vector<Connected>& phones, const std::string& serial) {
  if (phones.empty()) throw InputError("no phone is connected: is its USB debugging switched on?");
  if (serial.empty()) {
    if (phones.size() == 1) return phones[0];
    throw InputError(
        fmt::format("{} phones are connected: choose one with -s: {}", phones.size(), serials_of(phones)));
  }
  const auto found = std::ranges::find(phones, serial, &Connected::serial);
  if (found == phones.end())
    throw InputError(fmt::format("{}: not connected; there are: {}", serial, serials_of(phones)));
  return *found;
}

void check_state(const Connected& phone) {
  if (phone.state == "device" || phone.state == "recovery") return;
  if (phone.state == "unauthorized") {
    throw InputError(fmt::format("{}: unauthorized: allow this computer on the phone's screen, and try again",
                                 phone.serial));
  }
  throw InputError(fmt::format("{}: does not answer: {}", phone.serial, phone.state));
}

std::string random_mark() {
  std::random_device random;
  return fmt::format("awbcal-{:08x}{:08x}", random(), random());
}

/// Takes the next answer from the output at `at`; false when its end is not there.
bool take_answer(const Bytes& output, const std::string& mark, size_t& at, ShellAnswer& answer) {
  const std::string end = fmt::format("\n{} ", mark);
  const std::string_view text = text_of(output);
  const size_t found = text.find(end, at);
  const size_t line_end = found == text.npos ? found : text.find('\n', found + end.size());
  if (line_end == text.npos) return false;
  std::from_chars(text.data() + found + end.size(), text.data() + line_end, answer.status);
  answer.output.assign(output.begin() + static_cast<std::ptrdiff_t>(at),
                       output.begin() + static_cast<std::ptrdiff_t>(found));
  at = line_end + 1;
  return true;
}

bool says_root(const ShellAnswer& answer) {
  return answer.is_done() && text_of(answer.output).starts_with("0\n");
}

}  // namespace

std::string shell_word(std::string_view word) {
  std::string result = "'";
  for (const char c : word) {
    if (c == '\'') {
      result += R"('\'')";
    } else {
      result += c;
    }
  }
  return result + "'";
}

Adb::Adb(const std::string& serial) : end_mark_(random_mark()) {
  const Connected phone = chosen(connected_phones(), serial);
  check_state(phone);
  serial_ = phone.serial;
  become_root();
}

/// There are two kinds of su: that of the platform's own builds takes a user first, others take -c.
void Adb::become_root() {
  const std::vector<ShellAnswer> answers =
      ask({"id -u", "su 0 id -u 2>/dev/null", "su -c 'id -u' 2>/dev/null"});
  if (says_root(answers[0])) {
    access_ = Access::root;
  } else if (says_root(answers[1])) {
    access_ = Access::su;
    su_ = "su 0 sh -c ";
  } else if (says_root(answers[2])) {
    access_ = Access::su;
    su_ = "su -c ";
  }
}

std::string Adb::script_of(const std::vector<std::string>& commands, size_t first, size_t last) const {
  // Each answer is followed by a line with the mark and the status, so that one cut off is told from a whole one.
  std::string script = fmt::format("e(){{ echo;echo {} $1;}};", end_mark_);
  for (size_t i = first; i < last; ++i) script += fmt::format("{};e $?;", commands[i]);
  return su_.empty() ? script : su_ + shell_word(script);
}

void Adb::run(const std::vector<std::string>& commands, size_t first, size_t last,
              std::vector<ShellAnswer>& answers) {
  const Ended ended =
      run_program({kProgram, "-s", serial_, "exec-out", script_of(commands, first, last)}, kLargestAnswer);
  size_t at = 0;
  for (size_t i = first; i < last; ++i) {
    ShellAnswer answer;
    if (!take_answer(ended.output, end_mark_, at, answer)) {
      std::string said = ended.errors.substr(0, ended.errors.find('\n'));
      if (said.empty()) said = "the connection was lost";
      // The mark may have been on its way.
      const size_t size = ended.output.size() - at;
      const size_t certain = size - std::min(size, end_mark_.size() + 8);
      const auto begin = ended.output.begin() + static_cast<std::ptrdiff_t>(at);
      throw CutOff(fmt::format("{}: the phone's answer ends too early: {}", serial_, said),
                   Bytes(begin, begin + static_cast<std::ptrdiff_t>(certain)));
    }
    answers.push_back(std::move(answer));
  }
}

std::vector<ShellAnswer> Adb::ask(const std::vector<std::string>& commands) {
  std::vector<ShellAnswer> answers;
  size_t first = 0;
  for (size_t last = 1; last <= commands.size(); ++last) {
    const bool is_full =
        last < commands.size() && script_of(commands, first, last + 1).size() > kLongestScript;
    if (last < commands.size() && !is_full) continue;
    run(commands, first, last, answers);
    first = last;
  }
  return answers;
}

}  // namespace awbcal
