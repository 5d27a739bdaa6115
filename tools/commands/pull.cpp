// awbcal pull: a phone's folder from a phone on a cable, and what in it could not be read.

#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "pull/pull.h"
#include "text/printable.h"
#include "text/tables.h"

namespace awbcal {

namespace {

struct GroupName {
  Group group;
  const char* name;
};

constexpr GroupName kGroups[] = {{Group::properties, "properties"}, {Group::tables, "tables and links"},
                                 {Group::cache, "cache files"},     {Group::exports, "kernel exports"},
                                 {Group::reports, "reports"},       {Group::partition, "partition"}};

const char* access_text(Access access) {
  switch (access) {
    case Access::root:
      return "as root";
    case Access::su:
      return "as root, through su";
    case Access::shell:
      break;
  }
  return "without root";
}

std::string counts_text(const Pulled& pulled, Group group) {
  std::string text = fmt::format("{} read", pulled.count(group, Found::read));
  if (const size_t absent = pulled.count(group, Found::absent); absent > 0)
    text += fmt::format(", {} absent", absent);
  if (const size_t unreadable = pulled.count(group, Found::unreadable); unreadable > 0)
    text += fmt::format(", {} unreadable", unreadable);
  return text;
}

std::string partition_text(const Pulled& pulled) {
  for (const Found found : {Found::read, Found::unreadable}) {
    for (const PulledFile& file : pulled.files) {
      if (file.group == Group::partition && file.found == found)
        return fmt::format("/{}: {}", file.path, file.detail);
    }
  }
  return pulled.unreadable(Group::tables) != nullptr ? "not known: what leads to it is unreadable" : "absent";
}

bool has_partition(const Pulled& pulled) {
  return pulled.count(Group::partition, Found::read) > 0;
}

/// Whether a camera start can be explained from what was read.
bool suffices_for_explain(const Pulled& pulled) {
  return pulled.unreadable(Group::cache) == nullptr && pulled.unreadable(Group::exports) == nullptr;
}

/// What could not be read, and what that means.
std::vector<std::string> meanings(const Pulled& pulled) {
  std::vector<std::string> lines = pulled.state.notes;
  if (!pulled.names_modules)
    lines.emplace_back(
        "the properties name no module: give its fuse ID with --fuse to judge the records by it");
  const char* root = pulled.access == Access::shell ? "no root: " : "";
  const bool has_no_answer =
      pulled.unreadable(Group::partition) != nullptr || pulled.unreadable(Group::tables) != nullptr;
  if (!has_partition(pulled) && has_no_answer) {
    lines.push_back(
        fmt::format("{}the partition is missing{}", root,
                    suffices_for_explain(pulled) ? ", cache files and exports suffice for explain" : ""));
  }
  for (const auto& [group, name] : kGroups) {
    const PulledFile* file = pulled.unreadable(group);
    if (file == nullptr || (group != Group::cache && group != Group::exports)) continue;
    lines.push_back(fmt::format("{}{}: {}: {}: a record that may be there is not known", root, name,
                                leaf_of(file->path), file->detail));
  }
  return lines;
}

void print(const Pulled& pulled, Terminal& terminal) {
  terminal.line(fmt::format("phone {}, {}", printable(pulled.serial), access_text(pulled.access)));
  Table table({"", ""});
  for (const auto& [group, name] : kGroups) {
    const bool is_asked = std::ranges::find(pulled.files, group, &PulledFile::group) != pulled.files.end();
    if (group == Group::partition) {
      table.row({name, pulled.cut_off && !is_asked ? "not asked" : partition_text(pulled)});
    } else if (group != Group::properties) {
      table.row({name, is_asked || !pulled.cut_off ? counts_text(pulled, group) : "not asked"});
    }
  }
  table.print(terminal, 2);
}

int pull(const PullOptions& options, Terminal& terminal) {
  const Pulled pulled = pull_phone(options);
  print(pulled, terminal);
  for (const std::string& line : meanings(pulled)) terminal.paragraph(line, 0);
  if (pulled.cut_off)
    throw InputError(
        fmt::format("{}; {} is not whole: run awbcal pull again", *pulled.cut_off, options.folder));
  return suffices_for_explain(pulled) ? kDone : kBadInput;
}

}  // namespace

Command add_pull(CLI::App& parent) {
  const auto options = std::make_shared<PullOptions>();
  CLI::App* app =
      add_command(parent, "pull", "Make a phone's folder from a phone that is connected with adb");
  app->add_option("DIR", options->folder, "Folder to make, or to go on with")->required()->default_str("");
  app->add_option("-s,--serial", options->serial, "Which phone, where several are connected")
      ->type_name("SERIAL");
  app->add_flag("--whole", options->whole, "Read the whole partition, not only its record area");
  return {app, [options](Terminal& terminal) { return pull(*options, terminal); }};
}

}  // namespace awbcal
