// awbcal report: one phone as a page for a browser.

#include <algorithm>
#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "page/unit_page.h"

namespace awbcal {

namespace {

struct ReportArguments {
  InputOptions input;
  Modules modules;
  LimitOptions limits;
  ExplainQuestion question;
  OutputTarget page;
  bool redact = false;
};

/// What a person called the phone may tell whose it is.
void hide_names(Phone& phone, const std::vector<std::string>& paths) {
  std::vector<std::string> names = paths;
  for (const std::string& path : paths) names.emplace_back(leaf_of(path));
  names.push_back(phone.name);
  const auto hide = [&names](std::string& text) {
    const std::string first = text.substr(0, text.find(':'));
    if (std::ranges::find(names, first) != names.end()) text.replace(0, first.size(), "the input");
  };
  std::ranges::for_each(phone.notes, hide);
  std::ranges::for_each(phone.unknown, hide);
  for (PhoneFile& file : phone.files) hide(file.path);
  phone.name = "a phone";
}

int run_report(const ReportArguments& arguments, Terminal&) {
  check_output(arguments.page, arguments.input.paths);
  const Limits limits = limits_of(arguments.limits);
  Phone phone = open_phone_of(arguments.input);
  if (arguments.redact) hide_names(phone, arguments.input.paths);
  UnitReport report{
      .phone = phone, .title = phone.name, .modules = arguments.modules, .is_redacted = arguments.redact};
  report.modules.merge(modules_of(phone));
  const VerifyQuestion verify_question{.modules = report.modules, .limits = limits};
  report.verification = verify(phone, verify_question);
  ExplainQuestion question = arguments.question;
  question.modules = report.modules;
  for (const calib::Camera camera : fitted_cameras(report.verification.records, report.modules)) {
    question.camera = camera;
    const Limit* limit = limits.find(camera, RecordKind::awb);
    question.golden = limit == nullptr ? kAssumedGolden : limit->golden;
    report.starts.emplace(camera, ReportedStart{explain(phone, question), limit == nullptr});
  }
  write_output(arguments.page, unit_page(report), arguments.input.paths);
  return exit_code_of(report.verification.outcome());
}

}  // namespace

Command add_report(CLI::App& parent) {
  const auto arguments = std::make_shared<ReportArguments>();
  CLI::App* app = add_command(parent, "report", "Make a page of one phone: verdicts, corrections, charts");
  add_input_options(*app, arguments->input);
  add_page_options(*app, arguments->page)->required();
  add_fuse_option(*app, arguments->modules);
  add_limit_options(*app, arguments->limits);
  add_tuning_options(*app, arguments->question);
  app->add_flag("--redact", arguments->redact, "Shorten fuse IDs, and leave out what the input is called");
  return {app, [arguments](Terminal& terminal) { return run_report(*arguments, terminal); }};
}

}  // namespace awbcal
