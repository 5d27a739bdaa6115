// awbcal show: every record found, field by field.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/phrases.h"
#include "inspect/verdict.h"
#include "text/tables.h"

namespace awbcal {

namespace {

struct ShowArguments {
  InputOptions input;
  bool json = false;
  bool raw = false;
};

void show_fields(Terminal& terminal, const FoundRecord& record) {
  Table table({">byte", "field", "value", "meaning"});
  for (const Field& field : decode(*record.spec, record.bytes)) {
    table.row({std::to_string(field.offset), field.name, field.value, field.meaning});
  }
  table.print(terminal);
}

void show_title(Terminal& terminal, const Phone& phone, const FoundRecord& record, const Modules& modules) {
  std::vector<std::string> faults;
  for (const Finding& fault : faults_of(phone, record, modules))
    faults.push_back(terminal.styled(verdict_name(fault.verdict), Style::bad));
  terminal.line();
  terminal.line(fmt::format("{}{}{}",
                            terminal.styled(record_title(*record.spec, record.camera), Style::heading),
                            faults.empty() ? "" : ": ", fmt::join(faults, ", ")));
}

void show_record(Terminal& terminal, const Phone& phone, const FoundRecord& record, bool raw) {
  terminal.paragraph(place_text(phone, record));
  if (record.is_truncated()) {
    terminal.paragraph(fmt::format("truncated: {} of {} bytes", record.bytes.size(), record.spec->size));
  }
  if (const FoundRecord* owner = good_overlap(phone, record)) {
    terminal.paragraph(
        fmt::format("overlap: 16 of its bytes are those of the {}, which is good", owner->spec->name));
  }
  if (raw) print_hexdump(terminal, record.bytes, record.offset);
  show_fields(terminal, record);
}

/// Cameras and kinds whose place holds no record, a line per source.
void show_blank(Terminal& terminal, const Phone& phone) {
  std::map<std::string, std::string> lines;
  for (const FoundRecord& record : phone.records) {
    if (record.bytes.empty() || !is_blank_record(phone, record)) continue;
    std::string& line = lines[phone.files[record.file].path];
    const std::string camera = record.camera ? fmt::format("{} ", camera_name(*record.camera)) : "";
    line += fmt::format("{}{}{}", line.empty() ? "" : ", ", camera, record.spec->id);
  }
  if (lines.empty()) return;
  terminal.line();
  terminal.line(terminal.styled("blank", Style::heading));
  for (const auto& [file, line] : lines) terminal.paragraph(fmt::format("{}: {}", file, line));
}

void show_unreadable(Terminal& terminal, const Phone& phone) {
  for (const PhoneFile& file : phone.files) {
    if (!file.content.trouble) continue;
    terminal.line();
    terminal.paragraph(fmt::format("{}: is unreadable: {}", file.path, *file.content.trouble), 0);
  }
}

/// What could not be read may hold more than was shown.
int answer(const Phone& phone) {
  return phone.is_complete() ? kDone : kBadInput;
}

int show(ShowArguments& arguments, Terminal& terminal) {
  arguments.input.with_digests = arguments.json;
  const Phone phone = open_phone_of(arguments.input);
  if (arguments.json) {
    print_json(show_document(phone, arguments.raw));
    return answer(phone);
  }
  const Modules modules = modules_of(phone);
  show_input(terminal, phone);
  size_t shown = 0;
  for (const FoundRecord& record : phone.records) {
    if (!record.bytes.empty() && is_blank_record(phone, record)) continue;
    show_title(terminal, phone, record, modules);
    show_record(terminal, phone, record, arguments.raw);
    ++shown;
  }
  show_blank(terminal, phone);
  show_unreadable(terminal, phone);
  terminal.line();
  terminal.line(counted(shown, "record"));
  if (shown > 0 && modules.empty()) terminal.line("fuse IDs not compared: the modules are not known");
  return answer(phone);
}

}  // namespace

Command add_show(CLI::App& parent) {
  const auto arguments = std::make_shared<ShowArguments>();
  CLI::App* app = add_command(parent, "show", "Decode every record, field by field");
  add_input_options(*app, arguments->input);
  add_json_option(*app, arguments->json);
  app->add_flag("--raw", arguments->raw, "Show the bytes of each record as well");
  return {app, [arguments](Terminal& terminal) { return show(*arguments, terminal); }};
}

}  // namespace awbcal
