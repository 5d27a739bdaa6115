// awbcal diff: two inputs record by record, field by field.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/comparison.h"
#include "inspect/phrases.h"
#include "text/tables.h"

namespace awbcal {

namespace {

struct DiffArguments {
  InputOptions a = {.paths = {""}};
  InputOptions b = {.paths = {""}};
  bool json = false;
};

struct Diff {
  Phone a;
  Phone b;
  std::vector<RecordPair> pairs;

  bool is_equal() const { return std::ranges::all_of(pairs, &RecordPair::is_equal); }
  bool is_complete() const { return a.is_complete() && b.is_complete(); }
};

std::string value_of(const FoundRecord& record, const FieldSpec& field) {
  for (const Field& decoded : decode(*record.spec, record.bytes)) {
    if (decoded.name != field.name) continue;
    return decoded.meaning.empty() ? decoded.value : fmt::format("{} ({})", decoded.value, decoded.meaning);
  }
  return "cut off";
}

void print_fields(Terminal& terminal, const RecordPair& pair) {
  Table table({"field", "A", "B"});
  std::vector<std::string> equal;
  for (const FieldSpec& field : pair.spec->fields) {
    if (is_equal_field(pair, field)) {
      equal.emplace_back(field.name);
      continue;
    }
    const std::string a = value_of(*pair.a, field);
    const std::string b = value_of(*pair.b, field);
    table.row({field.name, a, a == b ? b + ", other bytes" : b});
  }
  table.print(terminal);
  if (!equal.empty()) terminal.paragraph(fmt::format("equal: {}", fmt::join(equal, ", ")), 4);
}

/// Whether the record may be in a part of the phone that cannot be read.
bool may_hold(const Phone& phone, const RecordPair& pair) {
  const auto sources = {Source::cache, Source::kernel_export, Source::partition, Source::factory,
                        Source::file};
  return std::ranges::any_of(sources, [&](Source source) {
    return phone.state_of(*pair.spec, pair.camera, source) == State::unreadable;
  });
}

std::string only_in(const char* there, const std::string& place, const char* other, bool is_not_known) {
  return is_not_known
             ? fmt::format("in {}: {}; in {}: not known, part of it cannot be read", there, place, other)
             : fmt::format("only in {}: {}", there, place);
}

void print_pair(Terminal& terminal, const Diff& diff, const RecordPair& pair) {
  terminal.line();
  terminal.line(terminal.styled(record_title(*pair.spec, pair.camera), Style::heading));
  if (pair.a != nullptr && pair.b != nullptr) {
    terminal.paragraph("A " + place_text(diff.a, *pair.a));
    terminal.paragraph("B " + place_text(diff.b, *pair.b));
    print_fields(terminal, pair);
  } else if (pair.a != nullptr) {
    terminal.paragraph(only_in("A", place_text(diff.a, *pair.a), "B", may_hold(diff.b, pair)));
  } else {
    terminal.paragraph(only_in("B", place_text(diff.b, *pair.b), "A", may_hold(diff.a, pair)));
  }
}

void print_diff(Terminal& terminal, const Diff& diff) {
  for (const auto& [name, phone] : {std::pair{"A ", &diff.a}, {"B ", &diff.b}}) {
    terminal.paragraph(name + phone->name, 0);
    for (const std::string& unknown : phone->unknown) terminal.paragraph("not known: " + unknown);
  }
  std::vector<std::string> equal;
  for (const RecordPair& pair : diff.pairs) {
    if (!pair.is_equal()) {
      print_pair(terminal, diff, pair);
      continue;
    }
    const std::string camera = pair.camera ? fmt::format("{} ", camera_name(*pair.camera)) : "";
    equal.push_back(fmt::format("{}{} ({})", camera, pair.spec->id, source_name(pair.a->source)));
  }
  terminal.line();
  if (!equal.empty()) terminal.paragraph(fmt::format("equal: {}", fmt::join(equal, ", ")), 0);
  const size_t different = diff.pairs.size() - equal.size();
  terminal.line(different == 0 ? diff.is_complete() ? "no difference" : "no difference in what can be read"
                               : counted(different, "record") + (different == 1 ? " differs" : " differ"));
}

Json place_json(const Phone& phone, const FoundRecord* record) {
  if (record == nullptr) return nullptr;
  return {{"source", source_name(record->source)},
          {"file", phone.files[record->file].path},
          {"offset", record->offset}};
}

Json fields_json(const RecordPair& pair) {
  Json fields = Json::array();
  if (pair.a == nullptr || pair.b == nullptr) return fields;
  for (const FieldSpec& field : pair.spec->fields) {
    if (is_equal_field(pair, field)) continue;
    const auto value = [&field](const FoundRecord& from) {
      return fits(field, from.bytes.size()) ? field_json(from.bytes, field) : Json(nullptr);
    };
    fields.push_back({{"name", field_id(field)}, {"a", value(*pair.a)}, {"b", value(*pair.b)}});
  }
  return fields;
}

Json diff_json(const Diff& diff) {
  Json document = json_document("diff");
  document["a"] = json_of(diff.a);
  document["b"] = json_of(diff.b);
  document["records"] = Json::array();
  for (const RecordPair& pair : diff.pairs) {
    document["records"].push_back({{"kind", pair.spec->id},
                                   {"camera", json_of(pair.camera)},
                                   {"equal", pair.is_equal()},
                                   {"a", place_json(diff.a, pair.a)},
                                   {"b", place_json(diff.b, pair.b)},
                                   {"fields", fields_json(pair)}});
  }
  document["equal"] = diff.is_equal();
  return document;
}

int run_diff(DiffArguments& arguments, Terminal& terminal) {
  arguments.a.with_digests = arguments.b.with_digests = arguments.json;
  Diff diff{open_phone_of(arguments.a), open_phone_of(arguments.b), {}};
  diff.pairs = pair_records(diff.a, diff.b);
  if (arguments.json) {
    print_json(diff_json(diff));
  } else {
    print_diff(terminal, diff);
  }
  if (!diff.is_complete()) return kBadInput;
  return diff.is_equal() ? kDone : kFailed;
}

}  // namespace

Command add_diff(CLI::App& parent) {
  const auto arguments = std::make_shared<DiffArguments>();
  CLI::App* app = add_command(parent, "diff", "Compare two phones, images or files, field by field");
  app->add_option("A", arguments->a.paths.front(), "First phone, image or file; - is stdin")
      ->required()
      ->default_str("");
  app->add_option("B", arguments->b.paths.front(), "Second phone, image or file")
      ->required()
      ->default_str("");
  app->add_option("--as-a", arguments->a.as, "What A is: any KIND that show takes")->type_name("KIND");
  app->add_option("--as-b", arguments->b.as, "What B is: any KIND that show takes")->type_name("KIND");
  add_json_option(*app, arguments->json);
  return {app, [arguments](Terminal& terminal) { return run_diff(*arguments, terminal); }};
}

}  // namespace awbcal
