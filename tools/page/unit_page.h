// The page of one phone: its verdicts, and what a start of each camera took, refused and changed.
#ifndef PAGE_UNIT_PAGE_H
#define PAGE_UNIT_PAGE_H

#include <map>
#include <string>

#include "run/explanation.h"
#include "run/verification.h"

namespace awbcal {

struct ReportedStart {
  Explanation explanation;
  bool is_golden_assumed;
};

/// All that is said about a phone.
struct UnitReport {
  const Phone& phone;
  std::string title = {};
  Modules modules = {};
  Verification verification = {};
  std::map<calib::Camera, ReportedStart> starts = {};  ///< of each camera that is fitted
  bool is_redacted = false;                            ///< of every fuse ID only the first digits are shown
};

std::string unit_page(const UnitReport& report);

}  // namespace awbcal

#endif
