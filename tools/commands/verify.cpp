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
  std::optional<calib::GoldenRatios> golden;
  uint32_t threshold = Limit{}.threshold;
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
  std::vector<std::string> names;
  for (const Answer& answer : answers) {
    // A refusal of whatever comes says nothing of this record: print_never_passes().
    const bool is_of_record = answer.reader->never_passes == nullptr || acceptance != Acceptance::refused;
    if (answer.acceptance == acceptance && is_of_record) names.emplace_back(answer.reader->function);
  }
  if (!names.empty()) terminal.paragraph(fmt::format("{} {}", what, fmt::join(names, ", ")), 6);
}

void print_record(Terminal& terminal, const Phone& phone, const VerifiedRecord& verified) {
  const RecordVerdict& verdict = verified.verdict;
  const Finding& finding = verdict.finding;
  const bool is_good = finding.verdict == Verdict::good;
  const std::string name =
      verified.is_out_of_limit() && is_good ? "out of limit" : verdict_name(finding.verdict);
  terminal.line(fmt::format("  {}{}{}", terminal.styled(name, verified.is_good() ? Style::good : Style::bad),
                            std::string(25 - name.size(), ' '), record_title(*verdict.spec, verdict.camera)));
  terminal.paragraph(verdict.record != nullptr ? place_text(phone, *verdict.record) : verdict.file, 6);
  terminal.paragraph(is_good ? finding.found
                             : fmt::format("rule {}: expected {}, found {}", verdict_rule(finding.verdict),
                                           finding.expected, finding.found),
                     6);
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

/// Nothing more can be said of it than its verdict: the reason, if any, stands with the input.
bool is_of_group(const RecordVerdict& verdict) {
  const bool is_anywhere = verdict.record != nullptr || !verdict.file.empty();
  return verdict.is_missing() || (verdict.finding.verdict == Verdict::unreadable && !is_anywhere);
}

/// "camera: kinds", the required ones marked.
void print_group(Terminal& terminal, const Verification& verification, Verdict verdict) {
  std::map<int, std::pair<std::string, std::vector<std::string>>> lines;
  for (const VerifiedRecord& verified : verification.records) {
    if (verified.verdict.finding.verdict != verdict || !is_of_group(verified.verdict)) continue;
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

/// "12 good, 2 not, 1 unreadable, 3 left out"
std::string summary(const Verification& verification) {
  const std::vector<VerifiedRecord>& records = verification.records;
  const auto unreadable =
      std::ranges::count_if(records, [](const VerifiedRecord& each) { return each.is(Verdict::unreadable); });
  const auto bad = std::ranges::count_if(
      records, [](const VerifiedRecord& each) { return each.is_bad() || each.is(Verdict::truncated); });
  std::string text = fmt::format("{} good", std::ranges::count_if(records, &VerifiedRecord::is_good));
  if (bad > 0) text += fmt::format(", {} not", bad);
  if (unreadable > 0) text += fmt::format(", {} unreadable", unreadable);
  if (verification.left_out > 0) text += fmt::format(", {} left out", verification.left_out);
  return text;
}

/// The functions that were asked and can accept nothing, each once with its reason.
std::map<std::string, std::string> never_passing(const Verification& verification) {
  std::map<std::string, std::string> reasons;
  for (const VerifiedRecord& verified : verification.records) {
    for (const auto& [reader, acceptance] : verified.answers) {
      if (reader->never_passes != nullptr) reasons.emplace(reader->function, reader->never_passes);
    }
  }
  return reasons;
}

void print_verification(Terminal& terminal, const Phone& phone, const Modules& modules,
                        const Verification& verification) {
  show_input(terminal, phone);
  show_modules(terminal, modules, verification.assumed);
  terminal.line();
  for (const VerifiedRecord& verified : verification.records) {
    if (!is_of_group(verified.verdict)) print_record(terminal, phone, verified);
  }
  for (const Verdict verdict : {Verdict::blank, Verdict::absent, Verdict::unreadable})
    print_group(terminal, verification, verdict);
  for (const auto& [function, reason] : never_passing(verification))
    terminal.paragraph(fmt::format("note: {} {}", function, reason));
  terminal.line();
  const Outcome outcome = verification.outcome();
  terminal.line(fmt::format(
      "{}: {}", terminal.styled(outcome_name(outcome), outcome == Outcome::pass ? Style::good : Style::bad),
      summary(verification)));
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
  if (arguments.golden) arguments.question.limits.set({*arguments.golden, arguments.threshold});
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
  add_golden_option(*app, arguments->golden);
  const CLI::Option* threshold = add_threshold_option(*app, arguments->threshold);
  app->add_flag("--strict", question.is_strict, "Fail an overwritten record even if its cache file is good");
  app->add_flag_callback(
      "--no-accept", [&question] { question.asks_library = false; },
      "Do not run the library to see what accepts a record");
  add_json_option(*app, arguments->json);
  return {app, [arguments, threshold](Terminal& terminal) {
            if (threshold->count() > 0 && !arguments->golden)
              throw CLI::ValidationError("--threshold", "needs --golden: percent of what?");
            return run_verify(*arguments, terminal);
          }};
}

}  // namespace awbcal
