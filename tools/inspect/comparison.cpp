#include "inspect/comparison.h"

#include <algorithm>

#include "inspect/verdict.h"

namespace awbcal {

namespace {

using calib::Camera;

/// A file that does not name its camera is compared with what the other input calls its first.
std::vector<std::optional<Camera>> cameras_of(const RecordSpec& spec, const Phone& a, const Phone& b) {
  std::vector<std::optional<Camera>> cameras;
  for (const Phone* phone : {&a, &b}) {
    for (const FoundRecord& record : phone->records) {
      const bool is_known = std::find(cameras.begin(), cameras.end(), record.camera) != cameras.end();
      if (record.spec == &spec && !is_known) cameras.push_back(record.camera);
    }
  }
  if (cameras.size() > 1) std::erase(cameras, std::nullopt);
  std::sort(cameras.begin(), cameras.end());
  return cameras;
}

const FoundRecord* held_by(const Phone& phone, const RecordSpec& spec, std::optional<Camera> camera,
                           std::optional<Source> source) {
  const FoundRecord* best = nullptr;
  for (const FoundRecord& record : phone.records) {
    const bool matches = record.spec == &spec && (!record.camera || record.camera == camera) &&
                         (!source || record.source == *source);
    if (!matches || record.bytes.empty() || is_blank_record(phone, record)) continue;
    if (best == nullptr || record.source < best->source) best = &record;
  }
  return best;
}

}  // namespace

std::vector<RecordPair> pair_records(const Phone& a, const Phone& b) {
  std::vector<std::optional<Source>> sources = {std::nullopt};
  if (a.kind == Layout::phone && b.kind == Layout::phone) {
    sources = {Source::cache, Source::kernel_export, Source::partition, Source::factory};
  }
  std::vector<RecordPair> pairs;
  for (const RecordSpec& spec : record_specs()) {
    for (const std::optional<Camera> camera : cameras_of(spec, a, b)) {
      for (const std::optional<Source> source : sources) {
        const RecordPair pair{&spec, camera, held_by(a, spec, camera, source),
                              held_by(b, spec, camera, source)};
        if (pair.a != nullptr || pair.b != nullptr) pairs.push_back(pair);
      }
    }
  }
  return pairs;
}

bool is_equal_field(const RecordPair& pair, const FieldSpec& field) {
  if (!fits(field, pair.a->bytes.size()) || !fits(field, pair.b->bytes.size())) return false;
  const auto first = pair.a->bytes.begin() + static_cast<std::ptrdiff_t>(field.offset);
  return std::equal(first, first + static_cast<std::ptrdiff_t>(field.width),
                    pair.b->bytes.begin() + static_cast<std::ptrdiff_t>(field.offset));
}

}  // namespace awbcal
