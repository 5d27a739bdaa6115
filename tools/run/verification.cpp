#include "run/verification.h"

#include <algorithm>
#include <set>

namespace awbcal {

namespace {

using calib::Camera;
using Records = std::vector<VerifiedRecord>;

/// A camera that the properties name, or that has a record; the main one when there is none.
std::set<Camera> fitted_cameras(const Records& records, const Modules& modules) {
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

void mark_required(Records& records, const VerifyQuestion& question) {
  const std::set<Camera> fitted = fitted_cameras(records, question.modules);
  for (const RequiredKind& required : question.required) {
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

bool can_be_measured(const FoundRecord& record) {
  return record.spec->kind == RecordKind::awb && !record.is_truncated() && !is_blank(record.bytes);
}

}  // namespace

bool Verification::passed() const {
  return std::none_of(records.begin(), records.end(),
                      [](const VerifiedRecord& record) { return record.fails(); });
}

double percent_of_limit(const calib::Margin& margin) {
  return 100.0 * static_cast<double>(margin.delta) / static_cast<double>(margin.limit);
}

Verification verify(const Phone& phone, const VerifyQuestion& question) {
  const std::map<Camera, CameraRun> runs = run_cameras(phone, question.modules);
  Verification verification;
  for (RecordVerdict& verdict : verdicts_of(phone, question.modules)) {
    VerifiedRecord verified{.verdict = std::move(verdict)};
    const FoundRecord* record = verified.verdict.record;
    if (record != nullptr && !verified.verdict.is_missing()) {
      verified.answers = answers_on(record->spec->kind, runs.at(record->camera.value_or(Camera::main)));
    }
    if (question.golden && record != nullptr && can_be_measured(*record)) {
      verified.margin = margin_of(record->bytes, *question.golden, static_cast<float>(question.threshold));
    }
    verification.records.push_back(std::move(verified));
  }
  mark_required(verification.records, question);
  return verification;
}

}  // namespace awbcal
