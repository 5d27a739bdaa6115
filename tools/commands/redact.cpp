// awbcal redact: the same phone or image without its fuse IDs.

#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/errors.h"
#include "inspect/redaction.h"

namespace awbcal {

namespace {

struct RedactArguments {
  InputOptions input;
  OutputTarget output;
};

/// Files that are not decoded may tell anything, so they are left out and named. The links by which the partition
/// is found name no module.
std::vector<OutputFile> files_to_share(const Phone& phone, Terminal& terminal) {
  std::vector<OutputFile> files;
  for (const PhoneFile& file : phone.files) {
    if (file.layout == Layout::other && !file.link_target.empty()) {
      files.push_back({file.path, {}, file.link_target});
    } else if (file.layout == Layout::other || file.content.trouble) {
      terminal.paragraph(
          fmt::format("left out: {} ({})", file.path,
                      file.content.trouble ? "unreadable: " + *file.content.trouble : "not decoded"));
    } else {
      files.push_back({file.path, file.content.bytes, {}});
    }
  }
  return files;
}

int redact_input(const RedactArguments& arguments, Terminal& terminal) {
  check_output(arguments.output, arguments.input.paths);
  Phone phone = open_phone_of(arguments.input);
  redact(phone);
  if (phone.kind == Layout::phone) {
    write_folder(arguments.output, files_to_share(phone, terminal), arguments.input.paths);
  } else {
    write_output(arguments.output, text_of(phone.files[0].content.bytes), arguments.input.paths);
  }
  return kDone;
}

}  // namespace

Command add_redact(CLI::App& parent) {
  const auto arguments = std::make_shared<RedactArguments>();
  CLI::App* app = add_command(parent, "redact", "Replace fuse IDs, so that the rest can be shared");
  add_input_options(*app, arguments->input);
  app->add_option("--output", arguments->output.path, "File or folder to make; - is stdout")->required();
  app->add_flag("--force", arguments->output.force, "Replace an existing file");
  return {app, [arguments](Terminal& terminal) { return redact_input(*arguments, terminal); }};
}

}  // namespace awbcal
