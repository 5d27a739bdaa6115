// awbcal pack: the JSON of awbcal show back to bytes.

#include <fmt/format.h>

#include <filesystem>
#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/errors.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

struct PackArguments {
  std::string input = "-";
  OutputTarget output;
  PackOptions options;
};

Json read_document(const std::string& path) {
  const FileContent content = read_file(path);
  if (content.trouble) throw InputError(fmt::format("{}: is unreadable: {}", path, *content.trouble));
  try {
    return Json::parse(content.bytes.begin(), content.bytes.end());
  } catch (const Json::exception& error) {
    throw InputError(fmt::format("{}: is not JSON: {}", path, error.what()));
  }
}

void write_folder(const Packed& packed, const PackArguments& arguments) {
  const OutputTarget& target = arguments.output;
  if (target.path.empty() || target.path == "-") throw InputError("a phone is a folder: say --output FOLDER");
  check_output(target, arguments.input);
  for (const PackedFile& file : packed.files) {
    const fs::path path = fs::path(target.path) / file.path;
    fs::create_directories(path.parent_path());
    write_output({path.string(), target.force}, text_of(file.bytes), arguments.input);
  }
}

int pack(const PackArguments& arguments) {
  const Packed packed = pack_document(read_document(arguments.input), arguments.options);
  if (packed.kind == InputKind::phone) {
    write_folder(packed, arguments);
  } else if (packed.files.size() == 1) {
    write_output(arguments.output, text_of(packed.files[0].bytes), arguments.input);
  } else {
    throw InputError(fmt::format("{}: expected 1 file, found {}", arguments.input, packed.files.size()));
  }
  return kDone;
}

}  // namespace

Command add_pack(CLI::App& parent) {
  const auto arguments = std::make_shared<PackArguments>();
  CLI::App* app = add_command(parent, "pack", "Rebuild the bytes from `show --json`, keeping stored CRCs");
  app->add_option("INPUT", arguments->input, "Output of `show --json`; - is stdin");
  app->add_option("--output", arguments->output.path,
                  "File, or folder of a phone, to make; otherwise stdout");
  app->add_flag("--force", arguments->output.force, "Replace an existing file");
  app->add_flag("--seal", arguments->options.seal, "Compute the CRC of every record");
  app->add_option("--seal-only", arguments->options.seal_kind, "Compute the CRC of records of one kind")
      ->check(one_of(kind_ids()))
      ->type_name("KIND");
  return {app, [arguments](Terminal&) { return pack(*arguments); }};
}

}  // namespace awbcal
