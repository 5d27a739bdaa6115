#include "run/verification.h"

#include <algorithm>
#include <array>

#include "run/phone_copy.h"

namespace awbcal {

namespace {

using calib::Camera;
using Records = std::vector<VerifiedRecord>;

void mark_required(Records& records, const VerifyQuestion& question) {
  if (question.required.empty()) return;
  const std::set<Camera> fitted = fitted_cameras(records, question.modules);
  for (const KindChoice& required : question.required) {
    bool is_there = false;
    for (VerifiedRecord& record : records) {
      if (record.verdict.spec != required.spec) continue;
      const std::optional<Camera> camera = record.verdict.camera;
      const bool applies =
          !camera || (required.camera ? camera == required.camera : fitted.contains(*camera));
      record.is_required = record.is_required || applies;
      is_there = is_there || applies;
    }
    // A kind that such an input cannot hold is absent from it.
    if (is_there) continue;
    records.push_back({.verdict = {.spec = required.spec, .camera = required.camera}, .is_required = true});
  }
}

bool is_chosen(const RecordVerdict& verdict, const std::vector<KindChoice>& choices) {
  return std::ranges::any_of(choices, [&verdict](const KindChoice& choice) {
    return choice.spec == verdict.spec && (!choice.camera || choice.camera == verdict.camera);
  });
}

bool is_asked_for(const RecordVerdict& verdict, const VerifyQuestion& question) {
  return (question.only.empty() || is_chosen(verdict, question.only)) &&
         !is_chosen(verdict, question.ignored);
}

/// Which files no verdict speaks of: properties and the tables by which the partition is found.
bool is_read_whole(const Phone& phone) {
  return phone.unknown_sources.empty() && std::ranges::none_of(phone.files, [](const PhoneFile& file) {
           return file.content.trouble && (file.layout == Layout::properties || file.layout == Layout::text);
         });
}

VerifiedRecord verified(RecordVerdict verdict, const VerifyQuestion& question,
                        const std::map<Camera, CameraRun>& runs) {
  VerifiedRecord result{.verdict = std::move(verdict)};
  const FoundRecord* record = result.verdict.record;
  if (record != nullptr && !result.verdict.is_missing() && question.asks_library) {
    result.answers = answers_on(record->spec->kind, runs.at(record->camera.value_or(Camera::main)));
  }
  if (!is_measured(result)) return result;
  result.limit = question.limits.find(record->camera, record->spec->kind);
  if (result.limit != nullptr)
    result.margin =
        margin_of(record->bytes, result.limit->golden, static_cast<float>(result.limit->threshold));
  return result;
}

}  // namespace

std::set<Camera> fitted_cameras(const std::vector<VerifiedRecord>& records, const Modules& modules) {
  std::set<Camera> cameras;
  for (const auto& [camera, module] : modules) {
    if (module != calib::FuseWords{}) cameras.insert(camera);
  }
  for (const VerifiedRecord& record : records) {
    if (!record.verdict.is_missing() && record.verdict.camera) cameras.insert(*record.verdict.camera);
  }
  if (cameras.empty()) cameras.insert(Camera::main);
  return cameras;
}

const char* outcome_name(Outcome outcome) {
  constexpr std::array kNames = {"PASS", "FAIL", "INCOMPLETE", "NOTHING TO JUDGE"};
  return kNames.at(static_cast<size_t>(outcome));
}

bool VerifiedRecord::is_bad() const {
  if (is_out_of_limit()) return true;
  switch (verdict.finding.verdict) {
    case Verdict::absent:
    case Verdict::blank:
      return is_required;
    case Verdict::good:
    case Verdict::truncated:
    case Verdict::unreadable:
      return false;
    default:
      return true;
  }
}

Outcome Verification::outcome() const {
  const auto is_truncated = [](const VerifiedRecord& record) { return record.is(Verdict::truncated); };
  const auto is_unreadable = [](const VerifiedRecord& record) { return record.is(Verdict::unreadable); };
  const bool has_good = std::ranges::any_of(records, &VerifiedRecord::is_good);
  if (std::ranges::any_of(records, &VerifiedRecord::is_bad)) return Outcome::fail;
  // Beside good records a part of one is a record lost; alone it is nothing that could be judged.
  if (has_good && std::ranges::any_of(records, is_truncated)) return Outcome::fail;
  if (!is_complete || std::ranges::any_of(records, is_unreadable)) return Outcome::incomplete;
  return has_good ? Outcome::pass : Outcome::nothing_to_judge;
}

bool can_be_measured(Verdict verdict) {
  return verdict != Verdict::bad_crc && verdict != Verdict::overwritten;
}

bool is_measured(const VerifiedRecord& verified) {
  const FoundRecord* record = verified.verdict.record;
  if (record == nullptr || record->is_truncated() || verified.verdict.is_missing()) return false;
  const bool is_awb = record->spec->kind == RecordKind::awb || record->spec->kind == RecordKind::a_light_awb;
  return is_awb && can_be_measured(verified.verdict.finding.verdict);
}

double percent_of_limit(const calib::Margin& margin) {
  return 100.0 * static_cast<double>(margin.delta) / static_cast<double>(margin.limit);
}

Verification verify(const Phone& phone, const VerifyQuestion& question) {
  Verification verification{.records = {}, .is_complete = is_read_whole(phone)};
  std::map<Camera, CameraRun> runs;
  if (question.asks_library) {
    verification.assumed = assumed_modules(phone, question.modules);
    runs = run_cameras(phone, question.modules);
  }
  std::vector<RecordVerdict> verdicts = verdicts_of(phone, question.modules, question.is_strict);
  verification.records.reserve(verdicts.size() + question.required.size());
  for (RecordVerdict& verdict : verdicts) {
    if (is_asked_for(verdict, question)) {
      verification.records.push_back(verified(std::move(verdict), question, runs));
    } else if (!verdict.is_missing()) {
      ++verification.left_out;
    }
  }
  mark_required(verification.records, question);
  return verification;
}

}  // namespace awbcal
