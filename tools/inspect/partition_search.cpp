#include "inspect/partition_search.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <set>
#include <sstream>

#include "common/file.h"
#include "inspect/errors.h"
#include "inspect/pull_state.h"
#include "storage/proc_emmc.h"
#include "storage/proc_mtd.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr const char* kPartition = "mfg";
constexpr std::array kTables = {calib::emmc::kTable, calib::mtd::kTable};

/// The phone's path in the tree: without its first slash.
std::string in_tree(std::string_view phone_path) {
  return std::string(phone_path.substr(phone_path.starts_with('/') ? 1 : 0));
}

std::string by_emmc_table(const FileTree& tree) {
  const FileContent content = tree.read(in_tree(calib::emmc::kTable));
  if (content.trouble) return "";
  const calib::Descriptor file(memfd_create("table", MFD_CLOEXEC));
  const auto size = static_cast<ssize_t>(content.bytes.size());
  if (write(file.get(), content.bytes.data(), content.bytes.size()) != size ||
      lseek(file.get(), 0, SEEK_SET) != 0)
    return "";
  calib::emmc::Table table(file.get());
  calib::emmc::TableEntry entry{};
  if (!table.find(kPartition, &entry)) return "";
  char path[256];
  calib::emmc::set_device_path(path, entry.device);
  return in_tree(path);
}

std::string by_link(const FileTree& tree, std::vector<std::string>& notes) {
  for (const std::string& path : partition_links()) {
    const auto link = tree.entries().find(path);
    if (link == tree.entries().end() || link->second.target.empty()) continue;
    const FileTree::Resolved device = tree.resolve(link->first);
    if (device.trouble) {
      notes.push_back(fmt::format("{}: {}", link->first, *device.trouble));
      continue;
    }
    if (!link->second.target.starts_with('/'))
      notes.push_back(fmt::format("{}: a relative link, which the phone cannot open", link->first));
    return device.path;
  }
  return "";
}

/// Where the first link points, not followed any further.
std::string by_link_target(const FileTree& tree) {
  for (const std::string& path : partition_links()) {
    const auto link = tree.entries().find(path);
    if (link != tree.entries().end() && link->second.target.starts_with('/'))
      return in_tree(link->second.target);
  }
  return "";
}

/// Whether the tree knows the path, even if it cannot be read.
bool is_listed(const FileTree& tree, const std::string& path) {
  return !path.empty() && tree.entries().contains(path);
}

bool has_unreadable_table(const FileTree& tree) {
  return std::any_of(kTables.begin(), kTables.end(), [&](const char* table) {
    return is_listed(tree, in_tree(table)) && tree.read(in_tree(table)).trouble;
  });
}

/// By the names that people give to what they pull; of several nobody knows which is the phone's.
std::string pulled_image(const FileTree& tree) {
  std::string image;
  for (const char* pulled : {"mfg.img", "mfg.bin", "mfg.raw", "mfg"}) {
    if (!tree.holds(pulled)) continue;
    if (!image.empty() && tree.read(image).bytes != tree.read(pulled).bytes) {
      throw InputError(
          fmt::format("{}: {} and {}: both may be the partition, and differ", tree.name(), image, pulled));
    }
    image = pulled;
  }
  return image;
}

/// A block of zeros is passed over by the kernel's reader, as the library's.
bool has_content(const PhoneFile& file, uint32_t block) {
  const uint64_t begin = uint64_t{block} * file.block_size;
  const Bytes& bytes = file.content.bytes;
  if (file.block_size == 0 || begin + file.block_size > bytes.size()) return false;
  const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(begin);
  return std::any_of(first, first + static_cast<std::ptrdiff_t>(file.block_size),
                     [](uint8_t byte) { return byte != 0; });
}

}  // namespace

std::vector<std::string> partition_links() {
  std::vector<std::string> links;
  for (int i = 0; i <= calib::emmc::kLastController; ++i) {
    char folder[64];
    calib::emmc::set_by_name_folder(folder, i);
    links.push_back(in_tree(folder) + kPartition);
  }
  return links;
}

bool is_table(const std::string& path) {
  static const std::set<std::string> kPaths = {in_tree(calib::emmc::kTable), in_tree(calib::mtd::kTable),
                                               "nand", "faults", kPullStateFile};
  return kPaths.contains(path);
}

std::optional<MtdPartition> mtd_partition(const FileTree& tree) {
  const FileContent content = tree.read(in_tree(calib::mtd::kTable));
  if (content.trouble) return std::nullopt;
  std::string text(text_of(content.bytes).substr(0, calib::mtd::kBackEndWindow - 1));
  calib::mtd::ProcMtdEntry entry{};
  if (!calib::mtd::find_entry(text.data(), kPartition, &entry)) return std::nullopt;
  char path[256];
  calib::mtd::set_device_path(path, entry.number);
  return MtdPartition{in_tree(path), entry.number, entry.size, entry.erase_size};
}

std::vector<std::string> named_devices(const FileTree& tree, bool is_certain) {
  std::vector<std::string> devices;
  std::string device = by_emmc_table(tree);
  if (device.empty()) device = by_link_target(tree);
  if (device.empty() && is_certain) device = in_tree(calib::emmc::kFixedDevice);
  if (!device.empty()) devices.push_back(device);
  if (const auto mtd = mtd_partition(tree)) devices.push_back(mtd->device);
  return devices;
}

FoundPartition find_partition(const FileTree& tree) {
  FoundPartition found;
  // The first place that names a device decides; when that does not open, MTD is tried.
  std::string device = by_emmc_table(tree);
  if (device.empty()) device = by_link(tree, found.notes);
  if (device.empty()) device = in_tree(calib::emmc::kFixedDevice);
  const auto mtd = mtd_partition(tree);
  for (const std::string& path : {device, mtd ? mtd->device : ""}) {
    if (is_listed(tree, path)) {
      found.path = path;
      return found;
    }
  }
  found.path = pulled_image(tree);
  found.is_not_known = found.path.empty() && (!tree.unreadable().empty() || has_unreadable_table(tree));
  return found;
}

void take_good_blocks(const FileTree& tree, PhoneFile& file) {
  const FileContent state = tree.read("nand");
  std::istringstream lines{std::string(text_of(state.bytes))};
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string key;
    uint32_t number = 0;
    if (!(words >> key >> number)) continue;
    if (key == "erase_size") file.block_size = number;
    if (key == "block" && line.ends_with(" good") && has_content(file, number)) file.blocks.push_back(number);
  }
}

}  // namespace awbcal
