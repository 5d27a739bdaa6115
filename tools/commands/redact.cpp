// awbcal redact: the same phone or image without what identifies its modules, the device or a person.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/errors.h"
#include "inspect/phrases.h"
#include "inspect/redaction.h"
#include "text/printable.h"

namespace awbcal {

namespace {

struct RedactArguments {
  InputOptions input;
  OutputTarget output;
  bool only_check = false;
};

/// A line for each file and fate.
std::vector<std::string> trace_lines(const std::vector<Trace>& traces) {
  std::map<std::pair<std::string, Fate>, std::vector<std::string>> files;
  for (const Trace& trace : traces) {
    std::vector<std::string>& whats = files[{trace.file, trace.fate}];
    if (std::ranges::find(whats, trace.what) == whats.end()) whats.push_back(trace.what);
  }
  std::vector<std::string> lines;
  for (const auto& [of, whats] : files)
    lines.push_back(fmt::format("{}: {}: {}", fate_name(of.second), of.first, fmt::join(whats, ", ")));
  return lines;
}

/// What may identify somebody is printed, and nothing written.
int check(const Phone& phone, Terminal& terminal) {
  show_input(terminal, phone);
  const std::vector<Trace> traces = traces_in(phone);
  for (const std::string& line : trace_lines(traces)) terminal.paragraph(line);
  terminal.line(traces.empty() ? "nothing found that identifies a module, a device or a person"
                               : counted(traces.size(), "trace"));
  if (!phone.is_complete()) return kBadInput;
  return traces.empty() ? kDone : kFailed;
}

/// What was not replaced has to be known before the rest is shared; beside the output, where that is a stream.
void tell(const std::vector<std::string>& lines, bool is_stream, Terminal& terminal) {
  for (const std::string& line : lines) {
    if (is_stream) {
      fmt::print(stderr, "awbcal: {}\n", printable(line));
    } else {
      terminal.paragraph(line);
    }
  }
}

int redact_input(const RedactArguments& arguments, Terminal& terminal) {
  if (!arguments.only_check) check_output(arguments.output, arguments.input.paths);
  Phone phone = open_phone_of(arguments.input);
  if (arguments.only_check) return check(phone, terminal);
  std::vector<std::string> lines = phone.notes;
  std::vector<Trace> left = traces_in(phone);
  std::erase_if(left, [](const Trace& trace) { return trace.fate == Fate::replaced; });
  for (std::string& line : trace_lines(left)) lines.push_back(std::move(line));
  redact(phone);
  if (phone.kind == Layout::phone) {
    write_folder(arguments.output, files_to_share(phone), arguments.input.paths);
  } else {
    write_output(arguments.output, text_of(phone.files[0].content.bytes), arguments.input.paths);
  }
  tell(lines, arguments.output.path == "-", terminal);
  return phone.is_complete() ? kDone : kBadInput;
}

}  // namespace

Command add_redact(CLI::App& parent) {
  const auto arguments = std::make_shared<RedactArguments>();
  CLI::App* app =
      add_command(parent, "redact", "Replace fuse IDs and serial numbers, so that the rest can be shared");
  add_input_options(*app, arguments->input);
  CLI::Option* output =
      app->add_option("--output", arguments->output.path, "File or folder to make; - is stdout");
  CLI::Option* check_flag = app->add_flag("--check", arguments->only_check,
                                          "List what may identify a device or a person; write nothing");
  app->add_flag("--force", arguments->output.force, "Replace an existing file");
  output->excludes(check_flag);
  app->callback([output, check_flag] {
    if (output->empty() && check_flag->empty()) throw CLI::RequiredError("--output or --check");
  });
  return {app, [arguments](Terminal& terminal) { return redact_input(*arguments, terminal); }};
}

}  // namespace awbcal
