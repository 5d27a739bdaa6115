// Any bytes as any kind of input: unpacked, recognised, decoded, judged, dumped, packed again and redacted.

#include <algorithm>
#include <cstdlib>

#include "fuzz/custom_mutator.h"
#include "inspect/archive.h"
#include "inspect/errors.h"
#include "inspect/json_form.h"
#include "inspect/open_phone.h"
#include "inspect/redaction.h"
#include "inspect/verdict.h"
#include "phone/services/properties_file.h"
#include "tests/support/sealed.h"

namespace {

/// What a first byte stands for: a name to recognise the rest by, or a kind that it is said to be.
constexpr const char* kNames[] = {"x",       "awb_cal",     "flash_cal", "gyro_cal_qor_CAM",
                                  "lsc_cal", "awb_cal_sub", "awb_cal_3D"};
constexpr const char* kKinds[] = {"",
                                  "partition",
                                  "export",
                                  "node",
                                  "awb",
                                  "a_light_awb",
                                  "flash",
                                  "aec",
                                  "dual_flash",
                                  "gyro",
                                  "lens_shading",
                                  "dual_camera",
                                  "dual_camera_first_form",
                                  "dual_camera_payload"};

constexpr uint8_t kBrief = 0x80;  ///< in the first byte: nothing is shown

/// In JSON, and back.
void show_and_pack(const awbcal::Phone& phone, const awbcal::Bytes& bytes) {
  const awbcal::Packed packed = awbcal::pack_document(awbcal::show_document(phone, true), {});
  if (phone.notes.empty() && packed.files.at(0).bytes != bytes) std::abort();
}

void inspect(const uint8_t* choice, const awbcal::Bytes& bytes) {
  const char* name = kNames[choice[0] % kBrief % std::size(kNames)];
  const char* kind = kKinds[choice[1] % std::size(kKinds)];
  awbcal::Phone phone = awbcal::phone_of_bytes(name, bytes, {.as = kind});
  for (const awbcal::RecordVerdict& each :
       awbcal::verdicts_of(phone, {{calib::Camera::main, {1, 2, 3, 4}}})) {
    const bool is_good = each.finding.verdict == awbcal::Verdict::good && each.record != nullptr;
    if (is_good && !tool::is_sealed(*each.record)) std::abort();
  }
  if (choice[0] < kBrief) show_and_pack(phone, bytes);
  awbcal::redact(phone);
  awbcal::traces_in(phone);
}

}  // namespace

/// Setting up what unpacks, and making JSON and reading it, take longer than all the rest.
void fuzz::make_fast(uint8_t* data, size_t size) {
  data[0] |= kBrief;
  if (awbcal::is_packed({data + 2, size - 2})) data[2] ^= 0x80;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const awbcal::Bytes bytes(data + 2, data + size);
  try {
    if (awbcal::is_packed(bytes)) awbcal::unpacked("x", bytes);
    inspect(data, bytes);
  } catch (const awbcal::InputError&) {
    // A message is an answer.
  }
  awbcal::FuseMap map;
  const std::string redacted = awbcal::redact_text(awbcal::text_of(bytes), map);
  if (std::ranges::count(redacted, '\n') != std::ranges::count(bytes, '\n')) std::abort();
  phone::parse_properties(awbcal::text_of(bytes));
  return 0;
}
