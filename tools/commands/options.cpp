#include "commands/options.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>

namespace awbcal {

namespace {

template <class Number, class... Base>
std::optional<Number> number_of(const std::string& text, Base... base) {
  Number number{};
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base...);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

uint32_t fuse_word(const std::string& text) {
  const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
  const auto word = number_of<uint32_t>(is_hex ? text.substr(2) : text, is_hex ? 16 : 10);
  if (!word) throw CLI::ValidationError("--fuse", fmt::format("\"{}\" is not a 32-bit word", text));
  return *word;
}

void take_fuse(const std::string& text, Modules& modules) {
  const size_t equals = text.find('=');
  std::optional<calib::Camera> camera;
  if (equals != std::string::npos) {
    camera = camera_of_name(text.substr(0, equals));
    if (!camera) throw CLI::ValidationError("--fuse", fmt::format("no such camera: \"{}\"", text));
  }
  const std::vector<std::string> parts =
      CLI::detail::split(equals == std::string::npos ? text : text.substr(equals + 1), ',');
  calib::FuseWords words{};
  if (parts.size() != words.size()) {
    throw CLI::ValidationError("--fuse",
                               fmt::format("expected 4 words, found {}: \"{}\"", parts.size(), text));
  }
  for (size_t i = 0; i < words.size(); ++i) words[i] = fuse_word(parts[i]);
  for (const calib::Camera each : kCameras) {
    if (!camera || camera == each) modules[each] = words;
  }
}

/// What the factory tool can set: a ratio above 0.
CLI::Validator ratio() {
  return CLI::Validator(
      [](const std::string& text) {
        const auto value = number_of<float>(text);
        return value && std::isfinite(*value) && *value > 0
                   ? std::string()
                   : fmt::format("\"{}\" is not a ratio above 0; expected R/G,B/G as in 0.7539,0.5625", text);
      },
      "");
}

CLI::Option* add_golden(CLI::App& app, const std::function<void(calib::GoldenRatios)>& take) {
  return app
      .add_option_function<std::pair<float, float>>(
          "--golden",
          [take](const std::pair<float, float>& pair) {
            take({pair.first, pair.second});
          },
          "Golden sample of the factory")
      ->delimiter(',')
      ->check(ratio())
      ->type_name("RG,BG");
}

template <class Percent>
CLI::Option* add_threshold(CLI::App& app, Percent& percent) {
  return app.add_option("--threshold", percent, "Allowed distance in percent of the golden sample")
      ->check(whole_number(0, INT32_MAX))
      ->type_name("PERCENT");
}

}  // namespace

CLI::Validator whole_number(uint64_t least, uint64_t most) {
  return CLI::Validator(
      [least, most](const std::string& text) {
        const auto number = number_of<uint64_t>(text);
        return number && *number >= least && *number <= most
                   ? std::string()
                   : fmt::format("\"{}\" is not a whole number from {} to {}", text, least, most);
      },
      "");
}

CLI::Validator camera_names() {
  return named_values<calib::Camera>(
      {{"main", calib::Camera::main}, {"front", calib::Camera::front}, {"sub", calib::Camera::sub}});
}

std::vector<std::string> kind_ids() {
  std::vector<std::string> ids;
  for (const RecordSpec& spec : record_specs()) ids.emplace_back(spec.id);
  return ids;
}

CLI::Validator one_of(const std::vector<std::string>& names) {
  return CLI::IsMember(names).description("");
}

CLI::App* add_command(CLI::App& parent, const char* name, const char* description) {
  return parent.add_subcommand(name, description);
}

void add_input_options(CLI::App& app, InputOptions& options) {
  app.add_option("INPUT", options.paths, "Phone folder, image, export, cache file or archive; - is stdin")
      ->required()
      ->default_str("");
  app.add_option("--as", options.as, "What INPUT is: phone, partition, export, node or a kind of record")
      ->type_name("KIND");
  add_base_option(app, options.base);
  app.add_option("--camera", options.camera, "Camera of a single file: main, front or sub")
      ->transform(camera_names())
      ->type_name("NAME");
}

void add_base_option(CLI::App& app, std::optional<uint32_t>& base) {
  app.add_option("--base", base, "Page size, which decides where the record area is: 4k or 2k")
      ->transform(named_values<uint32_t>({{"4k", calib::kAreaBase4k}, {"2k", calib::kAreaBase2k}}))
      ->type_name("SIZE");
}

void add_json_option(CLI::App& app, bool& json) {
  app.add_flag("--json", json, "Print JSON instead of text");
}

void add_colour_option(CLI::App& app, Colour& colour) {
  app.add_option("--color", colour, "When to colour: always, auto or never")
      ->transform(named_values<Colour>(
          {{"always", Colour::always}, {"auto", Colour::by_itself}, {"never", Colour::never}}))
      ->default_str("auto")
      ->type_name("WHEN");
}

CLI::Option* add_golden_option(CLI::App& app, calib::GoldenRatios& golden) {
  return add_golden(app, [&golden](calib::GoldenRatios ratios) { golden = ratios; });
}

CLI::Option* add_golden_option(CLI::App& app, std::optional<calib::GoldenRatios>& golden) {
  return add_golden(app, [&golden](calib::GoldenRatios ratios) { golden = ratios; });
}

CLI::Option* add_threshold_option(CLI::App& app, uint32_t& percent) {
  return add_threshold(app, percent);
}

void add_limit_options(CLI::App& app, LimitOptions& options) {
  add_golden_option(app, options.golden);
  add_threshold(app, options.threshold);
  app.add_option("--limits", options.file, "CSV of golden samples and thresholds per camera and light")
      ->type_name("FILE");
}

Limits limits_of(const LimitOptions& options) {
  if (options.threshold && !options.golden)
    throw CLI::ValidationError("--threshold", "needs --golden: percent of what?");
  Limits limits;
  if (!options.file.empty()) limits = parse_limits(options.file, text_of(bytes_of_file(options.file)));
  if (options.golden) limits.set({*options.golden, options.threshold.value_or(Limit{}.threshold)});
  return limits;
}

CLI::Option* add_page_options(CLI::App& app, OutputTarget& page) {
  app.add_flag("--force", page.force, "Replace an existing page");
  const CLI::Validator is_file(
      [](const std::string& path) { return path.empty() || path == "-" ? "a page is a file: name it" : ""; },
      "");
  return app.add_option("--html", page.path, "Page for a browser to make")->check(is_file)->type_name("FILE");
}

void add_tuning_options(CLI::App& app, ExplainQuestion& question) {
  app.add_option("--tuning", question.tuning_file, "AWB tuning block to correct; otherwise a typical one")
      ->type_name("FILE");
  app.add_option("--mesh-tuning", question.mesh_tuning_file,
                 "Sensor's tuning block with the meshes; otherwise a typical one")
      ->type_name("FILE");
}

void add_fuse_option(CLI::App& app, Modules& modules) {
  app.add_option_function<std::vector<std::string>>(
         "--fuse",
         [&modules](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) take_fuse(text, modules);
         },
         "Module's fuse ID, W1,W2,W3,W4 or CAMERA=W1,W2,W3,W4")
      ->expected(1)
      ->take_all()
      ->type_name("WORDS");
}

}  // namespace awbcal
