// Any bytes as any kind of input: unpacked, recognised, decoded, judged, dumped, packed again and redacted.

#include <algorithm>
#include <optional>

#include "fuzz/check_phone.h"
#include "fuzz/custom_mutator.h"
#include "inspect/archive.h"
#include "inspect/errors.h"
#include "inspect/open_phone.h"
#include "inspect/redaction.h"
#include "phone/services/properties_file.h"

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

std::optional<awbcal::Phone> opened(const uint8_t* choice, awbcal::Bytes bytes) {
  const char* name = kNames[choice[0] % kBrief % std::size(kNames)];
  const char* kind = kKinds[choice[1] % std::size(kKinds)];
  try {
    if (awbcal::is_packed(bytes)) {
      auto content = awbcal::unpacked(name, bytes);
      if (auto* tree = std::get_if<awbcal::FileTree>(&content))
        return awbcal::phone_of_tree(std::move(*tree), {});
      bytes = std::get<awbcal::Bytes>(std::move(content));
    }
    return awbcal::phone_of_bytes(name, std::move(bytes), {.as = kind});
  } catch (const awbcal::InputError&) {
    return {};  // a message is an answer, here and nowhere else
  }
}

void inspect(awbcal::Phone phone, bool is_brief) {
  const awbcal::Modules modules = {{calib::Camera::main, {1, 2, 3, 4}}};
  fuzz::verdicts_on(phone, modules);
  if (!is_brief) {
    fuzz::check_pack(phone);
    fuzz::check_backup(phone, modules);
  }
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
  if (auto phone = opened(data, bytes)) inspect(std::move(*phone), data[0] >= kBrief);
  awbcal::FuseMap map;
  const std::string redacted = awbcal::redact_text(awbcal::text_of(bytes), map);
  fuzz::require(std::ranges::count(redacted, '\n') == std::ranges::count(bytes, '\n'), "a line stays a line");
  phone::parse_properties(awbcal::text_of(bytes));
  return 0;
}
