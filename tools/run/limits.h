// Against what a run's ratios are judged again: one golden sample for all, or one for each camera and light.
#ifndef RUN_LIMITS_H
#define RUN_LIMITS_H

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "inspect/cameras.h"
#include "inspect/record_kinds.h"
#include "records/golden_sample.h"

namespace awbcal {

/// As the factory judges: the distance from the golden sample may be `threshold` percent of its larger ratio.
struct Limit {
  calib::GoldenRatios golden;
  uint32_t threshold = 20;
};

class Limits {
 public:
  /// For every camera and light that has none of its own.
  void set(const Limit& limit) { common_ = limit; }
  void set(calib::Camera camera, RecordKind kind, const Limit& limit) { own_[{camera, kind}] = limit; }

  bool empty() const { return !common_ && own_.empty(); }
  /// Null: not judged. A record whose camera is not known has the common one.
  const Limit* find(std::optional<calib::Camera> camera, RecordKind kind) const;

 private:
  std::optional<Limit> common_;
  std::map<std::pair<calib::Camera, RecordKind>, Limit> own_;
};

/// Lines "camera,light,golden_rg,golden_bg,threshold" after a line that says so; a light is "normal" or "a_light".
/// Throws InputError with the line that is none.
Limits parse_limits(const std::string& name, std::string_view text);

}  // namespace awbcal

#endif
