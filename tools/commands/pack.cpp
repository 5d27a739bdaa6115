// awbcal pack: the JSON of awbcal show back to bytes.

#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/errors.h"

namespace awbcal {

namespace {

struct PackArguments {
  std::string input = "-";
  OutputTarget output;
  PackOptions options;
};

Json read_document(const std::string& path) {
  return parse_document(text_of(bytes_of_file(path)));
}

/// Every message about the document begins with its name.
Packed packed_document(const PackArguments& arguments) {
  try {
    return pack_document(read_document(arguments.input), arguments.options);
  } catch (const InputError& error) {
    const std::string text = error.what();
    throw InputError(text.starts_with(arguments.input) ? text : fmt::format("{}: {}", arguments.input, text));
  }
}

int pack(const PackArguments& arguments) {
  const Packed packed = packed_document(arguments);
  if (packed.kind == Layout::phone) {
    write_folder(arguments.output, packed.files, {arguments.input});
  } else if (packed.files.size() == 1) {
    write_output(arguments.output, text_of(packed.files[0].bytes), {arguments.input});
  } else {
    throw InputError(fmt::format("{}: expected one file, found {}", arguments.input, packed.files.size()));
  }
  return kDone;
}

}  // namespace

Command add_pack(CLI::App& parent) {
  const auto arguments = std::make_shared<PackArguments>();
  CLI::App* app = add_command(parent, "pack", "Rebuild the bytes from `show --json`, keeping stored CRCs");
  app->add_option("INPUT", arguments->input, "Output of `show --json`; - is stdin");
  app->add_option("--output", arguments->output.path,
                  "File to create, or folder for a phone; otherwise stdout");
  app->add_flag("--force", arguments->output.force, "Replace an existing file");
  app->add_flag("--seal", arguments->options.seal, "Compute the CRC of every record");
  app->add_option("--seal-only", arguments->options.seal_kind, "Compute the CRC of records of one kind")
      ->check(one_of(kind_ids()))
      ->type_name("KIND");
  return {app, [arguments](Terminal&) { return pack(*arguments); }};
}

}  // namespace awbcal
