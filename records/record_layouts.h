// The bytes of every calibration record, and where records lie. This header is the format.
//
// All fields are little-endian. A record starts with its valid word (light-source version * 1000 + 99 when
// the calibration is good) and ends with the CRC-32 of every byte before the CRC (records/judgement.h); four
// fuse words bind it to one sensor module. Colour words are gains or ratios times 1024.
//
// On the partition, the record area begins at kAreaBase4k or kAreaBase2k, by the phone's page size. It holds
// a slot of kSlotSize bytes per camera, at camid * kSlotSize (0 main, 1 front, 2 sub); the fourth slot
// belongs to the dual-camera records. Inside a slot:
//
//   0x000  AWB record              32        0xE6C  dual-flash record     48
//   0xE08  flash record            32        0xEA0  gyro record           48
//   0xE28  AEC record              36        0xEC0  A-light AWB record    32
//
// The gyro and the A-light record share 16 bytes: whichever is written last stays good, the other then fails
// its CRC. Both positions are fixed.
//
// The kernel exports a 4000-byte image per camera with a layout of its own (kExport...), which readers fall
// back to when a cache file is missing.
#ifndef RECORDS_RECORD_LAYOUTS_H
#define RECORDS_RECORD_LAYOUTS_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace calib {

// ---- places on the partition ------------------------------------------------------------------------------

inline constexpr uint32_t kAreaBase4k = 0x20000;  // "ro.pagesize" is "4096"
inline constexpr uint32_t kAreaBase2k = 0x10000;  // any other page size
inline constexpr uint32_t kSlotSize = 4096;

inline constexpr uint32_t kSlotAwb = 0x000;
inline constexpr uint32_t kSlotFlash = 0xE08;
inline constexpr uint32_t kSlotAec = 0xE28;
inline constexpr uint32_t kSlotDualFlash = 0xE6C;
inline constexpr uint32_t kSlotGyro = 0xEA0;
inline constexpr uint32_t kSlotALightAwb = 0xEC0;

inline constexpr uint32_t kAreaDualCameraFirstForm = 0x3000;
inline constexpr uint32_t kAreaDualCamera = 0x3200;

// ---- places in the kernel's export ------------------------------------------------------------------------

inline constexpr size_t kExportSize = 4000;

inline constexpr size_t kExportAwb = 0;
inline constexpr size_t kExportLensShading = 64;
inline constexpr size_t kExportFlash = 3648;
inline constexpr size_t kExportAec = 3712;
inline constexpr size_t kExportALightAwb = 3784;
inline constexpr size_t kExportDualFlash = 3848;
inline constexpr size_t kExportTagWord = 3944;
inline constexpr size_t kExportGyro = 3952;

// ---- words ------------------------------------------------------------------------------------------------

inline constexpr uint32_t kValidMark = 99;      // valid word modulo kVersionUnit
inline constexpr uint32_t kVersionUnit = 1000;  // valid word / kVersionUnit is the light-source version
inline constexpr uint32_t kFinishedValidWord = 3099;
inline constexpr uint32_t kUnityWord = 1024;  // a gain or ratio of 1.0

// ---- records ----------------------------------------------------------------------------------------------

/// AWB record, in normal light and (elsewhere in the slot) in A light.
struct AwbRecord {
  uint32_t valid_word;  //  0
  uint32_t rg;          //  4: R/G * 1024
  uint32_t bg;          //  8: B/G * 1024
  uint32_t fuse[4];     // 12
  uint32_t crc;         // 28
};
static_assert(sizeof(AwbRecord) == 32);
static_assert(offsetof(AwbRecord, valid_word) == 0);
static_assert(offsetof(AwbRecord, rg) == 4);
static_assert(offsetof(AwbRecord, bg) == 8);
static_assert(offsetof(AwbRecord, fuse) == 12);
static_assert(offsetof(AwbRecord, crc) == 28);

/// Flash record: the white-balance gains while the (single) LED fires.
struct FlashRecord {
  uint32_t valid_word;  //  0
  int32_t x;            //  4: R gain * 1024
  int32_t y;            //  8: B gain * 1024
  uint32_t fuse[4];     // 12
  uint32_t crc;         // 28
};
static_assert(sizeof(FlashRecord) == 32);
static_assert(offsetof(FlashRecord, valid_word) == 0);
static_assert(offsetof(FlashRecord, x) == 4);
static_assert(offsetof(FlashRecord, y) == 8);
static_assert(offsetof(FlashRecord, fuse) == 12);
static_assert(offsetof(FlashRecord, crc) == 28);

/// AEC record: what the exposure control had settled on, in its own units.
struct AecRecord {
  uint32_t valid_word;  //  0
  uint32_t gain;        //  4
  uint32_t exp_time;    //  8
  uint32_t luma_value;  // 12
  uint32_t fuse[4];     // 16
  uint32_t crc;         // 32
};
static_assert(sizeof(AecRecord) == 36);
static_assert(offsetof(AecRecord, valid_word) == 0);
static_assert(offsetof(AecRecord, gain) == 4);
static_assert(offsetof(AecRecord, exp_time) == 8);
static_assert(offsetof(AecRecord, luma_value) == 12);
static_assert(offsetof(AecRecord, fuse) == 16);
static_assert(offsetof(AecRecord, crc) == 32);

/// Dual-flash record: gain pairs (R, B) * 1024 of LED 1 alone, LED 2 alone and both. On the front camera a
/// first pair of zeros means a screen flash: the second pair is then white, the third yellow.
struct DualFlashRecord {
  uint32_t valid_word;  //  0
  int32_t x1[2];        //  4
  int32_t x2[2];        // 12
  int32_t x3[2];        // 20
  uint32_t fuse[4];     // 28
  uint32_t crc;         // 44
};
static_assert(sizeof(DualFlashRecord) == 48);
static_assert(offsetof(DualFlashRecord, valid_word) == 0);
static_assert(offsetof(DualFlashRecord, x1) == 4);
static_assert(offsetof(DualFlashRecord, x2) == 12);
static_assert(offsetof(DualFlashRecord, x3) == 20);
static_assert(offsetof(DualFlashRecord, fuse) == 28);
static_assert(offsetof(DualFlashRecord, crc) == 44);

/// Gyro record: only the fact that this module's gyro was calibrated.
struct GyroRecord {
  uint64_t valid_word;  //  0
  uint64_t fuse[4];     //  8: zero-extended
  uint64_t crc;         // 40: zero-extended
};
static_assert(sizeof(GyroRecord) == 48);
static_assert(offsetof(GyroRecord, valid_word) == 0);
static_assert(offsetof(GyroRecord, fuse) == 8);
static_assert(offsetof(GyroRecord, crc) == 40);

inline constexpr size_t kMeshGains = 221;  // of one colour channel

/// Lens-shading record, written by the factory tool; lies at kExportLensShading of the export.
struct LensShadingRecord {
  uint64_t valid_word;         //    0
  uint64_t fuse[4];            //    8: zero-extended
  float gains[4][kMeshGains];  //   40: per colour channel
  uint64_t crc;                // 3576: zero-extended
};
static_assert(sizeof(LensShadingRecord) == 3584);
static_assert(offsetof(LensShadingRecord, valid_word) == 0);
static_assert(offsetof(LensShadingRecord, fuse) == 8);
static_assert(offsetof(LensShadingRecord, gains) == 40);
static_assert(offsetof(LensShadingRecord, crc) == 3576);

inline constexpr size_t kDualCameraPayload = 1643;

/// Dual-camera record, once per phone. Its words are not aligned: all fields are bytes.
struct DualCameraRecord {
  uint8_t valid_word[4];                //    0
  uint8_t payload[kDualCameraPayload];  //    4: the factory tool's, opaque here
  uint8_t fuse[16];                     // 1647
  uint8_t crc[4];                       // 1663
};
static_assert(sizeof(DualCameraRecord) == 1667);
static_assert(offsetof(DualCameraRecord, valid_word) == 0);
static_assert(offsetof(DualCameraRecord, payload) == 4);
static_assert(offsetof(DualCameraRecord, fuse) == 1647);
static_assert(offsetof(DualCameraRecord, crc) == 1663);

/// Dual-camera record, first form: no valid word, no fuse ID, and only the low byte of the CRC.
struct DualCameraFirstFormRecord {
  uint8_t payload[464];  //   0
  uint8_t crc_low;       // 464
};
static_assert(sizeof(DualCameraFirstFormRecord) == 465);
static_assert(offsetof(DualCameraFirstFormRecord, payload) == 0);
static_assert(offsetof(DualCameraFirstFormRecord, crc_low) == 464);

/// A record may be copied as bytes and has no padding that a CRC would run over.
template <class Record>
inline constexpr bool kIsByteImage =
    std::is_trivially_copyable_v<Record>&& std::has_unique_object_representations_v<Record>;
static_assert(kIsByteImage<AwbRecord>);
static_assert(kIsByteImage<FlashRecord>);
static_assert(kIsByteImage<AecRecord>);
static_assert(kIsByteImage<DualFlashRecord>);
static_assert(kIsByteImage<GyroRecord>);
static_assert(kIsByteImage<DualCameraRecord>);
static_assert(kIsByteImage<DualCameraFirstFormRecord>);
// Two floats of the same value may differ in their bytes, so the gains are looked at by size alone.
static_assert(std::is_trivially_copyable_v<LensShadingRecord>);
static_assert(sizeof(LensShadingRecord) ==
              5 * sizeof(uint64_t) + sizeof(LensShadingRecord::gains) + sizeof(uint64_t));

// ---- everything has room where it lies --------------------------------------------------------------------

static_assert(kSlotFlash + sizeof(FlashRecord) == kSlotAec);
static_assert(kSlotAec + sizeof(AecRecord) <= kSlotDualFlash);
static_assert(kSlotDualFlash + sizeof(DualFlashRecord) <= kSlotGyro);
static_assert(kSlotGyro + sizeof(GyroRecord) == kSlotALightAwb + 16);
static_assert(kSlotALightAwb + sizeof(AwbRecord) <= kSlotSize);
static_assert(kAreaDualCameraFirstForm == 3 * kSlotSize);
static_assert(kAreaDualCameraFirstForm + sizeof(DualCameraFirstFormRecord) <= kAreaDualCamera);
static_assert(kAreaDualCamera + sizeof(DualCameraRecord) <= size_t{4} * kSlotSize);
static_assert(kExportLensShading + sizeof(LensShadingRecord) == kExportFlash);
static_assert(kExportAec + sizeof(AecRecord) <= kExportALightAwb);
static_assert(kExportALightAwb + sizeof(AwbRecord) <= kExportDualFlash);
static_assert(kExportDualFlash + sizeof(DualFlashRecord) <= kExportTagWord);
static_assert(kExportGyro + sizeof(GyroRecord) == kExportSize);

}  // namespace calib

#endif
