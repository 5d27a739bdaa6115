// awbcal redact: the same phone or image without its fuse IDs.

#include <fmt/format.h>

#include <filesystem>
#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/errors.h"
#include "inspect/redaction.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

struct RedactArguments {
  InputOptions input;
  OutputTarget output;
};

/// The links by which the partition is found name no module.
void copy_link(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::create_directories(to.parent_path());
  fs::remove(to, error);
  fs::copy_symlink(from, to, error);
  if (error) throw std::runtime_error(fmt::format("{}: cannot be written: {}", to.string(), error.message()));
}

/// Files that are not decoded may tell anything, so they are left out and named.
void write_phone(const Input& input, const RedactArguments& arguments, Terminal& terminal) {
  for (const InputFile& file : input.files) {
    const fs::path from = fs::path(arguments.input.path) / file.path;
    const fs::path to = fs::path(arguments.output.path) / file.path;
    if (file.layout == Layout::other && fs::is_symlink(from)) {
      copy_link(from, to);
    } else if (file.layout == Layout::other || file.content.trouble) {
      terminal.paragraph(
          fmt::format("left out: {} ({})", file.path,
                      file.content.trouble ? "unreadable: " + *file.content.trouble : "not decoded"));
    } else {
      fs::create_directories(to.parent_path());
      write_output({to.string(), arguments.output.force}, text_of(file.content.bytes), arguments.input.path);
    }
  }
}

int redact_input(const RedactArguments& arguments, Terminal& terminal) {
  check_output(arguments.output, arguments.input.path);
  Input input = open_input(arguments.input);
  redact(input);
  if (input.kind == InputKind::phone) {
    if (arguments.output.path == "-") throw InputError("a phone is a folder: say --output FOLDER");
    write_phone(input, arguments, terminal);
  } else {
    write_output(arguments.output, text_of(input.files[0].content.bytes), arguments.input.path);
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
