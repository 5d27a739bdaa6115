// What is said of a verification to people, on a terminal and on a page.
#ifndef RUN_VERIFICATION_PHRASES_H
#define RUN_VERIFICATION_PHRASES_H

#include <map>
#include <string>
#include <vector>

#include "run/verification.h"

namespace awbcal {

/// "out of limit" of a good record, else the verdict's name.
std::string verdict_text(const VerifiedRecord& verified);

/// What decided: what was found, with the rule and what it expects of a record that is not good.
std::string reason_text(const RecordVerdict& verdict);

/// How far from the golden sample, and of what is allowed.
std::string margin_text(const calib::Margin& margin);

/// The functions that answered so. A refusal of whatever comes says nothing of this record: never_passing().
std::vector<std::string> answering(const std::vector<Answer>& answers, Acceptance acceptance);

/// The functions that were asked and can accept nothing, each once with its reason.
std::map<std::string, std::string> never_passing(const Verification& verification);

/// Nothing more can be said of it than its verdict: the reason, if any, stands with the input.
bool is_of_group(const RecordVerdict& verdict);

/// "absent: front camera: awb, aec (required)": those records, a line for each verdict and camera.
std::vector<std::string> group_lines(const Verification& verification);

/// "12 good, 2 not, 1 unreadable, 3 left out"
std::string summary_text(const Verification& verification);

}  // namespace awbcal

#endif
