#include "inspect/phone_folder.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "inspect/errors.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMostFiles = 4096;
constexpr int kDeepest = 12;

/// Every file in the folder by its path there, sorted; links are not followed into folders.
std::vector<std::string> files_in(const fs::path& folder) {
  std::vector<std::string> paths;
  std::error_code error;
  fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error);
  if (error) throw InputError(fmt::format("{}: is unreadable: {}", folder.string(), error.message()));
  for (; entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    if (error) throw InputError(fmt::format("{}: is unreadable: {}", folder.string(), error.message()));
    if (paths.size() == kMostFiles || entry.depth() > kDeepest) {
      throw InputError(fmt::format("{}: holds too much to be a phone's folder", folder.string()));
    }
    const std::string path = fs::relative(entry->path(), folder, error).string();
    // A folder in a record's place is no file that could be read, and that has to be said.
    if (!entry->is_directory(error) || classify(path)) paths.push_back(path);
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

/// The partition's device by the kernel's tables: "mmcblk0p6" of proc/emmc, "mtd3" of proc/mtd.
std::string device_of_table(const fs::path& table) {
  const FileContent content = read_file(table);
  std::istringstream lines{std::string(text_of(content.bytes))};
  for (std::string line; std::getline(lines, line);) {
    const size_t colon = line.find(':');
    if (colon != std::string::npos && line.find("\"mfg\"") != std::string::npos) return line.substr(0, colon);
  }
  return "";
}

/// The device that dev/block/platform/*/by-name/mfg points to.
std::string device_of_link(const fs::path& folder, const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    if (!path.ends_with("by-name/mfg")) continue;
    std::error_code error;
    return fs::read_symlink(folder / path, error).filename().string();
  }
  return "";
}

/// Nothing in a folder may keep the tool waiting, as a pipe would.
FileContent read_regular_file(const fs::path& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_regular_file(status)) return read_file(path);
  if (fs::is_directory(status)) return {{}, "is a folder"};
  if (status.type() == fs::file_type::not_found) return {{}, "is a link to a file that is absent"};
  return {{}, error ? error.message() : "is not a regular file"};
}

class PhoneFolder {
 public:
  explicit PhoneFolder(const InputOptions& options)
      : options_(options), folder_(options.path), paths_(files_in(folder_)) {}

  Input open() {
    input_.name = options_.path;
    input_.kind = InputKind::phone;
    find_partition();
    for (const std::string& path : paths_) add(path);
    if (std::none_of(input_.files.begin(), input_.files.end(),
                     [](const InputFile& file) { return file.layout < Layout::text; })) {
      throw InputError(fmt::format("{}: holds no file of a phone's calibration", options_.path));
    }
    find_records(input_, options_);
    return std::move(input_);
  }

 private:
  void find_partition() {
    std::string device = device_of_table(folder_ / "proc/emmc");
    if (device.empty()) device = device_of_link(folder_, paths_);
    if (!device.empty()) {
      partition_ = "dev/block/" + device;
      return;
    }
    const std::string chip = device_of_table(folder_ / "proc/mtd");
    if (!chip.empty()) partition_ = "dev/mtd/" + chip;
  }

  bool is_partition(const std::string& path) const {
    static const std::set<std::string> kPulled = {"mfg", "mfg.img", "mfg.bin", "mfg.raw"};
    return partition_.empty() ? kPulled.contains(path) : path == partition_;
  }

  InputFile describe(const std::string& path) const {
    if (is_partition(path)) return {.path = path, .layout = Layout::partition, .source = Source::partition};
    if (auto known = classify(path)) return std::move(*known);
    for (const calib::Camera camera : kCameras) {
      if (path != fmt::format("factory/lens_shading_{}.bin", camera_name(camera))) continue;
      return {.path = path,
              .layout = Layout::record,
              .source = Source::factory,
              .kind = RecordKind::lens_shading,
              .camera = camera};
    }
    const std::string leaf = fs::path(path).filename().string();
    if (path == "properties" || leaf == "getprop.txt" || leaf.ends_with(".prop")) {
      return {.path = path, .layout = Layout::properties};
    }
    // What the partition is found by belongs to the phone as much as its reports do.
    static const std::set<std::string> kTables = {"proc/emmc", "proc/mtd", "nand", "faults"};
    const bool is_report = leaf.ends_with(".txt") && leaf.find("alibration") != std::string::npos;
    const bool is_text = is_report || kTables.contains(path);
    return {.path = path, .layout = is_text ? Layout::text : Layout::other};
  }

  void add(const std::string& path) {
    InputFile file = describe(path);
    if (file.layout != Layout::other) file.content = read_regular_file(folder_ / path);
    if (file.layout == Layout::properties && !file.content.trouble) {
      if (!input_.properties) input_.properties.emplace();
      input_.properties->merge(parse_properties(text_of(file.content.bytes)));
    }
    if (file.layout == Layout::partition && path.starts_with("dev/mtd/")) find_blocks(file);
    input_.files.push_back(std::move(file));
  }

  /// The good blocks, by the chip's state beside the phone; of a chip without one, all.
  void find_blocks(InputFile& file) const {
    const FileContent state = read_file(folder_ / "nand");
    std::istringstream lines{std::string(text_of(state.bytes))};
    for (std::string line; std::getline(lines, line);) {
      std::istringstream words(line);
      std::string key;
      uint32_t number = 0;
      if (!(words >> key >> number)) continue;
      if (key == "erase_size") file.block_size = number;
      if (key == "block" && line.ends_with(" good") && has_content(file, number))
        file.blocks.push_back(number);
    }
  }

  /// A block of zeros is passed over by the kernel's reader, as the library's.
  static bool has_content(const InputFile& file, uint32_t block) {
    const uint64_t begin = uint64_t{block} * file.block_size;
    const Bytes& bytes = file.content.bytes;
    if (file.block_size == 0 || begin + file.block_size > bytes.size()) return false;
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(begin);
    return std::any_of(first, first + static_cast<std::ptrdiff_t>(file.block_size),
                       [](uint8_t byte) { return byte != 0; });
  }

  const InputOptions& options_;
  fs::path folder_;
  std::vector<std::string> paths_;
  std::string partition_;
  Input input_;
};

}  // namespace

Input open_phone(const InputOptions& options) {
  if (!options.as.empty() && options.as != "phone") {
    throw InputError(fmt::format("{}: is a folder and not a file to read as {}", options.path, options.as));
  }
  return PhoneFolder(options).open();
}

}  // namespace awbcal
