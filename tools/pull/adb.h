// A phone behind the platform's adb: which one, and what its shell answers. Nothing that is asked writes to it.
#ifndef PULL_ADB_H
#define PULL_ADB_H

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "inspect/decode.h"

namespace awbcal {

/// The phone went away in the middle of an answer; the text says what adb says to it.
class CutOff : public std::runtime_error {
 public:
  CutOff(const std::string& text, Bytes received)
      : std::runtime_error(text), received_(std::move(received)) {}

  /// What certainly is of the answer that was cut off.
  const Bytes& received() const { return received_; }

 private:
  Bytes received_;
};

/// As one word of the phone's shell.
std::string shell_word(std::string_view word);

/// As whom the phone's shell works.
enum class Access { shell, root, su };

struct ShellAnswer {
  Bytes output;
  int status = 0;  ///< 0: done

  bool is_done() const { return status == 0; }
};

class Adb {
 public:
  /// The connected phone, or that of several with this serial number; empty: there must be one alone. Throws
  /// InputError, with what to do about it, when there is none that answers.
  explicit Adb(const std::string& serial);

  const std::string& serial() const { return serial_; }
  Access access() const { return access_; }

  /// The commands' output in their order, each to its end. Throws CutOff when one is missing or not whole.
  std::vector<ShellAnswer> ask(const std::vector<std::string>& commands);
  ShellAnswer ask(const std::string& command) { return ask(std::vector{command}).front(); }

 private:
  void become_root();
  std::string script_of(const std::vector<std::string>& commands, size_t first, size_t last) const;
  void run(const std::vector<std::string>& commands, size_t first, size_t last,
           std::vector<ShellAnswer>& answers);

  std::string serial_;
  std::string end_mark_;  ///< a word that no file of the phone holds
  std::string su_;        ///< what goes before a command that root is to run; empty: nothing
  Access access_ = Access::shell;
};

}  // namespace awbcal

#endif
