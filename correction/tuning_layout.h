// Where the corrections read and write in the caller's tuning blocks. The layout is the camera stack's.
#ifndef CORRECTION_TUNING_LAYOUT_H
#define CORRECTION_TUNING_LAYOUT_H

#include <cstddef>
#include <cstdint>

#include "records/record_layouts.h"

namespace calib {

// ---- AWB tuning block, as an array of floats: index = byte offset / 4 -------------------------------------

inline constexpr size_t kReferencePoints = 12;  // byte 48: 15 pairs R/G, B/G
inline constexpr size_t kReferencePointCount = 15;
inline constexpr size_t kTuningGoldenRg = 2979;        // byte 11916: per light-source version, from 1
inline constexpr size_t kTuningGoldenBg = 3011;        // byte 12044: the same
inline constexpr size_t kGainTriples = 3098;           // byte 12392: five triples r, g, b
inline constexpr size_t kLedFlashWhiteBalance = 3113;  // byte 12452: one triple more

struct GainTriple {
  float r;
  float g;
  float b;
};
static_assert(sizeof(GainTriple) == 3 * sizeof(float));

// The table of the flash light's colour by how two LEDs are driven, in bytes.
inline constexpr size_t kCctLedEntries = 6936;  // u16: entries of the table
inline constexpr size_t kCctLedTable = 6940;
inline constexpr size_t kCctLedMinEntries = 3;
inline constexpr size_t kCctLedMaxEntries = 16;

struct CctLedEntry {
  uint16_t not_used_here;  //  0
  uint16_t led1;           //  2: setting of LED 1
  uint16_t led2;           //  4: setting of LED 2
  uint16_t nor_this;       //  6
  float x;                 //  8: R/G of the light
  float y;                 // 12: B/G of the light
  uint32_t nor_these[3];   // 16
};
static_assert(sizeof(CctLedEntry) == 28);
static_assert(offsetof(CctLedEntry, led1) == 2);
static_assert(offsetof(CctLedEntry, led2) == 4);
static_assert(offsetof(CctLedEntry, x) == 8);
static_assert(offsetof(CctLedEntry, y) == 12);

// ---- tuning block of a sensor, in bytes: lens-shading mesh tables -----------------------------------------

/// A mesh table; its first word is the tuning's own.
struct MeshTable {
  uint32_t header;             // 0
  float gains[4][kMeshGains];  // 4: per colour channel
};
static_assert(sizeof(MeshTable) == 3540);
static_assert(offsetof(MeshTable, gains) == 4);

inline constexpr size_t kMeshTables = 2572;  // four tables in a row
inline constexpr size_t kMeshTableCount = 4;
inline constexpr size_t kLowLightMesh = 16732;
inline constexpr size_t kFurtherMesh = 45052;
static_assert(kLowLightMesh == kMeshTables + kMeshTableCount * sizeof(MeshTable));

}  // namespace calib

#endif
