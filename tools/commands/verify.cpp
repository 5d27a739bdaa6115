// awbcal verify: one verdict per camera and kind, and who takes the record.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "run/verification.h"
#include "text/tables.h"

namespace awbcal {

namespace {

struct VerifyArguments {
  InputOptions input;
  VerifyQuestion question;
  bool json = false;
};

RequiredKind parse_required(const std::string& text) {
  const size_t colon = text.find(':');
  const std::string kind = colon == std::string::npos ? text : text.substr(colon + 1);
  RequiredKind required{record_spec_of_id(kind), std::nullopt};
  if (required.spec == nullptr) throw CLI::ValidationError("--require", "no such kind: " + text);
  if (colon != std::string::npos) {
    required.camera = camera_of_name(text.substr(0, colon));
    if (!required.camera) throw CLI::ValidationError("--require", "no such camera: " + text);
  }
  return required;
}

// ---- text -------------------------------------------------------------------------------------------------

void print_answers(Terminal& terminal, const std::vector<Answer>& answers, Acceptance acceptance,
                   const char* what) {
  std::vector<std::string> names;
  for (const Answer& answer : answers) {
    if (answer.acceptance == acceptance) names.emplace_back(answer.reader->function);
  }
  if (!names.empty()) terminal.paragraph(fmt::format("{} {}", what, fmt::join(names, ", ")), 6);
}

void print_record(Terminal& terminal, const Phone& phone, const VerifiedRecord& verified) {
  const RecordVerdict& verdict = verified.verdict;
  const Finding& finding = verdict.finding;
  const bool is_good = finding.verdict == Verdict::good;
  const std::string name = verdict_name(finding.verdict);
  terminal.line(fmt::format("  {}{}{}", terminal.styled(name, is_good ? Style::good : Style::bad),
                            std::string(25 - name.size(), ' '), record_title(*verdict.spec, verdict.camera)));
  terminal.paragraph(verdict.record != nullptr ? place_text(phone, *verdict.record) : verdict.file, 6);
  terminal.paragraph(is_good ? finding.found
                             : fmt::format("rule {}: expected {}, found {}", verdict_rule(finding.verdict),
                                           finding.expected, finding.found),
                     6);
  for (const std::string& other : verdict.others) terminal.paragraph(other, 6);
  if (verified.margin) terminal.paragraph(margin_text(*verified.margin), 6);
  print_answers(terminal, verified.answers, Acceptance::accepted, "accepted by");
  print_answers(terminal, verified.answers, Acceptance::refused, "refused by");
  print_answers(terminal, verified.answers, Acceptance::not_reached, "not reached by");
}

/// "camera: kinds", the required ones marked.
void print_missing(Terminal& terminal, const Verification& verification, Verdict verdict) {
  std::map<int, std::pair<std::string, std::vector<std::string>>> lines;
  for (const VerifiedRecord& verified : verification.records) {
    if (verified.verdict.finding.verdict != verdict) continue;
    const auto camera = verified.verdict.camera;
    auto& [name, kinds] = lines[camera ? camid_of(*camera) : 3];
    name = camera ? fmt::format("{} camera", camera_name(*camera)) : "phone";
    kinds.push_back(verified.verdict.spec->id + std::string(verified.is_required ? " (required)" : ""));
  }
  for (const auto& [order, line] : lines) {
    terminal.paragraph(
        fmt::format("{}: {}: {}", verdict_name(verdict), line.first, fmt::join(line.second, ", ")));
  }
}

std::string summary(const Verification& verification) {
  const auto failing = std::ranges::count_if(verification.records, &VerifiedRecord::fails);
  const auto good = std::ranges::count_if(verification.records, [](const VerifiedRecord& verified) {
    return verified.verdict.finding.verdict == Verdict::good;
  });
  return failing == 0 ? fmt::format("{} good", good) : fmt::format("{} good, {} not", good, failing);
}

void print_verification(Terminal& terminal, const Phone& phone, const Modules& modules,
                        const Verification& verification) {
  show_input(terminal, phone);
  for (const auto& [camera, module] : modules) {
    terminal.paragraph(fmt::format("{} module: fuse ID {:08x}", camera_name(camera), fmt::join(module, " ")));
  }
  if (modules.empty()) terminal.paragraph("modules: not known; give their fuse IDs with --fuse");
  terminal.line();
  for (const VerifiedRecord& verified : verification.records) {
    if (!verified.verdict.is_missing()) print_record(terminal, phone, verified);
  }
  print_missing(terminal, verification, Verdict::blank);
  print_missing(terminal, verification, Verdict::absent);
  terminal.line();
  terminal.line(fmt::format("{}: {}", pass_or_fail(terminal, verification.passed()), summary(verification)));
}

// ---- JSON -------------------------------------------------------------------------------------------------

Json record_json(const Phone& phone, const VerifiedRecord& verified) {
  const RecordVerdict& verdict = verified.verdict;
  const Finding& finding = verdict.finding;
  Json json = {{"kind", verdict.spec->id},
               {"camera", json_of(verdict.camera)},
               {"verdict", verdict_name(finding.verdict)},
               {"rule", verdict_rule(finding.verdict)},
               {"expected", finding.expected},
               {"found", finding.found},
               {"required", verified.is_required},
               {"others", verdict.others}};
  if (const FoundRecord* record = verdict.record) {
    json["source"] = source_name(record->source);
    json["file"] = phone.files[record->file].path;
    json["offset"] = record->offset;
  } else if (!verdict.file.empty()) {
    json["file"] = verdict.file;
  }
  for (const Answer& answer : verified.answers) {
    const bool is_reached = answer.acceptance != Acceptance::not_reached;
    json["accepted"][answer.reader->function] =
        is_reached ? Json(answer.acceptance == Acceptance::accepted) : Json(nullptr);
  }
  if (verified.margin) json["margin"] = margin_json(*verified.margin);
  return json;
}

Json verification_json(const Phone& phone, const Modules& modules, const Verification& verification) {
  Json document = json_document("verify");
  document["input"] = json_of(phone);
  document["modules"] = Json::object();
  for (const auto& [camera, module] : modules) document["modules"][camera_name(camera)] = module;
  document["verdicts"] = Json::array();
  for (const VerifiedRecord& verified : verification.records) {
    document["verdicts"].push_back(record_json(phone, verified));
  }
  document["result"] = verification.passed() ? "PASS" : "FAIL";
  return document;
}

int run_verify(VerifyArguments& arguments, Terminal& terminal) {
  const Phone phone = open_phone_of(arguments.input);
  Modules& modules = arguments.question.modules;
  modules.merge(modules_of(phone));
  const Verification verification = verify(phone, arguments.question);
  if (arguments.json) {
    print_json(verification_json(phone, modules, verification));
  } else {
    print_verification(terminal, phone, modules, verification);
  }
  return verification.passed() ? kDone : kFailed;
}

}  // namespace

Command add_verify(CLI::App& parent) {
  const auto arguments = std::make_shared<VerifyArguments>();
  VerifyQuestion& question = arguments->question;
  CLI::App* app = add_command(parent, "verify", "Judge every record: PASS or FAIL");
  add_input_options(*app, arguments->input);
  add_fuse_option(*app, question.modules);
  app->add_option_function<std::vector<std::string>>(
         "--require",
         [&question](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) question.required.push_back(parse_required(text));
         },
         "Kinds that must be there, as awb,aec or front:awb")
      ->delimiter(',')
      ->expected(1)
      ->take_all()
      ->type_name("KINDS");
  add_golden_option(*app, question.golden);
  add_threshold_option(*app, question.threshold);
  add_json_option(*app, arguments->json);
  return {app, [arguments](Terminal& terminal) { return run_verify(*arguments, terminal); }};
}

}  // namespace awbcal
