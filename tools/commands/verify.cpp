// awbcal verify: one verdict per camera and kind, and who would take the record.

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <set>
#include <sstream>

#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/errors.h"
#include "inspect/verdict.h"
#include "run/acceptance.h"
#include "text/tables.h"

namespace awbcal {

namespace {

struct VerifyArguments {
  InputOptions input;
  std::vector<std::string> fuse;
  std::vector<std::string> required;
  std::string golden;
  double threshold = 20;
  bool json = false;
};

struct Required {
  const RecordSpec* spec;
  std::optional<calib::Camera> camera;  ///< none: every camera that is fitted
};

Required parse_required(const std::string& text) {
  const size_t colon = text.find(':');
  const std::string kind = colon == std::string::npos ? text : text.substr(colon + 1);
  Required required{record_spec_of_id(kind), std::nullopt};
  if (colon != std::string::npos) {
    required.camera = camera_of_name(text.substr(0, colon));
    if (!required.camera) throw InputError(fmt::format("--require {}: there is no such camera", text));
  }
  if (required.spec == nullptr) throw InputError(fmt::format("--require {}: there is no such kind", text));
  return required;
}

/// One verdict with all that is said about it.
struct Row {
  RecordVerdict verdict;
  std::vector<Answer> answers;
  std::optional<AwbVerdict> margin;
  bool is_required = false;

  bool fails() const { return verdict.is_missing() ? is_required : verdict.finding.verdict != Verdict::good; }
};

class Verification {
 public:
  explicit Verification(const VerifyArguments& arguments)
      : arguments_(arguments), input_(open_input(arguments.input)), modules_(modules_of(input_)) {
    for (const std::string& fuse : arguments.fuse) parse_fuse(fuse, modules_);
    for (const std::string& text : arguments.required) required_.push_back(parse_required(text));
    const std::optional<Golden> golden = parse_golden(arguments.golden);
    AcceptanceTrial trial;
    for (RecordVerdict& verdict : judge_input(input_, modules_)) {
      Row row{std::move(verdict), {}, {}, false};
      const FoundRecord* record = row.verdict.record;
      if (record != nullptr && !row.verdict.is_missing()) row.answers = trial.ask(input_, *record, modules_);
      if (golden && record != nullptr) row.margin = margin_of(*record, *golden);
      rows_.push_back(std::move(row));
    }
    mark_required();
  }

  void print(Terminal& terminal) const;
  Json json() const;
  bool passed() const {
    return std::none_of(rows_.begin(), rows_.end(), [](const Row& row) { return row.fails(); });
  }

 private:
  std::optional<AwbVerdict> margin_of(const FoundRecord& record, const Golden& golden) const {
    if (record.spec->kind != RecordKind::awb || record.is_truncated() || is_blank(record.bytes))
      return std::nullopt;
    return awb_verdict(record.bytes, golden.rg, golden.bg, static_cast<float>(arguments_.threshold));
  }

  /// A camera that the properties name, or that has a record; the main one when there is none.
  std::set<calib::Camera> fitted_cameras() const {
    std::set<calib::Camera> cameras;
    for (const auto& [camera, module] : modules_) {
      if (module != calib::FuseWords{}) cameras.insert(camera);
    }
    for (const Row& row : rows_) {
      if (!row.verdict.is_missing() && row.verdict.camera) cameras.insert(*row.verdict.camera);
    }
    if (cameras.empty()) cameras.insert(calib::Camera::main);
    return cameras;
  }

  void mark_required();
  void print_row(Terminal& terminal, const Row& row) const;
  void print_missing(Terminal& terminal, Verdict verdict) const;
  std::string summary() const;

  const VerifyArguments& arguments_;
  Input input_;
  Modules modules_;
  std::vector<Required> required_;
  std::vector<Row> rows_;
};

void Verification::mark_required() {
  const std::set<calib::Camera> fitted = fitted_cameras();
  for (const Required& required : required_) {
    bool is_there = false;
    for (Row& row : rows_) {
      if (row.verdict.spec != required.spec) continue;
      const std::optional<calib::Camera> camera = row.verdict.camera;
      const bool applies =
          !camera || (required.camera ? camera == required.camera : fitted.contains(*camera));
      row.is_required = row.is_required || applies;
      is_there = is_there || applies;
    }
    // A kind that such an input cannot hold is absent from it.
    if (!is_there) rows_.push_back({{.spec = required.spec, .camera = required.camera}, {}, {}, true});
  }
}

std::string names_of(const std::vector<Answer>& answers, bool accepts) {
  std::string names;
  for (const Answer& answer : answers) {
    if (answer.accepts == accepts) names += fmt::format("{}{}", names.empty() ? "" : ", ", answer.function);
  }
  return names;
}

void Verification::print_row(Terminal& terminal, const Row& row) const {
  const Finding& finding = row.verdict.finding;
  const bool is_good = finding.verdict == Verdict::good;
  const std::string name = verdict_name(finding.verdict);
  terminal.line(fmt::format("  {}{}{}", terminal.styled(name, is_good ? Style::good : Style::bad),
                            std::string(25 - name.size(), ' '),
                            record_title(*row.verdict.spec, row.verdict.camera)));
  constexpr size_t kIndent = 6;
  terminal.paragraph(
      row.verdict.record != nullptr ? place_text(input_, *row.verdict.record) : row.verdict.file, kIndent);
  if (is_good) {
    terminal.paragraph(finding.found, kIndent);
  } else {
    terminal.paragraph(fmt::format("rule {}: expected {}, found {}", verdict_rule(finding.verdict),
                                   finding.expected, finding.found),
                       kIndent);
  }
  for (const std::string& other : row.verdict.others) terminal.paragraph(other, kIndent);
  if (row.margin) {
    terminal.paragraph(fmt::format("{:.4f} from the golden sample, {:.4f} allowed ({:.0f} % of it)",
                                   row.margin->delta, row.margin->limit, row.margin->percent_of_limit()),
                       kIndent);
  }
  const std::string accepted = names_of(row.answers, true);
  const std::string refused = names_of(row.answers, false);
  if (!accepted.empty()) terminal.paragraph("accepted by " + accepted, kIndent);
  if (!refused.empty()) terminal.paragraph("refused by " + refused, kIndent);
}

/// "camera: kinds", the required ones marked.
void Verification::print_missing(Terminal& terminal, Verdict verdict) const {
  std::map<std::string, std::string> lines;
  for (const Row& row : rows_) {
    if (row.verdict.finding.verdict != verdict) continue;
    const auto camera = row.verdict.camera;
    std::string& line =
        lines[camera ? fmt::format("{} {} camera", camid_of(*camera), camera_name(*camera)) : "3 phone"];
    line += fmt::format("{}{}{}", line.empty() ? "" : ", ", row.verdict.spec->id,
                        row.is_required ? " (required)" : "");
  }
  for (const auto& [camera, line] : lines) {
    terminal.paragraph(fmt::format("{}: {}: {}", verdict_name(verdict), camera.substr(2), line));
  }
}

std::string Verification::summary() const {
  const auto failing = static_cast<size_t>(
      std::count_if(rows_.begin(), rows_.end(), [](const Row& row) { return row.fails(); }));
  const auto good = static_cast<size_t>(std::count_if(rows_.begin(), rows_.end(), [](const Row& row) {
    return row.verdict.finding.verdict == Verdict::good;
  }));
  return failing == 0 ? fmt::format("{} good", good) : fmt::format("{} good, {} not", good, failing);
}

void Verification::print(Terminal& terminal) const {
  show_input(terminal, input_);
  for (const auto& [camera, module] : modules_) {
    terminal.paragraph(fmt::format("{} module: fuse ID {:08x} {:08x} {:08x} {:08x}", camera_name(camera),
                                   module[0], module[1], module[2], module[3]));
  }
  if (modules_.empty()) terminal.paragraph("modules: not known; --fuse names them");
  terminal.line();
  for (const Row& row : rows_) {
    if (!row.verdict.is_missing()) print_row(terminal, row);
  }
  print_missing(terminal, Verdict::blank);
  print_missing(terminal, Verdict::absent);
  terminal.line();
  const bool good = passed();
  terminal.line(fmt::format(
      "{}: {}", terminal.styled(good ? "PASS" : "FAIL", good ? Style::good : Style::bad), summary()));
}

Json row_json(const Input& input, const Row& row) {
  const Finding& finding = row.verdict.finding;
  Json json = {{"kind", row.verdict.spec->id},
               {"camera", json_of(row.verdict.camera)},
               {"verdict", verdict_name(finding.verdict)},
               {"rule", verdict_rule(finding.verdict)},
               {"expected", finding.expected},
               {"found", finding.found},
               {"required", row.is_required},
               {"others", row.verdict.others}};
  if (const FoundRecord* record = row.verdict.record) {
    json["source"] = source_name(record->source);
    json["file"] = input.files[record->file].path;
    json["offset"] = record->offset;
  } else if (!row.verdict.file.empty()) {
    json["file"] = row.verdict.file;
  }
  for (const Answer& answer : row.answers) json["accepted"][answer.function] = answer.accepts;
  if (row.margin) json["margin"] = {{"delta", row.margin->delta}, {"limit", row.margin->limit}};
  return json;
}

Json Verification::json() const {
  Json document = json_document("verify");
  document["input"] = json_of(input_);
  document["modules"] = Json::object();
  for (const auto& [camera, module] : modules_) document["modules"][camera_name(camera)] = module;
  document["verdicts"] = Json::array();
  for (const Row& row : rows_) document["verdicts"].push_back(row_json(input_, row));
  document["result"] = passed() ? "PASS" : "FAIL";
  return document;
}

}  // namespace

Command add_verify(CLI::App& parent) {
  const auto arguments = std::make_shared<VerifyArguments>();
  CLI::App* app = parent.add_subcommand("verify", "Judge every record: PASS or FAIL");
  add_input_options(*app, arguments->input);
  app->add_option("--fuse", arguments->fuse, "Module's fuse ID, W1,W2,W3,W4 or CAMERA=W1,W2,W3,W4")
      ->type_name("WORDS")
      ->expected(1)
      ->take_all();
  app->add_option("--require", arguments->required, "Kinds that must be there, as awb,aec or front:awb")
      ->delimiter(',')
      ->expected(1)
      ->take_all()
      ->type_name("KINDS");
  app->add_option("--golden", arguments->golden, "Golden sample, to show the margin of AWB records")
      ->type_name("RG,BG");
  app->add_option("--threshold", arguments->threshold, "Percent of the golden sample allowed [20]")
      ->type_name("PERCENT");
  app->add_flag("--json", arguments->json, "For programs");
  return {app, [arguments](Terminal& terminal) {
            const Verification verification(*arguments);
            if (arguments->json) {
              print_json(verification.json());
            } else {
              verification.print(terminal);
            }
            return verification.passed() ? kDone : kFailed;
          }};
}

}  // namespace awbcal
