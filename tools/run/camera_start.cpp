#include "run/camera_start.h"

#include <fmt/format.h>

#include <algorithm>

#include "awb_calibration/correction.h"
#include "awb_calibration/factory.h"
#include "inspect/cameras.h"
#include "run/sensor_model.h"
#include "text/tables.h"

namespace awbcal {

namespace {

constexpr float kBrightRatio = 0.75F;
constexpr float kLowRatio = 0.5F;

struct NamedOffset {
  const char* name;
  size_t offset;
};

constexpr NamedOffset kTriples[] = {
    {"triple 1", calib::kGainTriples},      {"triple 2", calib::kGainTriples + 3},
    {"triple 3", calib::kGainTriples + 6},  {"triple 4", calib::kGainTriples + 9},
    {"triple 5", calib::kGainTriples + 12}, {"LED flash", calib::kLedFlashWhiteBalance}};

constexpr NamedOffset kMeshes[] = {{"table 0", calib::kMeshTables},
                                   {"table 1", calib::kMeshTables + sizeof(calib::MeshTable)},
                                   {"table 2", calib::kMeshTables + 2 * sizeof(calib::MeshTable)},
                                   {"table 3", calib::kMeshTables + 3 * sizeof(calib::MeshTable)},
                                   {"low light", calib::kLowLightMesh},
                                   {"further", calib::kFurtherMesh}};

struct Change {
  float before;
  float after;
};

void show_if_changed(Terminal& terminal, const char* title, const Table& table, bool has_changed) {
  terminal.paragraph(fmt::format("{}{}", title, has_changed ? "" : ": unchanged"));
  if (has_changed) table.print(terminal);
}

/// Rows of values before, after and their ratio.
class ChangeTable {
 public:
  ChangeTable(std::vector<std::string> names, const std::vector<std::string>& values)
      : table_(with_changes(std::move(names), values)) {}

  void row(std::vector<Cell> cells, const std::vector<Change>& changes) {
    for (const auto& [before, after] : changes) {
      for (const float value : {before, after, after / before})
        cells.emplace_back(fmt::format("{:.4f}", value));
      has_changed_ = has_changed_ || before != after;
    }
    table_.row(std::move(cells));
  }

  void show(Terminal& terminal, const char* title) const {
    show_if_changed(terminal, title, table_, has_changed_);
  }

 private:
  static std::vector<std::string> with_changes(std::vector<std::string> names,
                                               const std::vector<std::string>& values) {
    for (const std::string& value : values) names.insert(names.end(), {">" + value, ">after", ">ratio"});
    return names;
  }

  Table table_;
  bool has_changed_ = false;
};

// ---- one table per kind of field --------------------------------------------------------------------------

void show_reference_points(Terminal& terminal, const TuningBlock& before, const TuningBlock& after) {
  ChangeTable table({">point"}, {"R/G", "B/G"});
  for (size_t i = 0; i < calib::kReferencePointCount; ++i) {
    const size_t at = calib::kReferencePoints + 2 * i;
    table.row({std::to_string(i)}, {{before[at], after[at]}, {before[at + 1], after[at + 1]}});
  }
  table.show(terminal, "Reference points");
}

std::string triple_text(float r, float g, float b) {
  return fmt::format("{:.4f} {:.4f} {:.4f}", r, g, b);
}

void show_triples(Terminal& terminal, const TuningBlock& before, const TuningBlock& after) {
  Table table({"r g b", ">before", ">after", ">ratio"});
  bool has_changed = false;
  for (const auto& [name, at] : kTriples) {
    const size_t g = at + 1;
    const size_t b = at + 2;
    table.row({name, triple_text(before[at], before[g], before[b]),
               triple_text(after[at], after[g], after[b]),
               triple_text(after[at] / before[at], after[g] / before[g], after[b] / before[b])});
    has_changed = has_changed || before[at] != after[at] || before[g] != after[g] || before[b] != after[b];
  }
  show_if_changed(terminal, "Gain triples", table, has_changed);
  if (has_changed)
    terminal.paragraph("Triple 4: its g became its r, and triple 1's g its g, as documented.", 4);
}

void show_flash_gains(Terminal& terminal, const TuningBlock& before, const TuningBlock& after) {
  constexpr size_t r = calib::kLedFlashWhiteBalance;
  ChangeTable table({}, {"r", "b"});
  table.row({}, {{before[r], after[r]}, {before[r + 2], after[r + 2]}});
  table.show(terminal, "Flash gains");
}

void show_led_table(Terminal& terminal, const TuningBlock& before, const TuningBlock& after) {
  ChangeTable table({">entry", ">LED 1", ">LED 2"}, {"R/G", "B/G"});
  const size_t entries =
      std::min<size_t>(before.get<uint16_t>(calib::kCctLedEntries), calib::kCctLedMaxEntries);
  for (size_t i = 0; i < entries; ++i) {
    const size_t at = calib::kCctLedTable + i * sizeof(calib::CctLedEntry);
    const auto old = before.get<calib::CctLedEntry>(at);
    const auto now = after.get<calib::CctLedEntry>(at);
    table.row({std::to_string(i), std::to_string(old.led1), std::to_string(old.led2)},
              {{old.x, now.x}, {old.y, now.y}});
  }
  table.show(terminal, "Dual-LED table");
}

void show_meshes(Terminal& terminal, const TuningBlock& before, const TuningBlock& after) {
  ChangeTable table({"mesh"}, {"corner", "centre"});
  for (const auto& [name, at] : kMeshes) {
    const auto old = before.get<calib::MeshTable>(at);
    const auto now = after.get<calib::MeshTable>(at);
    table.row({name}, {{old.gains[0][kMeshCorner], now.gains[0][kMeshCorner]},
                       {old.gains[0][kMeshCentre], now.gains[0][kMeshCentre]}});
  }
  table.show(terminal, "Lens shading, first channel");
}

/// The ratios that a start hands out to the camera stack.
void show_ratios(Terminal& terminal, const CameraTuning& before, const CameraTuning& after) {
  ChangeTable table({"of"}, {"R/G", "B/G"});
  const auto row = [&table](const char* name, const float* old, const float* now) {
    table.row({name}, {{old[0], now[0]}, {old[1], now[1]}});
  };
  row("module", before.module_ratio.data(), after.module_ratio.data());
  row("white screen", before.white_screen.data(), after.white_screen.data());
  row("yellow screen", before.yellow_screen.data(), after.yellow_screen.data());
  row("pair, normal light", before.pair.data(), after.pair.data());
  row("pair, A light", before.pair.data() + 2, after.pair.data() + 2);
  table.show(terminal, "Ratios handed out");
}

}  // namespace

CameraTuning::CameraTuning(const Light& golden)
    : moved(make_awb_tuning(golden)), own_golden(make_awb_tuning(golden)), mesh(make_mesh_tuning()) {}

CameraStart start_camera(phone::VirtualPhone& phone, calib::Camera camera, const Light& golden) {
  CameraStart start{.tuning = CameraTuning(golden), .refusals = {}};
  CameraTuning& tuning = start.tuning;
  const auto golden_rg = static_cast<float>(golden.rg);
  const auto golden_bg = static_cast<float>(golden.bg);
  const float rg[3] = {golden_rg, golden_rg, golden_rg};
  const float bg[3] = {golden_bg, golden_bg, golden_bg};
  phone.take_log();
  sensor_detect(camid_of(camera));
  awb_calibration_set_GS(rg, bg);
  QOR_AWB_Calibration_Reference_Points_Correction(tuning.moved.data());
  Correct_Reference_Points_qorModule(tuning.own_golden.data(), tuning.module_ratio.data(),
                                     tuning.white_screen.data(), tuning.yellow_screen.data());
  Sensor_set_mesh(tuning.mesh.data(), 0, kBrightRatio, kLowRatio);
  Dual_Cam_Correction(&tuning.pair[0], &tuning.pair[1], &tuning.pair[2], &tuning.pair[3]);
  for (const phone::LogLine& line : phone.take_log()) {
    if (line.priority >= 6) start.refusals.push_back(line.text);
  }
  return start;
}

void show_start(Terminal& terminal, const CameraTuning& before, const CameraStart& start) {
  const CameraTuning& after = start.tuning;
  terminal.paragraph("A tuning whose white points the library moves:");
  show_reference_points(terminal, before.moved, after.moved);
  show_triples(terminal, before.moved, after.moved);
  terminal.paragraph("A tuning that carries its own golden sample:");
  show_flash_gains(terminal, before.own_golden, after.own_golden);
  show_led_table(terminal, before.own_golden, after.own_golden);
  terminal.paragraph("For every tuning:");
  show_meshes(terminal, before.mesh, after.mesh);
  show_ratios(terminal, before, after);
  if (start.refusals.empty()) return;
  terminal.paragraph("Refusals in the log");
  for (const std::string& line : start.refusals) terminal.quote(line);
}

}  // namespace awbcal
