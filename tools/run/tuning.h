// The tuning blocks that a camera stack owns: their sizes, the places that corrections write, typical contents,
// and lens-shading records that fit them.
#ifndef RUN_TUNING_H
#define RUN_TUNING_H

#include <vector>

#include "correction/tuning_layout.h"
#include "inspect/decode.h"
#include "records/golden_sample.h"
#include "records/judgement.h"

namespace awbcal {

/// A block of floats with the structures that the camera stack has in it.
class TuningBlock {
 public:
  explicit TuningBlock(size_t bytes) : words_(bytes / sizeof(float)) {}

  float* data() { return words_.data(); }
  float& operator[](size_t index) { return words_.at(index); }
  float operator[](size_t index) const { return words_.at(index); }
  /// By bytes: not everything in the block is a float.
  bool operator==(const TuningBlock& other) const {
    return words_.size() == other.words_.size() &&
           memcmp(words_.data(), other.words_.data(), words_.size() * sizeof(float)) == 0;
  }

  template <class Part>
  Part get(size_t byte_offset) const {
    check_range(byte_offset, sizeof(Part));
    return calib::record_at<Part>(reinterpret_cast<const char*>(words_.data()) + byte_offset);
  }
  template <class Part>
  void put(size_t byte_offset, const Part& part) {
    check_range(byte_offset, sizeof(Part));
    memcpy(reinterpret_cast<char*>(words_.data()) + byte_offset, &part, sizeof part);
  }

 private:
  void check_range(size_t offset, size_t size) const;

  std::vector<float> words_;
};

/// What the corrections reach of the AWB block and of the sensor's block.
inline constexpr size_t kAwbTuningBytes = (calib::kLedFlashWhiteBalance + 3) * sizeof(float);
inline constexpr size_t kMeshTuningBytes = calib::kFurtherMesh + sizeof(calib::MeshTable);

struct TuningPlace {
  const char* name;
  size_t offset;  ///< as the library's layout has it: of a triple in floats, of a mesh table in bytes
};

inline constexpr TuningPlace kTriplePlaces[] = {
    {"triple 1", calib::kGainTriples},      {"triple 2", calib::kGainTriples + 3},
    {"triple 3", calib::kGainTriples + 6},  {"triple 4", calib::kGainTriples + 9},
    {"triple 5", calib::kGainTriples + 12}, {"LED flash", calib::kLedFlashWhiteBalance}};

inline constexpr TuningPlace kMeshPlaces[] = {{"table 0", calib::kMeshTables},
                                              {"table 1", calib::kMeshTables + sizeof(calib::MeshTable)},
                                              {"table 2", calib::kMeshTables + 2 * sizeof(calib::MeshTable)},
                                              {"table 3", calib::kMeshTables + 3 * sizeof(calib::MeshTable)},
                                              {"low light", calib::kLowLightMesh},
                                              {"further", calib::kFurtherMesh}};

/// The dual-LED table's entries in use.
size_t led_entries(const TuningBlock& tuning);

/// White points, gains and the LED table of a camera that was tuned with the golden sample.
TuningBlock make_awb_tuning(const calib::GoldenRatios& golden);

/// Mesh tables of a typical lens.
TuningBlock make_mesh_tuning();

inline constexpr size_t kMeshCorner = 0;
inline constexpr size_t kMeshCentre = calib::kMeshGains / 2;

/// What the factory tool measures of a module's lens; `falloff` is the gain that its corners need above 1.
Bytes make_lens_shading_record(const calib::FuseWords& module, double falloff);

}  // namespace awbcal

#endif
