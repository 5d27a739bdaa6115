#include "run/tuning_changes.h"

#include <fmt/format.h>

namespace awbcal {

namespace {

// ---- for scripts ------------------------------------------------------------------------------------------

using Values = std::vector<TuningValue>;

void add_awb_values(Values& values, const char* block, const TuningBlock& before, const TuningBlock& after) {
  for (size_t i = 0; i < 2 * calib::kReferencePointCount; ++i) {
    const size_t at = calib::kReferencePoints + i;
    values.push_back({block, fmt::format("reference_point_{}_{}", i / 2, i % 2 == 0 ? "rg" : "bg"),
                      before[at], after[at]});
  }
  constexpr const char* kTripleIds[] = {"triple_1", "triple_2", "triple_3",
                                        "triple_4", "triple_5", "led_flash_white_balance"};
  for (size_t triple = 0; triple < std::size(kTripleIds); ++triple) {
    for (size_t i = 0; i < 3; ++i) {
      const size_t at = kTriplePlaces[triple].offset + i;
      values.push_back({block, fmt::format("{}_{}", kTripleIds[triple], "rgb"[i]), before[at], after[at]});
    }
  }
  for (size_t i = 0; i < led_entries(before); ++i) {
    const size_t at = calib::kCctLedTable + i * sizeof(calib::CctLedEntry);
    const auto old = before.get<calib::CctLedEntry>(at);
    const auto now = after.get<calib::CctLedEntry>(at);
    values.push_back({block, fmt::format("led_{}_x", i), old.x, now.x});
    values.push_back({block, fmt::format("led_{}_y", i), old.y, now.y});
  }
}

void add_mesh_values(Values& values, const TuningBlock& before, const TuningBlock& after) {
  for (const TuningPlace& place : kMeshPlaces) {
    const auto old = before.get<calib::MeshTable>(place.offset);
    const auto now = after.get<calib::MeshTable>(place.offset);
    for (size_t i = 0; i < 4 * calib::kMeshGains; ++i) {
      const size_t channel = i / calib::kMeshGains;
      const size_t gain = i % calib::kMeshGains;
      values.push_back({"mesh", fmt::format("mesh_at_{}_channel_{}_gain_{}", place.offset, channel + 1, gain),
                        old.gains[channel][gain], now.gains[channel][gain]});
    }
  }
}

/// A pair of ratios that a start hands out to the camera stack.
struct RatioPair {
  const char* id;
  const char* name;
  const float* before;
  const float* after;
};

std::array<RatioPair, 5> ratio_pairs(const CameraTuning& before, const CameraTuning& after) {
  return {{{"module", "module", before.module_ratio.data(), after.module_ratio.data()},
           {"flash_first", "white screen", before.white_screen.data(), after.white_screen.data()},
           {"flash_second", "yellow screen", before.yellow_screen.data(), after.yellow_screen.data()},
           {"pair_d50", "pair, normal light", before.pair.data(), after.pair.data()},
           {"pair_a_light", "pair, A light", before.pair.data() + 2, after.pair.data() + 2}}};
}

// ---- for people: one table per kind of field --------------------------------------------------------------

struct Change {
  float before;
  float after;
};

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

  TuningTable as(TuningPart part, const char* title) const { return {part, title, table_, has_changed_}; }

 private:
  static std::vector<std::string> with_changes(std::vector<std::string> names,
                                               const std::vector<std::string>& values) {
    for (const std::string& value : values) names.insert(names.end(), {">" + value, ">after", ">ratio"});
    return names;
  }

  Table table_;
  bool has_changed_ = false;
};

TuningTable reference_points_of(const TuningBlock& before, const TuningBlock& after) {
  ChangeTable table({">point"}, {"R/G", "B/G"});
  for (size_t i = 0; i < calib::kReferencePointCount; ++i) {
    const size_t at = calib::kReferencePoints + 2 * i;
    table.row({std::to_string(i)}, {{before[at], after[at]}, {before[at + 1], after[at + 1]}});
  }
  return table.as(TuningPart::reference_points, "Reference points");
}

std::string triple_text(float r, float g, float b) {
  return fmt::format("{:.4f} {:.4f} {:.4f}", r, g, b);
}

TuningTable triples_of(const TuningBlock& before, const TuningBlock& after) {
  Table table({"r g b", ">before", ">after", ">ratio"});
  bool has_changed = false;
  for (const auto& [name, at] : kTriplePlaces) {
    const size_t g = at + 1;
    const size_t b = at + 2;
    table.row({name, triple_text(before[at], before[g], before[b]),
               triple_text(after[at], after[g], after[b]),
               triple_text(after[at] / before[at], after[g] / before[g], after[b] / before[b])});
    has_changed = has_changed || before[at] != after[at] || before[g] != after[g] || before[b] != after[b];
  }
  return {TuningPart::triples, "Gain triples", table, has_changed};
}

TuningTable flash_gains_of(const TuningBlock& before, const TuningBlock& after) {
  constexpr size_t r = calib::kLedFlashWhiteBalance;
  ChangeTable table({}, {"r", "b"});
  table.row({}, {{before[r], after[r]}, {before[r + 2], after[r + 2]}});
  return table.as(TuningPart::flash_gains, "Flash gains");
}

TuningTable led_table_of(const TuningBlock& before, const TuningBlock& after) {
  ChangeTable table({">entry", ">LED 1", ">LED 2"}, {"R/G", "B/G"});
  for (size_t i = 0; i < led_entries(before); ++i) {
    const size_t at = calib::kCctLedTable + i * sizeof(calib::CctLedEntry);
    const auto old = before.get<calib::CctLedEntry>(at);
    const auto now = after.get<calib::CctLedEntry>(at);
    table.row({std::to_string(i), std::to_string(old.led1), std::to_string(old.led2)},
              {{old.x, now.x}, {old.y, now.y}});
  }
  return table.as(TuningPart::led_table, "Dual-LED table");
}

TuningTable meshes_of(const TuningBlock& before, const TuningBlock& after) {
  ChangeTable table({"mesh"}, {"corner", "centre"});
  for (const auto& [name, at] : kMeshPlaces) {
    const auto old = before.get<calib::MeshTable>(at);
    const auto now = after.get<calib::MeshTable>(at);
    table.row({name}, {{old.gains[0][kMeshCorner], now.gains[0][kMeshCorner]},
                       {old.gains[0][kMeshCentre], now.gains[0][kMeshCentre]}});
  }
  return table.as(TuningPart::meshes, "Lens shading, first channel");
}

TuningTable ratios_of(const CameraTuning& before, const CameraTuning& after) {
  ChangeTable table({"of"}, {"R/G", "B/G"});
  for (const RatioPair& pair : ratio_pairs(before, after)) {
    table.row({pair.name}, {{pair.before[0], pair.after[0]}, {pair.before[1], pair.after[1]}});
  }
  return table.as(TuningPart::ratios, "Ratios handed out");
}

}  // namespace

std::vector<TuningValue> tuning_values(const CameraTuning& before, const CameraTuning& after) {
  Values values;
  add_awb_values(values, "reference_points", before.moved, after.moved);
  add_awb_values(values, "own_golden", before.own_golden, after.own_golden);
  add_mesh_values(values, before.mesh, after.mesh);
  for (const RatioPair& pair : ratio_pairs(before, after)) {
    values.push_back({"handed_out", fmt::format("{}_rg", pair.id), pair.before[0], pair.after[0]});
    values.push_back({"handed_out", fmt::format("{}_bg", pair.id), pair.before[1], pair.after[1]});
  }
  return values;
}

std::vector<TuningTables> tuning_tables(const CameraTuning& before, const CameraTuning& after) {
  return {{"A tuning whose white points the library moves",
           {reference_points_of(before.moved, after.moved), triples_of(before.moved, after.moved)}},
          {"A tuning that carries its own golden sample",
           {flash_gains_of(before.own_golden, after.own_golden),
            led_table_of(before.own_golden, after.own_golden)}},
          {"For every tuning", {meshes_of(before.mesh, after.mesh), ratios_of(before, after)}}};
}

void show_tuning(Terminal& terminal, const CameraTuning& before, const CameraTuning& after) {
  for (const auto& [of, tables] : tuning_tables(before, after)) {
    terminal.paragraph(fmt::format("{}:", of));
    for (const auto& [part, title, table, has_changed] : tables) {
      terminal.paragraph(fmt::format("{}{}", title, has_changed ? "" : ": unchanged"));
      if (!has_changed) continue;
      table.print(terminal);
      if (part == TuningPart::triples) terminal.paragraph(kTripleNote, 4);
    }
  }
}

}  // namespace awbcal
