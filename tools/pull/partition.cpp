#include "pull/partition.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "inspect/digest.h"
#include "inspect/files.h"
#include "records/record_layouts.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr uint64_t kMostAtOnce = 1024 * 1024;
constexpr uint64_t kArea = uint64_t{4} * calib::kSlotSize;

std::string device_word(const std::string& device) {
  return shell_word("/" + device);
}

std::string head_command(const std::string& device, uint64_t size) {
  return fmt::format("head -c {} {} 2>/dev/null", size, device_word(device));
}

Failure failure_to_read(Adb& adb, const std::string& device) {
  return failure_of(adb.ask(fmt::format("head -c 1 {} 2>&1 >/dev/null", device_word(device))));
}

// ---- a block device ---------------------------------------------------------------------------------------

/// The area at either base, where the page size may place it; of the rest nothing is kept, and zeros stand here.
DeviceAnswer pull_areas(Adb& adb, const TargetFolder& target, const std::string& device) {
  ShellAnswer answer = adb.ask(head_command(device, calib::kAreaBase4k + kArea));
  if (!answer.is_done()) return {.failure = failure_to_read(adb, device)};
  Bytes& bytes = answer.output;
  const auto clear = [&bytes](uint64_t first, uint64_t last) {
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(std::min<uint64_t>(first, bytes.size())),
              bytes.begin() + static_cast<std::ptrdiff_t>(std::min<uint64_t>(last, bytes.size())), 0);
  };
  clear(0, calib::kAreaBase2k);
  clear(calib::kAreaBase2k + kArea, calib::kAreaBase4k);
  target.put(device, text_of(bytes));
  fs::remove(target.unfinished(device));
  return {.detail = "the record area alone", .is_area_only = true};
}

/// How much of the device is here already; 0 when the phone cannot say that it is the same, or it is not.
uint64_t beginning_of(Adb& adb, const TargetFolder& target, const std::string& device) {
  const Bytes bytes = read_regular_file(target.unfinished(device)).bytes;
  if (!bytes.empty()) {
    const ShellAnswer answer = adb.ask(head_command(device, bytes.size()) + "|sha256sum");
    if (text_of(answer.output).starts_with(sha256_of(bytes))) return bytes.size();
  }
  fs::remove(target.unfinished(device));
  return 0;
}

/// The rest of the device; of an answer that is cut off, what came of it is kept for the next time.
ShellAnswer rest_of(Adb& adb, const TargetFolder& target, const std::string& device, uint64_t from) {
  try {
    return adb.ask(from == 0 ? head_command(device, kLargestFile + 1)
                             : fmt::format("tail -c +{} {} 2>/dev/null", from + 1, device_word(device)));
  } catch (const CutOff& cut) {
    if (!cut.received().empty()) target.append(device, cut.received());
    throw;
  }
}

DeviceAnswer pull_all(Adb& adb, const TargetFolder& target, const std::string& device) {
  const uint64_t from = beginning_of(adb, target, device);
  const ShellAnswer answer = rest_of(adb, target, device, from);
  if (!answer.is_done()) return {.failure = failure_to_read(adb, device)};
  if (from + answer.output.size() > kLargestFile)
    return {.failure = Failure{.reason = fmt::format("larger than {} MiB", kLargestFile >> 20)}};
  target.append(device, answer.output);
  target.finish(device);
  return {.detail = fmt::format("all {} bytes", from + answer.output.size())};
}

// ---- raw NAND ---------------------------------------------------------------------------------------------

class Nanddump {
 public:
  Nanddump(Adb& adb, const MtdPartition& mtd)
      : adb_(adb),
        device_(device_word(mtd.device)),
        block_(mtd.erase_size),
        blocks_(mtd.size / mtd.erase_size) {}

  /// Whether the phone has it: newer ones want to be told to leave the out-of-band bytes out, others do not know
  /// the word.
  bool is_there() {
    for (const char* form : {"nanddump --bb=skipbad --omitoob", "nanddump --bb=skipbad"}) {
      form_ = form;
      if (size_from(0, block_) == block_) return true;
    }
    return false;
  }

  /// Per block whether it is good: what is dumped from a block on, bad ones left out, shrinks behind a good one.
  std::vector<bool> good_blocks() {
    std::vector<bool> good(blocks_);
    find_good(good, 0, blocks_, good_from(0), 0);
    return good;
  }

  bool has_uncorrectable_errors() {
    const ShellAnswer answer =
        adb_.ask(fmt::format("{} {} 2>&1 >/dev/null|grep uncorrectable", form_, device_));
    return !answer.output.empty();
  }

  /// Good blocks, one behind the other.
  Bytes read(uint32_t first, uint32_t count) {
    return adb_.ask(command(first, uint64_t{count} * block_) + " 2>/dev/null").output;
  }

 private:
  std::string command(uint32_t first, uint64_t size) const {
    return fmt::format("{} -s {} -l {} {}", form_, uint64_t{first} * block_, size, device_);
  }

  uint64_t size_from(uint32_t first, uint64_t size) {
    const ShellAnswer answer = adb_.ask(command(first, size) + " 2>/dev/null|wc -c");
    const std::string_view text = text_of(answer.output);
    uint64_t bytes = 0;
    const char* digits = text.data() + std::min(text.find_first_not_of(' '), text.size());
    std::from_chars(digits, text.data() + text.size(), bytes);
    return bytes;
  }

  uint32_t good_from(uint32_t first) {
    return static_cast<uint32_t>(size_from(first, uint64_t{blocks_ - first} * block_) / block_);
  }

  void find_good(std::vector<bool>& good, uint32_t first, uint32_t last, uint32_t from_first,
                 uint32_t from_last) {
    const uint32_t count = from_first - from_last;
    if (count == 0) return;
    if (count == last - first) return std::fill(good.begin() + first, good.begin() + last, true);
    const uint32_t middle = first + (last - first) / 2;
    const uint32_t from_middle = good_from(middle);
    find_good(good, first, middle, from_first, from_middle);
    find_good(good, middle, last, from_middle, from_last);
  }

  Adb& adb_;
  std::string device_;
  std::string form_ = {};
  uint32_t block_;
  uint32_t blocks_;
};

/// The good blocks at their places, ones where a bad one is; nothing when the phone delivers less than it said.
std::optional<Bytes> content_of(Nanddump& dump, const std::vector<bool>& good, uint32_t block) {
  Bytes content(good.size() * block, 0xFF);
  const auto most = static_cast<uint32_t>(std::max<uint64_t>(1, kMostAtOnce / block));
  for (uint32_t first = 0; first < good.size();) {
    uint32_t count = 0;
    while (first + count < good.size() && count < most && good[first + count]) ++count;
    if (count > 0) {
      const Bytes bytes = dump.read(first, count);
      if (bytes.size() != uint64_t{count} * block) return std::nullopt;
      std::ranges::copy(bytes, content.begin() + static_cast<std::ptrdiff_t>(uint64_t{first} * block));
    }
    first += std::max<uint32_t>(count, 1);
  }
  return content;
}

/// As the virtual phone keeps it; how often a block was erased the phone does not tell.
std::string chip_state(const MtdPartition& mtd, const std::vector<bool>& good) {
  std::string text = fmt::format("# The NAND chip whose content is {}\nmtd {}\nerase_size {}\nblocks {}\n",
                                 mtd.device, mtd.number, mtd.erase_size, good.size());
  text += "factory_bad 0\necc_corrected 0\necc_failed 0\n";
  for (size_t i = 0; i < good.size(); ++i)
    text += fmt::format("block {} erased 0 programmed 0 {}\n", i, good[i] ? "good" : "bad");
  return text;
}

}  // namespace

Failure failure_of(const ShellAnswer& answer) {
  std::string line(text_of(answer.output));
  line.erase(std::min(line.find('\n'), line.size()));
  const size_t colon = line.rfind(": ");
  if (colon != line.npos) line.erase(0, colon + 2);
  const bool is_absent = line == "No such file or directory" || line == "Not a directory";
  return {is_absent, line.empty() ? "cannot be read" : line};
}

DeviceAnswer pull_block_device(Adb& adb, const TargetFolder& target, const std::string& device, bool whole) {
  return whole ? pull_all(adb, target, device) : pull_areas(adb, target, device);
}

DeviceAnswer pull_nand(Adb& adb, const TargetFolder& target, const MtdPartition& mtd, PullState& state) {
  const uint64_t size = mtd.size;
  if (mtd.erase_size == 0 || size < mtd.erase_size || size > kLargestFile)
    return {.failure = Failure{
                .reason = fmt::format("/proc/mtd says {} bytes in blocks of {}", size, mtd.erase_size)}};
  if (!adb.ask(head_command(mtd.device, 1)).is_done()) return {.failure = failure_to_read(adb, mtd.device)};
  Nanddump dump(adb, mtd);
  if (!dump.is_there()) {
    state.notes.push_back(
        fmt::format("{}: no nanddump on the phone: which blocks are bad is not known", mtd.device));
    return pull_all(adb, target, mtd.device);
  }
  if (dump.has_uncorrectable_errors())
    return {.failure = Failure{.reason = "bit errors that the chip could not correct"}};
  const std::vector<bool> good = dump.good_blocks();
  const auto content = content_of(dump, good, mtd.erase_size);
  if (!content) return {.failure = Failure{.reason = "nanddump delivers less than the good blocks"}};
  target.put("nand", chip_state(mtd, good));
  target.put(mtd.device, text_of(*content));
  return {.detail = fmt::format("{} blocks, {} of them bad", good.size(), std::ranges::count(good, false))};
}

}  // namespace awbcal
