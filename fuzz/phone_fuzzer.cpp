// Any phone as a folder's archive: files, properties, tables and the state of a NAND chip, as the steps of an input make
// them. The tool opens it, decodes, judges, shows, packs and redacts.

#include <cstdlib>
#include <string>

#include "fuzz/custom_mutator.h"
#include "fuzz/phone_program.h"
#include "inspect/archive.h"
#include "inspect/errors.h"
#include "inspect/json_form.h"
#include "inspect/open_phone.h"
#include "inspect/redaction.h"
#include "inspect/verdict.h"

namespace {

// In the mask of the log, which says nothing here.
constexpr uint8_t kAreaAlone = 0x80, kBrief = 0x40;

awbcal::OutputFile text_file(std::string path, const std::string& text) {
  return {.path = std::move(path), .bytes = {text.begin(), text.end()}};
}

std::string property_lines() {
  std::string text;
  for (const fuzz::Property& property : fuzz::properties()) {
    if (property.exists) text += std::string(property.name) + "=" + property.value + "\n";
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

awbcal::OutputFile file_of(const fuzz::File& file) {
  std::string path(file.path.substr(1));
  const std::string content(file.bytes, file.bytes + file.size);
  const bool is_link = path.find("/by-name/") != std::string::npos && content.find('\0') == std::string::npos;
  return is_link ? awbcal::OutputFile{.path = path, .bytes = {}, .link_target = content}
                 : text_file(path, content);
}

std::vector<uint8_t> dump() {
  constexpr std::ptrdiff_t kArea = 0x10000, kAreaEnd = 0x14000;
  const std::vector<uint8_t> bytes = fuzz::changes_of_partition();
  if ((fuzz::phone.log_mask & kAreaAlone) == 0) return bytes;
  return {bytes.begin() + kArea, bytes.begin() + kAreaEnd};
}

std::vector<awbcal::OutputFile> folder() {
  std::vector<awbcal::OutputFile> files = {text_file("properties", property_lines())};
  for (const fuzz::File& file : fuzz::files().first(fuzz::files().size() - 1)) {
    if (file.exists) files.push_back(file_of(file));
  }
  if (fuzz::phone.has_block_device) files.push_back({.path = "dev/block/mmcblk0p6", .bytes = dump()});
  if (fuzz::phone.chip.erase_size > 0) {
    files.push_back(text_file("nand", nand_state()));
    files.push_back({.path = "dev/mtd/mtd3", .bytes = dump()});
  }
  return files;
}

void inspect(const std::vector<awbcal::OutputFile>& files) {
  awbcal::Phone phone = awbcal::phone_of_bytes("phone.tar", awbcal::packed(files), {});
  for (const awbcal::FoundRecord& record : phone.records) {
    if (record.bytes.size() > record.spec->size) std::abort();
  }
  awbcal::verdicts_of(phone, awbcal::modules_of(phone));
  awbcal::partition_bytes(phone);
  if ((fuzz::phone.log_mask & kBrief) != 0) return;
  awbcal::pack_document(awbcal::show_document(phone, true), {});
  awbcal::redact(phone);
  awbcal::traces_in(phone);
}

}  // namespace

void fuzz::make_fast(uint8_t* data, size_t) {
  data[1] |= kAreaAlone | kBrief;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::build_phone({data, size});
  try {
    inspect(folder());
  } catch (const awbcal::InputError&) {
    // A message is an answer.
  }
  return 0;
}
