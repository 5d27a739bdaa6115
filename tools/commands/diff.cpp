// awbcal diff: two inputs record by record, field by field.

#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "commands/commands.h"
#include "inspect/verdict.h"
#include "text/tables.h"

namespace awbcal {

namespace {

using calib::Camera;

struct DiffArguments {
  InputOptions a = {.paths = {""}};
  InputOptions b = {.paths = {""}};
  bool json = false;
};

/// What A and B hold of one record; null: nothing.
struct Pair {
  const RecordSpec* spec;
  std::optional<Camera> camera;
  const FoundRecord* a;
  const FoundRecord* b;

  bool is_equal() const { return a != nullptr && b != nullptr && a->bytes == b->bytes; }
};

class Pairing {
 public:
  Pairing(const Input& a, const Input& b) : a_(a), b_(b) {}

  /// Of two phones, source by source; else the first source of each that holds the record.
  std::vector<Pair> pairs() {
    const bool by_source = a_.kind == InputKind::phone && b_.kind == InputKind::phone;
    for (const RecordSpec& spec : record_specs()) {
      for (const std::optional<Camera> camera : cameras_of(spec)) {
        if (!by_source) {
          add(spec, camera, {});
          continue;
        }
        for (const Source source :
             {Source::cache, Source::kernel_export, Source::partition, Source::factory}) {
          add(spec, camera, source);
        }
      }
    }
    return std::move(pairs_);
  }

 private:
  /// A file that does not name its camera is compared with what the other input calls its first.
  std::vector<std::optional<Camera>> cameras_of(const RecordSpec& spec) const {
    std::vector<std::optional<Camera>> cameras;
    for (const Input* input : {&a_, &b_}) {
      for (const FoundRecord& record : input->records) {
        const bool is_known = std::find(cameras.begin(), cameras.end(), record.camera) != cameras.end();
        if (record.spec == &spec && !is_known) cameras.push_back(record.camera);
      }
    }
    if (cameras.size() > 1) std::erase(cameras, std::nullopt);
    std::sort(cameras.begin(), cameras.end());
    return cameras;
  }

  static const FoundRecord* held(const Input& input, const RecordSpec& spec, std::optional<Camera> camera,
                                 std::optional<Source> source) {
    const FoundRecord* best = nullptr;
    for (const FoundRecord& record : input.records) {
      const bool matches = record.spec == &spec && (!record.camera || record.camera == camera) &&
                           (!source || record.source == *source);
      if (!matches || record.bytes.empty() || is_blank_record(input, record)) continue;
      if (best == nullptr || record.source < best->source) best = &record;
    }
    return best;
  }

  void add(const RecordSpec& spec, std::optional<Camera> camera, std::optional<Source> source) {
    const FoundRecord* a = held(a_, spec, camera, source);
    const FoundRecord* b = held(b_, spec, camera, source);
    if (a != nullptr || b != nullptr) pairs_.push_back({&spec, camera, a, b});
  }

  const Input& a_;
  const Input& b_;
  std::vector<Pair> pairs_;
};

class Diff {
 public:
  explicit Diff(const DiffArguments& arguments)
      : a_(open_input(arguments.a)), b_(open_input(arguments.b)), pairs_(Pairing(a_, b_).pairs()) {}

  bool is_equal() const {
    return std::all_of(pairs_.begin(), pairs_.end(), [](const Pair& pair) { return pair.is_equal(); });
  }
  void print(Terminal& terminal) const;
  Json json() const;

 private:
  static bool is_equal_field(const Pair& pair, const FieldSpec& field) {
    if (!fits(field, pair.a->bytes.size()) || !fits(field, pair.b->bytes.size())) return false;
    const auto first = pair.a->bytes.begin() + static_cast<std::ptrdiff_t>(field.offset);
    return std::equal(first, first + static_cast<std::ptrdiff_t>(field.width),
                      pair.b->bytes.begin() + static_cast<std::ptrdiff_t>(field.offset));
  }

  static std::string value_of(const FoundRecord& record, const FieldSpec& field) {
    for (const Field& decoded : decode(*record.spec, record.bytes)) {
      if (decoded.name != field.name) continue;
      return decoded.meaning.empty() ? decoded.value : fmt::format("{} ({})", decoded.value, decoded.meaning);
    }
    return "cut off";
  }

  void print_pair(Terminal& terminal, const Pair& pair) const;
  void print_fields(Terminal& terminal, const Pair& pair) const;

  Input a_;
  Input b_;
  std::vector<Pair> pairs_;
};

void Diff::print_fields(Terminal& terminal, const Pair& pair) const {
  Table table({"field", "A", "B"});
  std::string equal;
  for (const FieldSpec& field : pair.spec->fields) {
    if (is_equal_field(pair, field)) {
      equal += fmt::format("{}{}", equal.empty() ? "" : ", ", field.name);
      continue;
    }
    const std::string a = value_of(*pair.a, field);
    const std::string b = value_of(*pair.b, field);
    table.row({field.name, a, a == b ? b + ", other bytes" : b});
  }
  table.print(terminal);
  if (!equal.empty()) terminal.paragraph("equal: " + equal, 4);
}

void Diff::print_pair(Terminal& terminal, const Pair& pair) const {
  terminal.line();
  terminal.line(terminal.styled(record_title(*pair.spec, pair.camera), Style::heading));
  if (pair.a == nullptr || pair.b == nullptr) {
    const Input& input = pair.a != nullptr ? a_ : b_;
    const FoundRecord& record = pair.a != nullptr ? *pair.a : *pair.b;
    terminal.paragraph(
        fmt::format("only in {}: {}", pair.a != nullptr ? "A" : "B", place_text(input, record)));
    return;
  }
  terminal.paragraph("A " + place_text(a_, *pair.a));
  terminal.paragraph("B " + place_text(b_, *pair.b));
  print_fields(terminal, pair);
}

void Diff::print(Terminal& terminal) const {
  terminal.paragraph("A " + a_.name, 0);
  terminal.paragraph("B " + b_.name, 0);
  std::string equal;
  size_t different = 0;
  for (const Pair& pair : pairs_) {
    if (pair.is_equal()) {
      const std::string camera = pair.camera ? fmt::format("{} ", camera_name(*pair.camera)) : "";
      equal += fmt::format("{}{}{} ({})", equal.empty() ? "" : ", ", camera, pair.spec->id,
                           source_name(pair.a->source));
    } else {
      print_pair(terminal, pair);
      ++different;
    }
  }
  terminal.line();
  if (!equal.empty()) terminal.paragraph("equal: " + equal, 0);
  terminal.line(different == 0 ? "no difference"
                               : counted(different, "record") + (different == 1 ? " differs" : " differ"));
}

Json place_json(const Input& input, const FoundRecord* record) {
  if (record == nullptr) return nullptr;
  return {{"source", source_name(record->source)},
          {"file", input.files[record->file].path},
          {"offset", record->offset}};
}

Json Diff::json() const {
  Json document = json_document("diff");
  document["a"] = json_of(a_);
  document["b"] = json_of(b_);
  document["records"] = Json::array();
  for (const Pair& pair : pairs_) {
    Json record = {{"kind", pair.spec->id},       {"camera", json_of(pair.camera)},
                   {"equal", pair.is_equal()},    {"a", place_json(a_, pair.a)},
                   {"b", place_json(b_, pair.b)}, {"fields", Json::array()}};
    for (const FieldSpec& field : pair.spec->fields) {
      if (pair.a == nullptr || pair.b == nullptr || is_equal_field(pair, field)) continue;
      const auto value = [&field](const FoundRecord& from) {
        return fits(field, from.bytes.size()) ? field_json(from.bytes, field) : Json(nullptr);
      };
      record["fields"].push_back({{"name", field_id(field)}, {"a", value(*pair.a)}, {"b", value(*pair.b)}});
    }
    document["records"].push_back(std::move(record));
  }
  document["equal"] = is_equal();
  return document;
}

}  // namespace

Command add_diff(CLI::App& parent) {
  const auto arguments = std::make_shared<DiffArguments>();
  CLI::App* app = parent.add_subcommand("diff", "Compare two phones, images or files, field by field");
  app->add_option("A", arguments->a.paths.front(), "Phone folder, image or file; - is stdin")
      ->required()
      ->expected(1);
  app->add_option("B", arguments->b.paths.front(), "Second phone, image or file")->required();
  app->add_option("--as-a", arguments->a.as, "What A is, by the names that show takes")->type_name("KIND");
  app->add_option("--as-b", arguments->b.as, "What B is, by the names that show takes")->type_name("KIND");
  app->add_flag("--json", arguments->json, "For programs");
  return {app, [arguments](Terminal& terminal) {
            const Diff diff(*arguments);
            if (arguments->json) {
              print_json(diff.json());
            } else {
              diff.print(terminal);
            }
            return diff.is_equal() ? kDone : kFailed;
          }};
}

}  // namespace awbcal
