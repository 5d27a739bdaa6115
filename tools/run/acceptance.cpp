#include "run/acceptance.h"

#include <algorithm>

#include "awb_calibration/factory.h"
#include "awb_calibration/records.h"
#include "records/kernel_export.h"

namespace awbcal {

using calib::Camera;

namespace {

Bytes padded(const Bytes& bytes, size_t offset, size_t size) {
  Bytes image(size);
  std::copy(bytes.begin(), bytes.end(), image.begin() + static_cast<std::ptrdiff_t>(offset));
  return image;
}

/// The companion of a record: what the same source of the same camera has.
const FoundRecord* companion_record(const Input& input, const FoundRecord& record) {
  const std::optional<RecordKind> kind = companion_of(record.spec->kind);
  return kind ? input.find(record_spec(*kind), record.camera, record.source) : nullptr;
}

}  // namespace

/// Where readers look for it: in the cache file if it came from one, else in the kernel's export.
void AcceptanceTrial::place(const Input& input, const FoundRecord& record) {
  const RecordSpec& spec = *record.spec;
  const Camera camera = record.camera.value_or(Camera::main);
  if (!spec.is_per_camera) {
    if (spec.offset) {
      const Bytes page =
          padded(record.bytes, *spec.offset - calib::kAreaDualCameraFirstForm, calib::kSlotSize);
      scratch_.put("/sys/android_camera_awb_cal/awb_cal_3D", page);
    }
    return;
  }
  const bool is_cache = record.source == Source::cache || input.files[record.file].layout == Layout::record;
  const std::string cache(spec.cache_file(camera));
  const size_t offset = spec.export_offset().value_or(0);
  if (!is_cache || cache.empty()) {
    scratch_.overlay(calib::kExportNode.of(camera), offset, record.bytes);
  } else if (spec.cache_is_export()) {
    scratch_.put(std::string("/data/misc/camera/") + cache, padded(record.bytes, offset, calib::kExportSize));
  } else {
    scratch_.put(std::string("/data/misc/camera/") + cache, record.bytes);
  }
}

bool AcceptanceTrial::accepts(const Reader& reader) {
  scratch_.phone().take_log();
  const bool answer = reader.run();
  const std::vector<phone::LogLine> log = scratch_.phone().take_log();
  if (reader.line_when_used == nullptr) return answer;
  const auto holds = [](const char* part) {
    return [part](const phone::LogLine& line) { return line.text.find(part) != std::string::npos; };
  };
  auto begin = log.begin();
  if (reader.from_line != nullptr) begin = std::find_if(begin, log.end(), holds(reader.from_line));
  return std::any_of(begin, log.end(), holds(reader.line_when_used));
}

std::vector<Answer> AcceptanceTrial::ask(const Input& input, const FoundRecord& record,
                                         const Modules& modules) {
  const Camera camera = record.camera.value_or(Camera::main);
  Modules fitted = modules;
  if (!record.is_truncated()) fitted.try_emplace(camera, claims_of(*record.spec, record.bytes).words.fuse);
  for (const Camera each : kCameras) scratch_.fit(each, fitted[each]);
  scratch_.clear_records();
  if (const FoundRecord* companion = companion_record(input, record)) place(input, *companion);
  place(input, record);
  constexpr float kGolden[3] = {1.0F, 1.0F, 1.0F};
  awb_calibration_set_GS(kGolden, kGolden);
  sensor_detect(camid_of(camera));
  std::vector<Answer> answers;
  for (const Reader& reader : readers_of(record.spec->kind))
    answers.push_back({reader.function, accepts(reader)});
  return answers;
}

}  // namespace awbcal
