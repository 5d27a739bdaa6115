// What each line of the library says of the act that it belongs to.
#ifndef LOG_LINE_RULES_H
#define LOG_LINE_RULES_H

#include "log/act.h"
#include "log/library_lines.h"

namespace awbcal {

/// Where in an act a line stands: lines come in this order, and one that comes again begins the next act.
enum Order : int {
  kInside = -1,  ///< of an act that is there; begins none
  kAnywhere,
  kBegin,
  kOpening,
  kFirstSource,
  kSecondSource,
  kSourceWord,
  kFirstContent,
  kContent,
  kFirstChecksum,
  kFirstFuse,
  kFirstCalibrated,
  kFirstWord,
  kChecksum,
  kFuse,
  kValidWord,
  kOrigin,
  kDecision,
  kResult,
  kLastResult,
};

struct LineRule {
  std::string_view format;
  Deeds of;
  int order;
  void (*apply)(Act& act, const LineMatch& match);  ///< null: that it is there says all
  bool repeats = false;                             ///< may follow itself in one act
  char priority = 0;                                ///< 0: any
};

/// Null: it says nothing of an act.
const LineRule* rule_of(const LineMatch& match, char priority);

}  // namespace awbcal

#endif
