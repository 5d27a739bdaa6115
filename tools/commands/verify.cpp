// awbcal verify: one verdict per camera and kind, and who takes the record.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/phrases.h"
#include "run/verification_phrases.h"
#include "text/tables.h"

namespace awbcal {

namespace {

struct VerifyArguments {
  InputOptions input;
  VerifyQuestion question;
  LimitOptions limits;
  bool json = false;
};

KindChoice parse_choice(const std::string& option, const std::string& text) {
  const size_t colon = text.find(':');
  const std::string kind = colon == std::string::npos ? text : text.substr(colon + 1);
  KindChoice choice{record_spec_of_id(kind), std::nullopt};
  if (choice.spec == nullptr) {
    throw CLI::ValidationError(
        option, fmt::format("no such kind: \"{}\"; known are {}", kind, fmt::join(kind_ids(), ", ")));
  }
  if (colon != std::string::npos) {
    choice.camera = camera_of_name(text.substr(0, colon));
    if (!choice.camera) throw CLI::ValidationError(option, fmt::format("no such camera: \"{}\"", text));
  }
  return choice;
}

void add_choice_option(CLI::App& app, const std::string& name, std::vector<KindChoice>& choices,
                       const char* description) {
  app.add_option_function<std::vector<std::string>>(
         name,
         [name, &choices](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) choices.push_back(parse_choice(name, text));
         },
         description)
      ->delimiter(',')
      ->expected(1)
      ->take_all()
      ->type_name("KINDS");
}

// ---- text -------------------------------------------------------------------------------------------------

void print_answers(Terminal& terminal, const std::vector<Answer>& answers, Acceptance acceptance,
                   const char* what) {
  const std::vector<std::string> names = answering(answers, acceptance);
  if (!names.empty()) terminal.paragraph(fmt::format("{} {}", what, fmt::join(names, ", ")), 6);
}

void print_record(Terminal& terminal, const Phone& phone, const VerifiedRecord& verified) {
  const RecordVerdict& verdict = verified.verdict;
  const std::string name = verdict_text(verified);
  terminal.line(fmt::format("  {}{}{}", terminal.styled(name, verified.is_good() ? Style::good : Style::bad),
                            std::string(25 - name.size(), ' '), record_title(*verdict.spec, verdict.camera)));
  terminal.paragraph(verdict.record != nullptr ? place_text(phone, *verdict.record) : verdict.file, 6);
  terminal.paragraph(reason_text(verdict), 6);
  for (const std::string& other : verdict.others) terminal.paragraph(other, 6);
  if (verified.margin) {
    terminal.paragraph(fmt::format("{}{}", verified.is_out_of_limit() ? "out of limit: " : "",
                                   margin_text(*verified.margin)),
                       6);
  }
  print_answers(terminal, verified.answers, Acceptance::accepted, "accepted by");
  print_answers(terminal, verified.answers, Acceptance::refused, "refused by");
  print_answers(terminal, verified.answers, Acceptance::not_reached, "not reached by");
}

void print_verification(Terminal& terminal, const Phone& phone, const Modules& modules,
                        const Verification& verification) {
  show_input(terminal, phone);
  show_modules(terminal, modules, verification.assumed);
  terminal.line();
  for (const VerifiedRecord& verified : verification.records) {
    if (!is_of_group(verified.verdict)) print_record(terminal, phone, verified);
  }
  for (const std::string& line : group_lines(verification)) terminal.paragraph(line);
  for (const auto& [function, reason] : never_passing(verification))
    terminal.paragraph(fmt::format("note: {} {}", function, reason));
  terminal.line();
  const Outcome outcome = verification.outcome();
  terminal.line(fmt::format(
      "{}: {}", terminal.styled(outcome_name(outcome), outcome == Outcome::pass ? Style::good : Style::bad),
      summary_text(verification)));
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
  json["is_good"] = verified.is_good();
  return json;
}

Json verification_json(const Phone& phone, const Modules& modules, const Verification& verification) {
  Json document = json_document("verify");
  document["input"] = json_of(phone);
  document["modules"] = modules_json(modules);
  document["assumed_modules"] = modules_json(verification.assumed);
  document["verdicts"] = Json::array();
  for (const VerifiedRecord& verified : verification.records) {
    document["verdicts"].push_back(record_json(phone, verified));
  }
  document["never_passing"] = never_passing(verification);
  document["left_out"] = verification.left_out;
  document["result"] = outcome_name(verification.outcome());
  document["exit_code"] = exit_code_of(verification.outcome());
  return document;
}

int run_verify(VerifyArguments& arguments, Terminal& terminal) {
  arguments.input.with_digests = arguments.json;
  arguments.question.limits = limits_of(arguments.limits);
  const Phone phone = open_phone_of(arguments.input);
  Modules& modules = arguments.question.modules;
  modules.merge(modules_of(phone));
  const Verification verification = verify(phone, arguments.question);
  if (arguments.json) {
    print_json(verification_json(phone, modules, verification));
  } else {
    print_verification(terminal, phone, modules, verification);
  }
  return exit_code_of(verification.outcome());
}

}  // namespace

Command add_verify(CLI::App& parent) {
  const auto arguments = std::make_shared<VerifyArguments>();
  VerifyQuestion& question = arguments->question;
  CLI::App* app = add_command(parent, "verify", "Judge every record: PASS or FAIL");
  add_input_options(*app, arguments->input);
  add_fuse_option(*app, question.modules);
  add_choice_option(*app, "--require", question.required,
                    "Kinds that must be there, such as awb,aec or front:awb");
  add_choice_option(*app, "--only", question.only, "Kinds to judge; the others are left out");
  add_choice_option(*app, "--ignore", question.ignored, "Kinds to leave out");
  add_limit_options(*app, arguments->limits);
  app->add_flag("--strict", question.is_strict, "Fail an overwritten record even if its cache file is good");
  app->add_flag_callback(
      "--no-accept", [&question] { question.asks_library = false; },
      "Do not run the library to see what accepts a record");
  add_json_option(*app, arguments->json);
  return {app, [arguments](Terminal& terminal) { return run_verify(*arguments, terminal); }};
}

}  // namespace awbcal
