// What identifies a module, a device or a person replaced by what has no meaning, so that the rest can be shared.
// Of fuse words zero ones stay zero, others stay other than zero, equal ones stay equal, and a checksum that was
// good is good again.
#ifndef INSPECT_REDACTION_H
#define INSPECT_REDACTION_H

#include <map>
#include <set>
#include <string>

#include "inspect/phone.h"

namespace awbcal {

/// Replacements in the order in which words are met.
class FuseMap {
 public:
  uint32_t replacement(uint32_t word);
  /// Nothing when the word was not met as a fuse word.
  std::optional<uint32_t> known(uint32_t word) const;

 private:
  std::map<uint32_t, uint32_t> words_;
};

/// What becomes of a trace when the phone is redacted.
enum class Fate { replaced, left, left_out };
const char* fate_name(Fate fate);

/// Something in a phone's files that may identify a module, a device or a person.
struct Trace {
  std::string file;
  std::string what;
  Fate fate;
};

/// Words and texts that a redaction has put there are no traces.
std::vector<Trace> traces_in(const Phone& phone);

/// Replaces the bytes of the phone's files; its records are then those of before, not looked for again.
void redact(Phone& phone);

/// The files that may be shared. Those that are not decoded may tell anything; of links only those stay that say
/// which device is which partition.
std::vector<OutputFile> files_to_share(const Phone& phone);

/// The lines of a property file or a report with their fuse words, serial numbers, IMEIs and addresses replaced.
/// `values` are those of such properties anywhere in the phone.
std::string redact_text(std::string_view text, FuseMap& map, const std::set<std::string>& values = {});

}  // namespace awbcal

#endif
