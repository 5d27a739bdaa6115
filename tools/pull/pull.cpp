#include "pull/pull.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "inspect/cameras.h"
#include "inspect/errors.h"
#include "inspect/files.h"
#include "inspect/record_kinds.h"
#include "pull/partition.h"
#include "pull/target_folder.h"
#include "records/kernel_export.h"

namespace awbcal {

namespace {

constexpr const char* kCameraFiles = "data/misc/camera/";

std::vector<std::string> cache_files() {
  std::set<std::string> files;
  for (const RecordSpec& spec : record_specs()) {
    for (const calib::Camera camera : kCameras) {
      const std::string_view name = spec.cache_file(camera);
      if (!name.empty()) files.insert(kCameraFiles + std::string(name));
    }
  }
  return {files.begin(), files.end()};
}

std::vector<std::string> export_nodes() {
  std::vector<std::string> nodes = {"sys/android_camera_awb_cal/awb_cal_3D"};
  for (const calib::Camera camera : kCameras)
    nodes.emplace_back(std::string(calib::kExportNode.of(camera)).substr(1));
  return nodes;
}

std::string without_newline(const Bytes& output) {
  std::string text(text_of(output));
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

class Pull {
 public:
  Pull(const PullOptions& options, Pulled& pulled)
      : options_(options), target_(options.folder), adb_(options.serial), pulled_(pulled) {
    pulled_.serial = adb_.serial();
    pulled_.access = adb_.access();
  }

  void run() {
    take_properties();
    take_files(Group::tables, {"proc/emmc", "proc/mtd"});
    take_links();
    take_files(Group::cache, cache_files());
    take_files(Group::exports, export_nodes());
    take_files(Group::reports, reports());
    take_partition();
    pulled_.state.is_finished = true;
    target_.put_state(pulled_.state);
  }

 private:
  void add(Group group, const std::string& path, Found found, const std::string& detail = {}) {
    pulled_.files.push_back({group, path, found, detail});
    if (found == Found::unreadable) pulled_.state.unreadable.emplace(path, detail);
  }

  void take_properties() {
    const ShellAnswer answer = adb_.ask("getprop");
    if (!answer.is_done() || answer.output.empty())
      throw InputError(fmt::format("{}: does not tell its properties", adb_.serial()));
    target_.check_same_phone(std::string(text_of(answer.output)));
    target_.clear();
    target_.put_state(pulled_.state);
    target_.put("properties", text_of(answer.output));
    add(Group::properties, "properties", Found::read);
    pulled_.names_modules = text_of(answer.output).find("qor.camera.sensor.") != std::string_view::npos;
  }

  /// Asks for each command's answer about a path, and where it fails, by another one why.
  template <typename Take>
  void take_each(Group group, const std::vector<std::string>& paths, const char* command, const char* why,
                 Take take) {
    if (paths.empty()) return;
    std::vector<std::string> commands;
    for (const std::string& path : paths)
      commands.push_back(fmt::format("{} {} 2>/dev/null", command, shell_word("/" + path)));
    const std::vector<ShellAnswer> answers = adb_.ask(commands);
    std::vector<std::string> failed, questions;
    for (size_t i = 0; i < paths.size(); ++i) {
      if (answers[i].is_done()) {
        take(paths[i], answers[i].output);
        add(group, paths[i], Found::read);
      } else {
        failed.push_back(paths[i]);
        questions.push_back(fmt::format("{} {} 2>&1 >/dev/null", why, shell_word("/" + paths[i])));
      }
    }
    if (failed.empty()) return;
    const std::vector<ShellAnswer> reasons = adb_.ask(questions);
    for (size_t i = 0; i < failed.size(); ++i) note_failure(group, failed[i], reasons[i]);
  }

  void note_failure(Group group, const std::string& path, const ShellAnswer& answer) {
    const auto [is_absent, reason] = failure_of(answer);
    // What is there and no link leads nowhere for the library either.
    const bool is_link = path.starts_with("dev/");
    if (is_absent || (is_link && answer.output.empty())) {
      add(group, path, Found::absent);
    } else if (is_link) {
      pulled_.files.push_back({group, path, Found::unreadable, reason});
      pulled_.state.unreadable_links.emplace(path, reason);
    } else {
      add(group, path, Found::unreadable, reason);
    }
  }

  void take_files(Group group, const std::vector<std::string>& paths) {
    take_each(group, paths, "cat", "cat",
              [this](const std::string& path, const Bytes& bytes) { target_.put(path, text_of(bytes)); });
  }

  void take_links() {
    take_each(Group::tables, partition_links(), "readlink", "ls -d",
              [this](const std::string& path, const Bytes& bytes) {
                target_.put_link(path, without_newline(bytes));
              });
  }

  /// The factory's reports, by the phone's own list of files.
  std::vector<std::string> reports() {
    const ShellAnswer answer =
        adb_.ask(fmt::format("ls -1 {} 2>/dev/null", shell_word(std::string("/") + kCameraFiles)));
    std::vector<std::string> paths;
    std::istringstream names{std::string(text_of(answer.output))};
    for (std::string name; std::getline(names, name);) {
      const bool is_report = name.ends_with(".txt") && name.find("alibration") != name.npos;
      if (is_report && name.find('/') == name.npos) paths.push_back(kCameraFiles + name);
    }
    return paths;
  }

  void take_partition() {
    const FileTree tree = FileTree::of_folder(target_.path());
    const bool is_certain = pulled_.unreadable(Group::tables) == nullptr;
    const auto mtd = mtd_partition(tree);
    for (const std::string& device : named_devices(tree, is_certain)) {
      const DeviceAnswer answer = mtd && device == mtd->device
                                      ? pull_nand(adb_, target_, *mtd, pulled_.state)
                                      : pull_block_device(adb_, target_, device, options_.whole);
      if (!answer.failure) {
        add(Group::partition, device, Found::read, answer.detail);
        if (answer.is_area_only) pulled_.state.area_only.insert(device);
        return;
      }
      const auto& [is_absent, reason] = *answer.failure;
      add(Group::partition, device, is_absent ? Found::absent : Found::unreadable, reason);
    }
  }

  const PullOptions& options_;
  TargetFolder target_;
  Adb adb_;
  Pulled& pulled_;
};

}  // namespace

const PulledFile* Pulled::unreadable(Group group) const {
  const auto found = std::ranges::find_if(files, [group](const PulledFile& file) {
    return file.group == group && file.found == Found::unreadable;
  });
  return found == files.end() ? nullptr : &*found;
}

size_t Pulled::count(Group group, Found found) const {
  return static_cast<size_t>(std::ranges::count_if(
      files, [&](const PulledFile& file) { return file.group == group && file.found == found; }));
}

Pulled pull_phone(const PullOptions& options) {
  Pulled pulled;
  try {
    Pull(options, pulled).run();
  } catch (const CutOff& cut) {
    if (pulled.files.empty()) throw InputError(cut.what());
    pulled.cut_off = cut.what();
  }
  return pulled;
}

}  // namespace awbcal
