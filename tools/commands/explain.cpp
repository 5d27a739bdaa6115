// awbcal explain: a camera start on a copy of the phone, told from the library's own log.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "awb_calibration/correction.h"
#include "awb_calibration/factory.h"
#include "awb_calibration/records.h"
#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/errors.h"
#include "inspect/verdict.h"
#include "records/kernel_export.h"
#include "run/camera_start.h"
#include "run/readers.h"
#include "run/scratch_phone.h"
#include "text/tables.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

struct ExplainArguments {
  InputOptions input;
  std::string camera;
  std::string tuning;
  std::string mesh_tuning;
  std::string golden = "0.7539,0.5625";
  std::vector<std::string> fuse;
  bool reboot = false;
  bool json = false;
};

// ---- the copy ---------------------------------------------------------------------------------------------

phone::Options options_for(const Input& input) {
  phone::Options options;
  for (const InputFile& file : input.files) {
    if (file.layout == Layout::partition) {
      options.partition_size = std::max<uint64_t>(options.partition_size, file.content.bytes.size());
    }
  }
  if (input.area) options.page_size = input.area->base == calib::kAreaBase4k ? 4096 : 2048;
  return options;
}

/// Good blocks in order, as the kernel's reader delivers them.
Bytes partition_bytes(const InputFile& file) {
  if (file.block_size == 0) return file.content.bytes;
  Bytes bytes;
  for (const uint32_t block : file.blocks) {
    const auto first =
        file.content.bytes.begin() + static_cast<std::ptrdiff_t>(uint64_t{block} * file.block_size);
    bytes.insert(bytes.end(), first, first + static_cast<std::ptrdiff_t>(file.block_size));
  }
  return bytes;
}

const char* cache_name(const Input& input, const InputFile& file, std::string& name) {
  if (input.kind == InputKind::phone) {
    name = fs::path(file.path).filename().string();
    return name.c_str();
  }
  name = record_spec(file.kind.value()).cache_file(file.camera.value_or(calib::Camera::main));
  return name.empty() ? nullptr : name.c_str();
}

void copy_file(const Input& input, const InputFile& file, ScratchPhone& copy) {
  if (file.content.trouble) return;
  const Bytes& bytes = file.content.bytes;
  std::string name;
  if (file.layout == Layout::partition) {
    const Bytes content = partition_bytes(file);
    copy.phone().write_partition(0, content.data(), content.size());
  } else if (file.layout == Layout::dual_camera_node) {
    copy.put("/sys/android_camera_awb_cal/awb_cal_3D", bytes);
  } else if (file.kind && file.source != Source::factory) {
    if (const char* cache = cache_name(input, file, name))
      copy.put(std::string("/data/misc/camera/") + cache, bytes);
  } else if (file.layout == Layout::export_image) {
    copy.put(calib::kExportNode.of(file.camera.value_or(calib::Camera::main)), bytes);
  }
}

/// A phone has many more than the library reads, some of them longer than it could.
void copy_properties(const Input& input, ScratchPhone& copy) {
  if (!input.properties) return;
  for (const auto& [name, value] : *input.properties) {
    try {
      copy.phone().set_property(name, value);
    } catch (const std::invalid_argument&) {
      // No property service would hold it, so the library would read its default.
    }
  }
}

/// Only what the phone had: a node or file that is absent there is absent here.
void copy_phone(const Input& input, const Modules& modules, bool reboot, ScratchPhone& copy) {
  for (const auto& entry : fs::directory_iterator(copy.phone().host_path("/sys/android_camera_awb_cal"))) {
    fs::remove(entry.path());
  }
  copy_properties(input, copy);
  for (const auto& [camera, module] : modules) copy.fit(camera, module);
  for (const InputFile& file : input.files) copy_file(input, file, copy);
  if (reboot || input.kind == InputKind::partition) copy.phone().reboot();
}

// ---- the start --------------------------------------------------------------------------------------------

struct LoggedCall {
  const char* function;
  std::vector<phone::LogLine> log;
};

TuningBlock block_of(const std::string& path, const TuningBlock& otherwise, size_t least) {
  if (path.empty()) return otherwise;
  const FileContent content = read_file(path);
  if (content.trouble) throw InputError(fmt::format("{}: is unreadable: {}", path, *content.trouble));
  if (content.bytes.size() < least) {
    throw InputError(
        fmt::format("{}: {} bytes where a tuning block has {} or more", path, content.bytes.size(), least));
  }
  // In whole words; the last may be filled in part.
  const size_t words =
      content.bytes.size() / sizeof(float) + (content.bytes.size() % sizeof(float) > 0 ? 1 : 0);
  TuningBlock block(words * sizeof(float));
  memcpy(block.data(), content.bytes.data(), content.bytes.size());
  return block;
}

class Start {
 public:
  Start(ScratchPhone& copy, calib::Camera camera, CameraTuning& tuning, const Golden& golden)
      : phone_(copy.phone()), tuning_(tuning) {
    const float rg[3] = {golden.rg, golden.rg, golden.rg};
    const float bg[3] = {golden.bg, golden.bg, golden.bg};
    awb_calibration_set_GS(rg, bg);
    call("sensor_detect", [camera] { sensor_detect(camid_of(camera)); });
    call("QOR_AWB_Calibration_Reference_Points_Correction",
         [this] { QOR_AWB_Calibration_Reference_Points_Correction(tuning_.moved.data()); });
    call("Correct_Reference_Points_qorModule", [this] {
      Correct_Reference_Points_qorModule(tuning_.own_golden.data(), tuning_.module_ratio.data(),
                                         tuning_.white_screen.data(), tuning_.yellow_screen.data());
    });
    constexpr float kBrightRatio = 0.75F;
    constexpr float kLowRatio = 0.5F;
    call("Sensor_set_mesh", [this] { Sensor_set_mesh(tuning_.mesh.data(), 0, kBrightRatio, kLowRatio); });
    call("Dual_Cam_Correction", [this] {
      Dual_Cam_Correction(&tuning_.pair[0], &tuning_.pair[1], &tuning_.pair[2], &tuning_.pair[3]);
    });
    call("QOR_Calibration_AEC_get_calibration_data",
         [this] { QOR_Calibration_AEC_get_calibration_data(&exposure_[0], &exposure_[1], &exposure_[2]); });
  }

  const std::vector<LoggedCall>& calls() const { return calls_; }

 private:
  template <class Call>
  void call(const char* function, const Call& run) {
    phone_.take_log();
    run();
    calls_.push_back({function, phone_.take_log()});
  }

  phone::VirtualPhone& phone_;
  CameraTuning& tuning_;
  std::array<uint32_t, 3> exposure_{};
  std::vector<LoggedCall> calls_;
};

// ---- the story --------------------------------------------------------------------------------------------

/// A source of a record and what becomes of it: a loader takes the first that opens, whatever is in it.
struct SourceStory {
  const RecordSpec* spec;
  std::string place;
  std::string fate;
};

class Sources {
 public:
  Sources(const Input& input, const Modules& modules, calib::Camera camera)
      : input_(input), modules_(modules), camera_(camera) {}

  std::vector<SourceStory> all() {
    for (const RecordSpec& spec : record_specs()) {
      if (!spec.is_per_camera || readers_of(spec.kind).empty()) continue;
      taken_.clear();
      tell(spec, Source::cache, "cache file");
      tell(spec, Source::file, "file");
      tell(spec, Source::kernel_export, "export");
      if (const FoundRecord* record = input_.find(spec, camera_, Source::partition)) {
        stories_.push_back(
            {&spec, "partition", fmt::format("read by the kernel at boot only; {}", verdict(*record))});
      }
    }
    return std::move(stories_);
  }

 private:
  std::string verdict(const FoundRecord& record) const {
    const Finding finding = judge_found(input_, record, modules_);
    std::string text = verdict_name(finding.verdict);
    if (finding.verdict != Verdict::good) {
      text += fmt::format(" ({}: expected {}, found {})", verdict_rule(finding.verdict), finding.expected,
                          finding.found);
    }
    return text;
  }

  void tell(const RecordSpec& spec, Source source, const char* name) {
    const FoundRecord* record = input_.find(spec, camera_, source);
    if (record == nullptr) {
      if (source != Source::file) stories_.push_back({&spec, name, "absent"});
      return;
    }
    const std::string fate =
        taken_.empty() ? "taken" : fmt::format("not asked, for the {} opens first", taken_);
    if (taken_.empty()) taken_ = name;
    stories_.push_back({&spec, name, fmt::format("{}; {}", fate, verdict(*record))});
  }

  const Input& input_;
  const Modules& modules_;
  calib::Camera camera_;
  std::string taken_;
  std::vector<SourceStory> stories_;
};

struct NamedValue {
  std::string block;
  std::string field;
  float before;
  float after;
};

/// Every float that a correction may write.
class TuningFields {
 public:
  static std::vector<NamedValue> all(const CameraTuning& before, const CameraTuning& after) {
    TuningFields fields;
    fields.awb("reference_points", before.moved, after.moved);
    fields.awb("own_golden", before.own_golden, after.own_golden);
    fields.meshes(before.mesh, after.mesh);
    fields.ratios(before, after);
    return std::move(fields.values_);
  }

 private:
  void add(const char* block, std::string field, float before, float after) {
    values_.push_back({block, std::move(field), before, after});
  }

  void awb(const char* block, const TuningBlock& before, const TuningBlock& after) {
    for (size_t i = 0; i < 2 * calib::kReferencePointCount; ++i) {
      const size_t at = calib::kReferencePoints + i;
      add(block, fmt::format("reference_point_{}_{}", i / 2, i % 2 == 0 ? "rg" : "bg"), before[at],
          after[at]);
    }
    constexpr size_t kGains = calib::kLedFlashWhiteBalance + 3 - calib::kGainTriples;
    for (size_t i = 0; i < kGains; ++i) {
      const std::string triple = i / 3 == 5 ? "led_flash_white_balance" : fmt::format("triple_{}", i / 3 + 1);
      add(block, fmt::format("{}_{}", triple, "rgb"[i % 3]), before[calib::kGainTriples + i],
          after[calib::kGainTriples + i]);
    }
    const size_t entries =
        std::min<size_t>(before.get<uint16_t>(calib::kCctLedEntries), calib::kCctLedMaxEntries);
    for (size_t i = 0; i < entries; ++i) {
      const size_t at = calib::kCctLedTable + i * sizeof(calib::CctLedEntry);
      const auto old = before.get<calib::CctLedEntry>(at);
      const auto now = after.get<calib::CctLedEntry>(at);
      add(block, fmt::format("led_{}_x", i), old.x, now.x);
      add(block, fmt::format("led_{}_y", i), old.y, now.y);
    }
  }

  void meshes(const TuningBlock& before, const TuningBlock& after) {
    constexpr size_t kPlaces[] = {calib::kMeshTables,
                                  calib::kMeshTables + sizeof(calib::MeshTable),
                                  calib::kMeshTables + 2 * sizeof(calib::MeshTable),
                                  calib::kMeshTables + 3 * sizeof(calib::MeshTable),
                                  calib::kLowLightMesh,
                                  calib::kFurtherMesh};
    for (const size_t place : kPlaces) {
      const auto old = before.get<calib::MeshTable>(place);
      const auto now = after.get<calib::MeshTable>(place);
      for (size_t i = 0; i < 4 * calib::kMeshGains; ++i) {
        const size_t channel = i / calib::kMeshGains;
        const size_t gain = i % calib::kMeshGains;
        add("mesh", fmt::format("mesh_at_{}_channel_{}_gain_{}", place, channel + 1, gain),
            old.gains[channel][gain], now.gains[channel][gain]);
      }
    }
  }

  void ratios(const CameraTuning& before, const CameraTuning& after) {
    constexpr const char* kColours[] = {"rg", "bg"};
    for (size_t i = 0; i < 2; ++i) {
      add("handed_out", fmt::format("module_{}", kColours[i]), before.module_ratio[i], after.module_ratio[i]);
      add("handed_out", fmt::format("flash_first_{}", kColours[i]), before.white_screen[i],
          after.white_screen[i]);
      add("handed_out", fmt::format("flash_second_{}", kColours[i]), before.yellow_screen[i],
          after.yellow_screen[i]);
      add("handed_out", fmt::format("pair_d50_{}", kColours[i]), before.pair[i], after.pair[i]);
      add("handed_out", fmt::format("pair_a_light_{}", kColours[i]), before.pair[i + 2], after.pair[i + 2]);
    }
  }

  std::vector<NamedValue> values_;
};

/// A number, or its name where JSON has none for it.
Json number_json(float value) {
  if (std::isfinite(value)) return value;
  return std::isnan(value) ? "nan" : value > 0 ? "infinity" : "-infinity";
}

class Explanation {
 public:
  explicit Explanation(const ExplainArguments& arguments)
      : input_(open_input(arguments.input)),
        camera_(camera_of_name(arguments.camera).value()),
        golden_(parse_golden(arguments.golden).value()),
        before_(Light{"", golden_.rg, golden_.bg, 0, false}),
        modules_(modules_of(input_)) {
    for (const std::string& fuse : arguments.fuse) parse_fuse(fuse, modules_);
    constexpr size_t kAwbBytes = (calib::kLedFlashWhiteBalance + 3) * sizeof(float);
    constexpr size_t kMeshBytes = calib::kFurtherMesh + sizeof(calib::MeshTable);
    before_.moved = block_of(arguments.tuning, before_.moved, kAwbBytes);
    before_.own_golden = block_of(arguments.tuning, before_.own_golden, kAwbBytes);
    before_.mesh = block_of(arguments.mesh_tuning, before_.mesh, kMeshBytes);
    ScratchPhone copy(options_for(input_));
    copy_phone(input_, modules_, arguments.reboot, copy);
    start_.emplace(CameraStart{.tuning = before_, .refusals = {}});
    calls_ = Start(copy, camera_, start_->tuning, golden_).calls();
    sources_ = Sources(input_, modules_, camera_).all();
  }

  void print(Terminal& terminal) const {
    show_input(terminal, input_);
    terminal.heading(fmt::format("{} camera: where its records come from", camera_name(camera_)));
    Table table({"", "", ""});
    const RecordSpec* last = nullptr;
    for (const SourceStory& story : sources_) {
      table.row({story.spec == last ? "" : story.spec->id, story.place, story.fate});
      last = story.spec;
    }
    table.print(terminal, 2);
    for (const LoggedCall& call : calls_) {
      terminal.heading(call.function);
      for (const phone::LogLine& line : call.log) {
        terminal.quote((line.priority >= 6 ? "(error) " : "") + line.text);
      }
    }
    terminal.heading("The tuning before, after, ratio");
    show_start(terminal, before_, *start_);
  }

  Json json() const {
    Json document = json_document("explain");
    document["input"] = json_of(input_);
    document["camera"] = camera_name(camera_);
    document["sources"] = Json::array();
    for (const SourceStory& story : sources_) {
      document["sources"].push_back(
          {{"kind", story.spec->id}, {"source", story.place}, {"fate", story.fate}});
    }
    document["calls"] = Json::array();
    for (const LoggedCall& call : calls_) {
      Json lines = Json::array();
      for (const phone::LogLine& line : call.log)
        lines.push_back({{"error", line.priority >= 6}, {"text", line.text}});
      document["calls"].push_back({{"function", call.function}, {"log", std::move(lines)}});
    }
    document["tuning"] = Json::array();
    for (const NamedValue& value : TuningFields::all(before_, start_->tuning)) {
      document["tuning"].push_back({{"block", value.block},
                                    {"field", value.field},
                                    {"before", number_json(value.before)},
                                    {"after", number_json(value.after)},
                                    {"ratio", number_json(value.after / value.before)}});
    }
    return document;
  }

 private:
  Input input_;
  calib::Camera camera_;
  Golden golden_;
  CameraTuning before_;
  Modules modules_;
  std::optional<CameraStart> start_;
  std::vector<LoggedCall> calls_;
  std::vector<SourceStory> sources_;
};

}  // namespace

Command add_explain(CLI::App& parent) {
  const auto arguments = std::make_shared<ExplainArguments>();
  CLI::App* app = parent.add_subcommand("explain", "Start a camera on a copy of the phone and say why");
  app->add_option("CAMERA", arguments->camera, "main, front or sub")
      ->required()
      ->check(CLI::IsMember({"main", "front", "sub"}))
      ->type_name("");
  add_input_options(*app, arguments->input);
  app->add_option("--fuse", arguments->fuse, "Module's fuse ID, as verify --fuse")
      ->expected(1)
      ->take_all()
      ->type_name("WORDS");
  app->add_option("--golden", arguments->golden, "Golden sample of the factory [0.7539,0.5625]")
      ->type_name("RG,BG");
  app->add_option("--tuning", arguments->tuning, "AWB tuning block to correct [a typical one]")
      ->type_name("FILE");
  app->add_option("--mesh-tuning", arguments->mesh_tuning,
                  "Sensor's tuning block with the meshes [a typical one]")
      ->type_name("FILE");
  app->add_flag("--reboot", arguments->reboot, "Let the kernel read the partition anew first");
  app->add_flag("--json", arguments->json, "For programs: every tuning field");
  return {app, [arguments](Terminal& terminal) {
            // A file that does not name its camera is of the one that is asked for.
            if (!arguments->input.camera) arguments->input.camera = camera_of_name(arguments->camera);
            const Explanation explanation(*arguments);
            if (arguments->json) {
              print_json(explanation.json());
            } else {
              explanation.print(terminal);
            }
            return kDone;
          }};
}

}  // namespace awbcal
