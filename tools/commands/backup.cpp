// awbcal backup: the good records of a phone, with the modules that they were measured for, in one file.

#include "inspect/backup.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/phrases.h"

namespace awbcal {

namespace {

struct BackupArguments {
  std::string phone;
  std::optional<uint32_t> base;
  Modules modules;
  OutputTarget output;
};

void print(const BackupOfPhone& result, Terminal& terminal) {
  for (const BackupRecord& record : result.backup.records) {
    std::vector<const char*> sources;
    for (const Source source : record.sources) sources.push_back(source_name(source));
    terminal.paragraph(
        fmt::format("kept: {} ({})", record_title(*record.spec, record.camera), fmt::join(sources, ", ")));
  }
  for (const auto& [title, reason] : result.left_out)
    terminal.paragraph(fmt::format("not kept: {}: {}", title, reason));
}

int run_backup(const BackupArguments& arguments, Terminal& terminal) {
  check_output(arguments.output, {arguments.phone});
  const Phone phone = open_phone_of({.paths = {arguments.phone}, .base = arguments.base});
  Modules modules = arguments.modules;
  modules.merge(modules_of(phone));
  const BackupOfPhone result = backup_of(phone, modules);
  for (const std::string& line : phone.unknown) terminal.paragraph(fmt::format("unreadable: {}", line));
  print(result, terminal);
  if (result.backup.records.empty()) {
    terminal.line("nothing to keep: no record is good and bound to a module");
    return phone.is_complete() ? kNothing : kBadInput;
  }
  write_output(arguments.output, text_of(file_of(result.backup)), {arguments.phone});
  terminal.paragraph(
      fmt::format("{}: {}", arguments.output.path, counted(result.backup.records.size(), "record")), 0);
  return phone.is_complete() ? kDone : kBadInput;
}

}  // namespace

Command add_backup(CLI::App& parent) {
  const auto arguments = std::make_shared<BackupArguments>();
  CLI::App* app =
      add_command(parent, "backup", "Keep every good record of a phone, with its module's fuse ID");
  app->add_option("PHONE", arguments->phone, "Phone folder, image, or archive of those")
      ->required()
      ->default_str("");
  app->add_option("FILE", arguments->output.path, "Archive to create")->required()->default_str("");
  add_base_option(*app, arguments->base);
  add_fuse_option(*app, arguments->modules);
  app->add_flag("--force", arguments->output.force, "Replace an existing file");
  return {app, [arguments](Terminal& terminal) { return run_backup(*arguments, terminal); }};
}

}  // namespace awbcal
