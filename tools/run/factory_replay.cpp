#include "run/factory_replay.h"

#include "awb_calibration/factory.h"
#include "inspect/claims.h"
#include "run/scratch_phone.h"
#include "text/terminal.h"

namespace awbcal {

namespace {

void begin_run(const ReplaySettings& settings) {
  const auto [golden_rg, golden_bg] = settings.golden;
  const float rg[3] = {golden_rg, golden_rg, golden_rg};
  const float bg[3] = {golden_bg, golden_bg, golden_bg};
  awb_set_camid(0);
  check_and_init_awb_calibration();
  awb_calibration_set_parm(settings.threshold, settings.light_source);
  awb_calibration_set_GS(rg, bg);
  awb_enable_calibration();
}

ReplayedFrame run_frame(const Frame& frame, const ReplaySettings& settings) {
  const int32_t rg = calib::frame_mean(frame.rg_sum, frame.count);
  const int32_t bg = calib::frame_mean(frame.bg_sum, frame.count);
  // As the record of a run of nothing but such frames would have it.
  const calib::GoldenRatios alone = calib::ratios_of(calib::run_mean(10.0F * static_cast<float>(rg)),
                                                     calib::run_mean(10.0F * static_cast<float>(bg)));
  const calib::Margin margin =
      calib::margin_of(alone, settings.golden, calib::tolerance_of(static_cast<float>(settings.threshold)));
  if (awb_if_enabled() == 0) return {rg, bg, margin, FramePart::after_the_run};
  QOR_AWB_Calibration_collect(frame.rg_sum, frame.bg_sum, frame.count);
  return {rg, bg, margin, awb_if_enabled() == 0 ? FramePart::judged : FramePart::summed};
}

ReplayedRecord stored_record(const phone::VirtualPhone& phone, const ReplaySettings& settings) {
  const Bytes partition = phone.partition();
  const uint8_t* bytes = partition.data() + calib::kAreaBase4k + calib::kSlotAwb;
  const auto record = calib::record_at<calib::AwbRecord>(bytes);
  return {record, margin_of({bytes, sizeof record}, settings.golden, static_cast<float>(settings.threshold))};
}

}  // namespace

Replay replay(const std::vector<FrameOfFile>& frames, const ReplaySettings& settings) {
  ConsoleCapture console;
  ScratchPhone scratch;
  begin_run(settings);
  Replay result;
  for (const FrameOfFile& each : frames) result.frames.push_back(run_frame(each.sums.frame, settings));
  if (awb_if_enabled() == 0) result.record = stored_record(scratch.phone(), settings);
  return result;
}

}  // namespace awbcal
