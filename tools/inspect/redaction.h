// Fuse IDs replaced by others of no meaning, so that what is left can be shared. Zero words stay zero, others
// stay other than zero, equal ones stay equal, and a checksum that was good is good again.
#ifndef INSPECT_REDACTION_H
#define INSPECT_REDACTION_H

#include <map>
#include <string>

#include "inspect/input.h"

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

/// Replaces the bytes of the input's files; its records are then those of before, not looked for again.
void redact(Input& input);

/// The lines of a property file or a report with their fuse words replaced.
std::string redact_text(std::string_view text, FuseMap& map);

}  // namespace awbcal

#endif
