#include "run/tuning.h"

#include <algorithm>
#include <stdexcept>

namespace awbcal {

namespace {

/// Of a flash with two LEDs: the second alone, both, the first alone, and what lies between.
constexpr calib::CctLedEntry kLedTable[] = {
    {.not_used_here = 0, .led1 = 50, .led2 = 100, .nor_this = 0, .x = 0.95F, .y = 0.40F, .nor_these = {}},
    {.not_used_here = 0, .led1 = 100, .led2 = 150, .nor_this = 0, .x = 0.88F, .y = 0.44F, .nor_these = {}},
    {.not_used_here = 0, .led1 = 200, .led2 = 200, .nor_this = 0, .x = 0.80F, .y = 0.50F, .nor_these = {}},
    {.not_used_here = 0, .led1 = 150, .led2 = 100, .nor_this = 0, .x = 0.72F, .y = 0.55F, .nor_these = {}},
    {.not_used_here = 0, .led1 = 120, .led2 = 50, .nor_this = 0, .x = 0.66F, .y = 0.60F, .nor_these = {}},
};

constexpr calib::GainTriple kTriples[] = {
    {1.92F, 1.0F, 1.52F}, {1.45F, 1.0F, 2.10F}, {1.02F, 1.0F, 2.75F},
    {1.66F, 1.0F, 1.78F}, {2.05F, 1.0F, 1.38F}, {1.70F, 1.0F, 1.60F},  // led_flash_white_balance
};

/// Gains that grow from the centre to `1 + falloff` in the corners; the channels differ a little.
void fill_mesh(float (&gains)[4][calib::kMeshGains], double falloff) {
  for (size_t channel = 0; channel < 4; ++channel) {
    for (size_t i = 0; i < calib::kMeshGains; ++i) {
      const double across = 2.0 * static_cast<double>(i % kMeshColumns) / (kMeshColumns - 1) - 1.0;
      const double down = 2.0 * static_cast<double>(i / kMeshColumns) / (kMeshRows - 1) - 1.0;
      const double share =
          (across * across + down * down) / 2.0 * (1.0 + 0.02 * static_cast<double>(channel));
      gains[channel][i] = static_cast<float>(1.0 + falloff * share);
    }
  }
}

}  // namespace

void TuningBlock::check_range(size_t offset, size_t size) const {
  if (offset + size > words_.size() * sizeof(float)) throw std::out_of_range("behind the tuning block");
}

size_t led_entries(const TuningBlock& tuning) {
  return std::min<size_t>(tuning.get<uint16_t>(calib::kCctLedEntries), calib::kCctLedMaxEntries);
}

TuningBlock make_awb_tuning(const calib::GoldenRatios& golden) {
  TuningBlock tuning(kAwbTuningBytes);
  for (size_t i = 0; i < calib::kReferencePointCount; ++i) {
    const auto step = static_cast<float>(i);
    tuning[calib::kReferencePoints + 2 * i] = 0.46F + 0.05F * step;
    tuning[calib::kReferencePoints + 2 * i + 1] = 0.82F - 0.035F * step;
  }
  for (size_t version = 0; version < 3; ++version) {
    tuning[calib::kTuningGoldenRg + version] = golden.rg;
    tuning[calib::kTuningGoldenBg + version] = golden.bg;
  }
  tuning.put(calib::kGainTriples * sizeof(float), kTriples);
  tuning.put(calib::kCctLedEntries, static_cast<uint16_t>(std::size(kLedTable)));
  tuning.put(calib::kCctLedTable, kLedTable);
  return tuning;
}

TuningBlock make_mesh_tuning() {
  TuningBlock tuning(kMeshTuningBytes);
  calib::MeshTable table{};
  fill_mesh(table.gains, 0.90);
  for (const TuningPlace& place : kMeshPlaces) tuning.put(place.offset, table);
  return tuning;
}

Bytes make_lens_shading_record(const calib::FuseWords& module, double falloff) {
  calib::LensShadingRecord record{};
  record.valid_word = calib::kFinishedValidWord;
  for (size_t i = 0; i < module.size(); ++i) record.fuse[i] = module[i];
  fill_mesh(record.gains, falloff);
  calib::seal(record);
  Bytes bytes(sizeof record);
  memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

}  // namespace awbcal
