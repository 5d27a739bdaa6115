// Any phone's folder: files, properties, tables and the state of a NAND chip, as the steps of an input make them. The
// tool opens it, decodes, judges, shows, packs and redacts; what is redacted is judged as before.

#include <optional>
#include <string>

#include "fuzz/check_phone.h"
#include "fuzz/custom_mutator.h"
#include "fuzz/phone_program.h"
#include "inspect/errors.h"
#include "inspect/open_phone.h"
#include "inspect/redaction.h"

namespace {

using awbcal::FileTree;

// In the mask of the log, which says nothing here.
constexpr uint8_t kAreaAlone = 0x80, kBrief = 0x40, kPulled = 0x20;

FileTree::Entry file_of(awbcal::Bytes bytes) {
  return {.content = awbcal::FileContent{std::move(bytes), std::nullopt}};
}

FileTree::Entry text_file(const std::string& text) {
  return file_of({text.begin(), text.end()});
}

FileTree::Entry link_to(const std::string& target) {
  return {.type = FileTree::Type::link, .target = target};
}

std::string property_lines(bool is_getprop) {
  std::string text;
  for (const fuzz::Property& property : fuzz::properties()) {
    if (!property.exists) continue;
    const std::string name = property.name, value = property.value;
    text += is_getprop ? "[" + name + "]: [" + value + "]\n" : name + "=" + value + "\n";
  }
  return text;
}

/// As the virtual phone's file "nand" says it.
std::string nand_state() {
  constexpr unsigned kBlocks = 16;
  const fuzz::Chip& chip = fuzz::phone.chip;
  std::string text = "mtd 3\nerase_size " + std::to_string(chip.erase_size) + "\nblocks " +
                     std::to_string(kBlocks) + "\nfactory_bad 0\necc_corrected 0\necc_failed 0\n";
  for (unsigned block = 0; block < kBlocks; ++block) {
    // A state may be of another form, too.
    const char* is = (chip.bad >> block & 1) != 0          ? " bad\n"
                     : (chip.unreadable >> block & 1) != 0 ? "\n"
                                                           : " good\n";
    text += "block " + std::to_string(block) + " erased 1 programmed 1" + is;
  }
  return text;
}

FileTree::Entry entry_of(const fuzz::File& file) {
  const std::string content(file.bytes, file.bytes + file.size);
  const bool is_link = file.path.find("/by-name/") != std::string::npos &&
                       content.find('\0') == std::string::npos && !content.empty();
  return is_link ? link_to(content) : text_file(content);
}

/// The whole partition, or the record area alone.
std::vector<uint8_t> dump() {
  constexpr std::ptrdiff_t kArea = 0x10000, kAreaEnd = 0x14000;
  const std::vector<uint8_t> bytes = fuzz::changes_of_partition(0);
  if ((fuzz::phone.log_mask & kAreaAlone) == 0) return bytes;
  return {bytes.begin() + kArea, bytes.begin() + kAreaEnd};
}

/// Erased where nothing was written.
std::vector<uint8_t> chip() {
  return fuzz::changes_of_partition(0xFF);
}

/// A phone's own folder, or what somebody pulled of it.
FileTree folder() {
  const bool is_pulled = (fuzz::phone.log_mask & kPulled) != 0;
  FileTree tree("phone");
  tree.add(is_pulled ? "getprop.txt" : "properties", text_file(property_lines(is_pulled)));
  for (const fuzz::File& file : fuzz::files().first(fuzz::files().size() - 1)) {
    if (file.exists) tree.add(std::string(file.path.substr(1)), entry_of(file));
  }
  if (fuzz::phone.has_block_device) tree.add(is_pulled ? "mfg.img" : "dev/block/mmcblk0p6", file_of(dump()));
  if (fuzz::phone.chip.erase_size > 0) {
    tree.add("nand", text_file(nand_state()));
    tree.add("dev/mtd/mtd3", file_of(chip()));
  }
  return tree;
}

/// As it is shared: opened again from the files alone.
awbcal::Phone redacted(awbcal::Phone phone) {
  awbcal::redact(phone);
  FileTree tree("redacted");
  for (const awbcal::OutputFile& file : awbcal::files_to_share(phone)) {
    tree.add(file.path, file.link_target.empty() ? file_of(file.bytes) : link_to(file.link_target));
  }
  return awbcal::phone_of_tree(tree, {});
}

void inspect(const awbcal::Phone& phone) {
  const awbcal::Modules modules = awbcal::modules_of(phone);
  const std::vector<awbcal::Verdict> verdicts = fuzz::verdicts_on(phone, modules);
  awbcal::partition_bytes(phone);
  if ((fuzz::phone.log_mask & kBrief) != 0) return;
  fuzz::check_pack(phone);
  awbcal::traces_in(phone);
  fuzz::check_backup(phone, modules);
  if (!phone.is_complete() || !fuzz::is_readable(phone)) return;
  const awbcal::Phone shared = redacted(phone);
  fuzz::require(fuzz::verdicts_on(shared, awbcal::modules_of(shared)) == verdicts,
                "redaction leaves every verdict");
}

}  // namespace

void fuzz::make_fast(uint8_t* data, size_t) {
  data[1] |= kAreaAlone | kBrief;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::build_phone({data, size});
  std::optional<awbcal::Phone> phone;
  try {
    phone = awbcal::phone_of_tree(folder(), {});
  } catch (const awbcal::InputError&) {
    return 0;  // a message is an answer, here and nowhere else
  }
  inspect(*phone);
  return 0;
}
