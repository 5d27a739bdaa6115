// Any phone, and what the library loads from it: records out of cache files and exports, the record area of the
// partition, the module's identity. What a loader delivers is what the phone holds, and nothing beside its buffer changes.

#include <algorithm>
#include <cstdio>

#include "awb_calibration/factory.h"
#include "awb_calibration/records.h"
#include "awb_calibration/storage.h"
#include "fuzz/phone_program.h"

namespace {

using namespace fuzz;

#define CAMERA "/data/misc/camera/"

struct Kind {
  const char* cache;
  size_t export_offset;
  size_t size;
};

Kind kind_of(uint8_t number) {
  switch (number) {
    case 0:
      return {of_camera(CAMERA "awb_cal", CAMERA "awb_cal_front_CAM", CAMERA "awb_cal_sub_CAM"), 0, 32};
    case 1:
      return {of_camera(CAMERA "flash_cal", CAMERA "flash_cal_front", CAMERA "flash_cal_sub_CAM"), 3648, 32};
    case 2:
      return {of_camera(CAMERA "flash_dual_cal", CAMERA "flash_dual_cal_front_CAM",
                        CAMERA "flash_dual_cal_sub_CAM"),
              3848, 48};
    case 3:
      return {of_camera(CAMERA "aec_cal", CAMERA "aec_cal_front_CAM", CAMERA "aec_cal_sub_CAM"), 3712, 36};
    default:
      return {of_camera(CAMERA "awb_A_light_cal", CAMERA "awb_A_light_cal_front_CAM",
                        CAMERA "awb_A_light_cal_sub_CAM"),
              3784, 32};
  }
}

/// The whole record, or any number of bytes.
uint32_t length_of(const Call& call, size_t whole) {
  return call.argument[0] < 128 ? static_cast<uint32_t>(whole) : call.word16(1) % 5000;
}

void check_loaded(const Guarded& buffer, const Kind& kind, int32_t result) {
  const Source& source = source_of(kind.cache, kernel_export(), kind.export_offset, buffer.size());
  const size_t written = source.is_cache ? source.count : source.file != nullptr ? buffer.size() : 0;
  require(result == (source.file == nullptr ? -1 : static_cast<int32_t>(written)), "the result counts bytes");
  require(memcmp(buffer.data(), source.bytes, written) == 0, "what is loaded is what the phone holds");
  require_filled(buffer.data() + written, buffer.data() + buffer.size(), "what was not read is not written");
}

void load(const Call& call, uint8_t number, Transcript& said) {
  const Kind kind = kind_of(number);
  const uint32_t length = length_of(call, kind.size);
  const Guarded buffer(length, pass_fill());
  const unsigned struck = phone.struck;
  const int32_t result = number == 1   ? ReadFlashForFlashCalibration(buffer.data(), length)
                         : number == 2 ? ReadFlashForDualFlashCali(buffer.data(), length)
                         : number == 3 ? aec_read_calibration(buffer.data(), length)
                                       : ReadFlashForDualCam(buffer.data(), length, number);
  buffer.check();
  said.add(result);
  if (result > 0) said.add(buffer.data(), std::min(static_cast<size_t>(result), buffer.size()));
  if (is_to_be_compared(struck)) check_loaded(buffer, kind, result);
}

void load_awb(Transcript& said) {
  const Guarded buffer(32, pass_fill());
  const unsigned struck = phone.struck;
  uint32_t tag = 0;
  const int32_t result = ReadFlash(buffer.data(), &tag);
  buffer.check();
  said.add(result);
  said.add(tag);
  if (!is_to_be_compared(struck)) return;
  const Kind kind = kind_of(0);
  const bool is_cache = file_at(kind.cache).exists;
  const auto node_tag =
      static_cast<uint32_t>(field(source_of(kind.cache, kernel_export(), 3944, 4).bytes, 4));
  require(result == 0 || tag == (is_cache ? 0xFF3ACA01 : node_tag), "the tag word is the source's");
  const Source& source = source_of(kind.cache, kernel_export(), 0, 32);
  check_loaded(buffer, kind, result == 0 ? -1 : is_cache ? static_cast<int32_t>(source.count) : 32);
}

uint32_t area_base() {
  const Property& page = properties()[12];
  return page.exists && strcmp(page.value, "4096") == 0 ? 0x20000 : 0x10000;
}

/// On a block device the bytes are those at the place; of a chip, those of its usable blocks.
void check_area(const Guarded& buffer, int64_t at, int32_t result) {
  if (result != 0 || phone.used_chip) return;
  const File& partition = files().back();
  const auto end = static_cast<uint64_t>(at) + buffer.size();
  require(end <= partition.size, "a read behind the partition's end fails");
  require(memcmp(buffer.data(), partition.bytes + at, buffer.size()) == 0, "the area is the partition's");
}

void read_area(const Call& call, bool from_start, Transcript& said) {
  const Guarded buffer(length_of(call, 32), pass_fill());
  const auto length = static_cast<uint32_t>(buffer.size());
  const uint32_t offset = from_start ? 0 : call.argument[3] * 257U;
  phone.used_chip = false;
  const int32_t result =
      from_start ? ReadEmmcFlash(buffer.data(), length) : ReadEmmcOffset(buffer.data(), length, offset);
  buffer.check();
  said.add(result);
  if (result == 0) said.add(buffer.data(), buffer.size());
  check_area(buffer, int64_t{area_base()} + offset, result);
}

/// Opened once, read twice, at any place and of any length that the bytes of a call can name.
void read_partition(const Call& call, Transcript& said) {
  static constexpr const char* kNames[] = {"mfg", "mfg2", "boot", ""};
  partition_handle handle{};
  phone.used_chip = false;
  said.add(partition_open(&handle, kNames[call.argument[0] % 4]));
  const int64_t offset = (int64_t{call.argument[1]} << call.argument[2] % 56) - call.argument[2] / 64;
  const Guarded buffer(call.argument[3] * 33U, pass_fill());
  for (const int64_t at : {offset, int64_t{0x10000}}) {
    const int32_t result = partition_read(&handle, at, static_cast<int64_t>(buffer.size()), buffer.data());
    buffer.check();
    said.add(result);
    if (result == 0) said.add(buffer.data(), buffer.size());
    check_area(buffer, at, result);
  }
  said.add(partition_close(&handle));
}

void identify(Transcript& said) {
  uint32_t words[4];
  const unsigned struck = phone.struck;
  awb_get_fuseid(words);
  said.add(words, sizeof words);
  const Fuse fuse = fuse_of(program_camera());
  for (size_t i = 0; i < 4 && is_to_be_compared(struck); ++i) {
    require(words[i] == fuse[i], "the fuse ID is the properties'");
  }
}

void read_marker(const Call& call, Transcript& said) {
  const Guarded buffer(length_of(call, 32), pass_fill());
  const int32_t result = QOR_Get_LSC(buffer.data(), static_cast<uint32_t>(buffer.size()));
  buffer.check();
  said.add(result);
}

void perform(const Call& call, Transcript& said) {
  const uint8_t function = call.function % 14;
  if (function == 0) return load_awb(said);
  if (function <= 4) return load(call, function, said);
  if (function == 5) return load(call, 0, said);
  if (function <= 7) return read_area(call, function == 6, said);
  if (function == 8) return said.add(CheckFlash());
  if (function == 9) return read_partition(call, said);
  if (function == 10) return identify(said);
  if (function == 11) return read_marker(call, said);
  if (function == 12) return said.add(Sensor_get_Calibration_status());
  said.add(Sensor_get_target_luma());
  said.add(Sensor_get_trigger_index());
  said.add(Stats_get_exp_index());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_program({data, size}, perform);
  return 0;
}
