#include "run/verification_phrases.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace awbcal {

namespace {

/// "camera: kinds", the required ones marked.
void add_group(std::vector<std::string>& lines, const Verification& verification, Verdict verdict) {
  std::map<int, std::pair<std::string, std::vector<std::string>>> groups;
  for (const VerifiedRecord& verified : verification.records) {
    if (!verified.is(verdict) || !is_of_group(verified.verdict)) continue;
    const auto camera = verified.verdict.camera;
    auto& [name, kinds] = groups[camera ? camid_of(*camera) : 3];
    name = camera ? fmt::format("{} camera", camera_name(*camera)) : "phone";
    kinds.push_back(verified.verdict.spec->id + std::string(verified.is_required ? " (required)" : ""));
  }
  for (const auto& [order, group] : groups)
    lines.push_back(
        fmt::format("{}: {}: {}", verdict_name(verdict), group.first, fmt::join(group.second, ", ")));
}

}  // namespace

std::string verdict_text(const VerifiedRecord& verified) {
  return verified.is_out_of_limit() && verified.is(Verdict::good)
             ? "out of limit"
             : verdict_name(verified.verdict.finding.verdict);
}

std::string reason_text(const RecordVerdict& verdict) {
  const Finding& finding = verdict.finding;
  return finding.verdict == Verdict::good
             ? finding.found
             : fmt::format("rule {}: expected {}, found {}", verdict_rule(finding.verdict), finding.expected,
                           finding.found);
}

std::string margin_text(const calib::Margin& margin) {
  return fmt::format("{:.4f} from the golden sample, {:.4f} allowed ({:.0f} % of it)", margin.delta,
                     margin.limit, percent_of_limit(margin));
}

std::vector<std::string> answering(const std::vector<Answer>& answers, Acceptance acceptance) {
  std::vector<std::string> names;
  for (const Answer& answer : answers) {
    const bool is_of_record = answer.reader->never_passes == nullptr || acceptance != Acceptance::refused;
    if (answer.acceptance == acceptance && is_of_record) names.emplace_back(answer.reader->function);
  }
  return names;
}

std::map<std::string, std::string> never_passing(const Verification& verification) {
  std::map<std::string, std::string> reasons;
  for (const VerifiedRecord& verified : verification.records) {
    for (const auto& [reader, acceptance] : verified.answers) {
      if (reader->never_passes != nullptr) reasons.emplace(reader->function, reader->never_passes);
    }
  }
  return reasons;
}

bool is_of_group(const RecordVerdict& verdict) {
  const bool is_anywhere = verdict.record != nullptr || !verdict.file.empty();
  return verdict.is_missing() || (verdict.finding.verdict == Verdict::unreadable && !is_anywhere);
}

std::vector<std::string> group_lines(const Verification& verification) {
  std::vector<std::string> lines;
  for (const Verdict verdict : {Verdict::blank, Verdict::absent, Verdict::unreadable})
    add_group(lines, verification, verdict);
  return lines;
}

std::string summary_text(const Verification& verification) {
  const std::vector<VerifiedRecord>& records = verification.records;
  const auto unreadable =
      std::ranges::count_if(records, [](const VerifiedRecord& each) { return each.is(Verdict::unreadable); });
  const auto bad = std::ranges::count_if(
      records, [](const VerifiedRecord& each) { return each.is_bad() || each.is(Verdict::truncated); });
  std::string text = fmt::format("{} good", std::ranges::count_if(records, &VerifiedRecord::is_good));
  if (bad > 0) text += fmt::format(", {} not", bad);
  if (unreadable > 0) text += fmt::format(", {} unreadable", unreadable);
  if (verification.left_out > 0) text += fmt::format(", {} left out", verification.left_out);
  return text;
}

}  // namespace awbcal
