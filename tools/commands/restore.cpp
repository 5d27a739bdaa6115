// awbcal restore: records of a backup back on a phone whose modules they were measured for.

#include "run/restore.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/phrases.h"

namespace awbcal {

namespace {

struct RestoreArguments {
  std::string file;
  RestoreQuestion question;
  bool dry_run = false;
};

const char* fate_text(RestoreFate fate, bool is_done) {
  switch (fate) {
    case RestoreFate::restored:
      return is_done ? "restored" : "would restore";
    case RestoreFate::already_there:
      return "there already";
    case RestoreFate::refused:
      break;
  }
  return "refused";
}

ReadBackup read_file_of(const std::string& path) {
  return read_backup(path, bytes_of_file(path));
}

void print(const RestorePlan& plan, const std::vector<LeftOut>& damaged, bool is_done, Terminal& terminal) {
  for (const RestoreStep& step : plan.steps) {
    terminal.paragraph(fmt::format("{}: {}: {}", fate_text(step.fate, is_done),
                                   record_title(*step.record->spec, step.record->camera), step.text));
  }
  if (!plan.changed_blocks.empty()) {
    terminal.paragraph(fmt::format("of the chip's blocks of {} bytes {}: {}", plan.block_size,
                                   is_done ? "changed" : "would change",
                                   fmt::join(plan.changed_blocks, ", ")));
  }
  for (const auto& [title, reason] : damaged)
    terminal.paragraph(fmt::format("refused: {}: damaged: {}", title, reason));
}

size_t count_of(const RestorePlan& plan, RestoreFate fate) {
  return static_cast<size_t>(std::ranges::count(plan.steps, fate, &RestoreStep::fate));
}

/// What was written is what the phone's files hold now.
void read_back(const Backup& backup, const RestoreQuestion& question) {
  const RestorePlan again = plan_restore(backup, question);
  if (count_of(again, RestoreFate::restored) > 0)
    throw std::runtime_error(fmt::format("{}: does not hold what was written to it", question.target));
}

int run_restore(const RestoreArguments& arguments, Terminal& terminal) {
  const ReadBackup read = read_file_of(arguments.file);
  const RestorePlan plan = plan_restore(read.backup, arguments.question);
  if (!arguments.dry_run) {
    apply(plan, arguments.question.target);
    read_back(read.backup, arguments.question);
  }
  print(plan, read.damaged, !arguments.dry_run, terminal);
  const size_t refused = count_of(plan, RestoreFate::refused) + read.damaged.size();
  terminal.paragraph(
      fmt::format("{}: {} {}, {} there already, {} refused{}", arguments.question.target,
                  count_of(plan, RestoreFate::restored), arguments.dry_run ? "to restore" : "restored",
                  count_of(plan, RestoreFate::already_there), refused,
                  arguments.dry_run ? "; nothing was written" : ""),
      0);
  if (plan.steps.empty() && refused == 0) return kNothing;
  return refused > 0 ? kFailed : kDone;
}

}  // namespace

Command add_restore(CLI::App& parent) {
  const auto arguments = std::make_shared<RestoreArguments>();
  RestoreQuestion& question = arguments->question;
  CLI::App* app = add_command(parent, "restore", "Put records of a backup back where their module is fitted");
  app->add_option("FILE", arguments->file, "What `awbcal backup` wrote")->required()->default_str("");
  app->add_option("PHONE", question.target, "Phone folder or image of the partition to write to")
      ->required()
      ->default_str("");
  app->add_flag("--dry-run", arguments->dry_run, "Say what would be done; write nothing");
  app->add_flag("--force", question.force, "Also replace good records of the fitted module");
  add_base_option(*app, question.base);
  add_fuse_option(*app, question.modules);
  return {app, [arguments](Terminal& terminal) { return run_restore(*arguments, terminal); }};
}

}  // namespace awbcal
