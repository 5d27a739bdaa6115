// Does the library find the calibration partition on every kind of phone, and move exactly the bytes asked
// for? Guards against writing to another partition, silent short transfers and descriptors left open.

#include "awb_calibration/storage.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/support/support.h"

namespace {

using namespace support;

constexpr const char* kEmmcTag = "camera_calibration_emmc";
constexpr const char* kFrontTag = "camera_calibration_partition";
constexpr const char* kMtdTag = "camera_calibration_mtd";

LogLine ED(const std::string& text) {
  return D(text, kEmmcTag);
}
LogLine EE(const std::string& text) {
  return E(text, kEmmcTag);
}

class PartitionLookup : public PhoneTest {
 protected:
  PartitionLookup() {
    std::filesystem::remove(host("/proc/emmc"));
    std::filesystem::remove_all(host("/dev/block/platform"));
  }

  void list_in_proc_emmc(const std::string& text) { put("/proc/emmc", Bytes(text.begin(), text.end())); }

  void link_by_name(int index, const std::string& name, const std::string& target) {
    const auto folder = host("/dev/block/platform/msm_sdcc." + std::to_string(index) + "/by-name");
    std::filesystem::create_directories(folder);
    if (!target.empty()) std::filesystem::create_symlink(target, folder / name);
  }

  /// The path that emmc_open() chose for `name`; the log is left for the caller.
  std::string chosen_path(const char* name = "mfg") {
    emmc_state state{};
    phone().take_log();
    if (emmc_open(&state, name) == 0) emmc_close(&state);
    return state.path;
  }
};

TEST_F(PartitionLookup, ProcEmmcTakesTheFirstWholeNameOfAWellFormedLine) {
  const std::string header = "dev:        size     erasesize name\n";
  struct Row {
    const char* what;
    std::string text;
    const char* path;  // null: not found there
  };
  const std::string longest = "/dev/block/" + std::string(244, 'd');
  const Row rows[] = {
      {"a path of 255", longest.substr(11) + ": \"mfg\"\n", longest.c_str()},
      {"plain", header + "mmcblk0p9: 00100000 00000200 \"mfg\"\n", "/dev/block/mmcblk0p9"},
      {"first of two", "a: \"mfg\"\nb: \"mfg\"\n", "/dev/block/a"},
      {"only begins with the name", "a: \"mfg2\"\nb: \"mf\"\nc: \"MFG\"\n", nullptr},
      {"no quotes", "a: 1 2 mfg\n", nullptr},
      {"no colon", "a 1 2 \"mfg\"\n", nullptr},
      {"quoted before the colon", "\"mfg\" a: 1 2\n", nullptr},
      {"no closing quote", "a: 1 2 \"mfg\n", nullptr},
      {"no closing quote at the end of the file", "a: 1 2 \"mfg", nullptr},
      {"no newline", "a: \"mfg\"", "/dev/block/a"},
      {"second colon is part of the rest", "a:b: \"mfg\"\n", "/dev/block/a"},
      {"empty device", ": \"mfg\"\n", "/dev/block/"},
      {"a long line is parsed in pieces of 254", std::string(254, 'x') + "a: \"mfg\"\n", "/dev/block/a"},
      {"a name cut by the end of its piece", std::string(254 - 5, 'x') + ":\"mfg\"", nullptr},
      {"empty", "", nullptr},
  };
  for (const Row& row : rows) {
    list_in_proc_emmc(row.text);
    EXPECT_EQ(chosen_path(), row.path != nullptr ? row.path : "/dev/block/mmcblk0p6") << row.what;
    const std::string device = row.path != nullptr ? row.path + std::strlen("/dev/block/") : "";
    const LogLine found = ED("found emmc partition [mfg]=[" + device + "]\n");
    EXPECT_EQ(phone().take_log().front() == found, row.path != nullptr) << row.what;
  }
}

TEST_F(PartitionLookup, GptLinksAreTriedFrom0To10) {
  for (int index = 0; index <= 11; ++index) {
    std::filesystem::remove_all(host("/dev/block/platform"));
    link_by_name(index, "mfg", "/dev/block/mmcblk0p6");
    chosen_path();
    const std::string directory = printf_text("/dev/block/platform/msm_sdcc.%d/by-name/", index);
    Log expected = {EE("/proc/emmc: No such file or directory\n"),
                    EE("emmc_open(): cannot find eMMC partition [mfg]!\n")};
    if (index <= 10) {
      expected.push_back(ED("emmc GPT partition exist, path[" + directory + "]\n"));
      expected.push_back(ED("found emmc GPT partition [mfg]=[/dev/block/mmcblk0p6]\n"));
    } else {
      expected.push_back(ED("cannot find emmc GPT partition\n"));
      expected.push_back(EE("emmc_open(): cannot find GPT eMMC partition [mfg]!\n"));
      expected.push_back(EE("emmc_open [TempTest] set (mfg)\n"));
      expected.push_back(EE("emmc_open [TempTest] path [/dev/block/mmcblk0p6]\n"));
    }
    EXPECT_EQ(phone().take_log(), expected) << index;
  }
}

TEST_F(PartitionLookup, OddLinksAreFollowedAsFarAsTheyGo) {
  link_by_name(0, "mfg", "");
  link_by_name(3, "mfg", "/dev/block/first");
  link_by_name(4, "mfg", "/dev/block/second");
  EXPECT_EQ(chosen_path(), "/dev/block/first")
      << "a folder without the name moves on, and the first hit wins";
  EXPECT_EQ(phone().take_log().back(), EE("emmc_open(): /dev/block/first: No such file or directory\n"));

  EXPECT_EQ(chosen_path(std::string(2000, 'x').c_str()), "/dev/block/mmcblk0p6") << "an overlong name";
  link_by_name(1, "mfg", "/dev/block/" + std::string(400, 'x'));
  EXPECT_EQ(chosen_path(), "/dev/block/" + std::string(255 - 11, 'x'))
      << "an overlong target is cut to the path";
  const auto log = phone().take_log();
  const auto said = ED("found emmc GPT partition [mfg]=[/dev/block/" + std::string(256 - 11, 'x') + "]\n");
  EXPECT_EQ(std::count(log.begin(), log.end(), said), 1) << "and to one byte more in the log";
}

TEST_F(PartitionLookup, TheFrontEndFallsBackToMtdWhenPartition6CannotBeOpened) {
  std::filesystem::remove(host("/dev/block/mmcblk0p6"));
  partition_handle handle{};
  phone().take_log();
  EXPECT_EQ(partition_open(&handle, "mfg"), -1);
  EXPECT_EQ(handle.emmc, nullptr);
  EXPECT_EQ(handle.mtd, nullptr);
  const auto log = phone().take_log();
  ASSERT_GE(log.size(), 3U);
  EXPECT_EQ(log[log.size() - 3], EE("emmc_open(): /dev/block/mmcblk0p6: No such file or directory\n"));
  EXPECT_EQ(log[log.size() - 2], E("mtd_open(): cannot find MTD partition [mfg]!\n", kMtdTag));
  EXPECT_EQ(log[log.size() - 1], E("partition_open(): cannot find partition [mfg]!\n", kFrontTag));
  EXPECT_TRUE(log_of([&] { EXPECT_EQ(partition_close(&handle), -1); }).empty());
}

class PartitionTransfer : public PhoneTest {
 protected:
  static constexpr int64_t kSize = 256 * 1024;
  PartitionTransfer() {
    fill_partition(kSize);
    EXPECT_EQ(partition_open(&handle_, "mfg"), 0);
    phone().take_log();
    phone().take_calls();
  }
  ~PartitionTransfer() override { partition_close(&handle_); }

  partition_handle handle_{};
};

TEST_F(PartitionTransfer, MovesExactlyTheBytesAskedFor) {
  const Bytes before = phone().partition();
  for (const int64_t offset : {int64_t{0}, int64_t{1}, int64_t{511}, int64_t{0x21E08}, kSize - 300}) {
    for (const int64_t length : {1, 4, 32, 255, 300}) {
      Bytes read(static_cast<size_t>(length) + 1, 0xA5);
      EXPECT_EQ(partition_read(&handle_, offset, length, read.data()), 0);
      EXPECT_TRUE(std::equal(read.begin(), read.end() - 1, before.begin() + offset));
      EXPECT_EQ(read.back(), 0xA5) << "one byte too many";
      const Bytes written = pattern(static_cast<size_t>(length), 77);
      expect_partition_write(static_cast<uint64_t>(offset), written, [&] {
        EXPECT_EQ(partition_write(&handle_, offset, length, written.data()), 0);
      });
      phone().write_partition(static_cast<uint64_t>(offset), before.data() + offset,
                              static_cast<size_t>(length));
    }
  }
}

TEST_F(PartitionTransfer, IsOneSeekAndOneTransferThatSaysWhyItFailed) {
  const std::string device = "/dev/block/mmcblk0p6";
  struct Row {
    const char* call;
    int error;
    const char* text;
  };
  for (const bool write : {false, true}) {
    const std::string verb = write ? "write" : "read";
    const auto use = D("use emmc_" + verb + "(), path = " + device + "\n", kFrontTag);
    uint8_t bytes[8] = {};
    const auto transfer = [&] {
      return write ? partition_write(&handle_, 0, 8, bytes) : partition_read(&handle_, 0, 8, bytes);
    };
    phone().take_calls();
    EXPECT_EQ(log_of([&] { EXPECT_EQ(transfer(), 0); }), std::vector{use});
    EXPECT_EQ(phone().take_calls(), (std::vector<phone::Call>{{"lseek", device}, {verb, device}}));
    for (const Row& row :
         {Row{"lseek", EIO, "seek /dev/block/mmcblk0p6: Input/output error\n"},
          Row{write ? "write" : "read", EROFS, " /dev/block/mmcblk0p6: Read-only file system\n"}}) {
      phone().clear_faults();
      phone().add_fault({.call = row.call, .path = device, .error = row.error});
      const bool is_seek = row.error == EIO;
      const std::string line = "emmc_" + verb + "(): " + (is_seek ? "" : verb) + row.text;
      EXPECT_EQ(log_of([&] { EXPECT_EQ(transfer(), -1); }), (std::vector{use, EE(line)}));
      EXPECT_EQ(error, row.error);
      EXPECT_EQ(phone().take_calls().size(), is_seek ? 1U : 2U) << "nothing moves after a failed seek";
    }
  }
}

TEST_F(PartitionTransfer, TheDeviceIsOpenedReadWriteWithoutOtherFlags) {
  const int flags = fcntl(handle_.emmc->fd, F_GETFL);
  EXPECT_EQ(flags & (O_ACCMODE | O_APPEND | O_DIRECT | O_NONBLOCK | O_SYNC), O_RDWR);
  EXPECT_EQ(fcntl(handle_.emmc->fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(PartitionTransfer, ShortTransfersFailAndTheImageNeverGrows) {
  uint8_t bytes[64] = {};
  for (const int64_t offset : {kSize - 63, kSize, kSize + 1, int64_t{1} << 40}) {
    EXPECT_EQ(partition_read(&handle_, offset, 64, bytes), -1) << offset;
    EXPECT_EQ(partition_write(&handle_, offset, 64, bytes), -1) << offset;
  }
  phone().add_fault({.call = "write", .path = "/dev/block/mmcblk0p6", .transfer = 3});
  EXPECT_EQ(partition_write(&handle_, 0, 64, bytes), -1) << "not tried again";
  for (const char* call : {"read", "write"}) {
    phone().clear_faults();
    phone().add_fault({.call = call, .path = "/dev/block/mmcblk0p6", .transfer = 3});
    const int64_t length = (int64_t{1} << 32) + 3;
    EXPECT_EQ((*call == 'r' ? partition_read(&handle_, 0, length, bytes)
                            : partition_write(&handle_, 0, length, bytes)),
              -1);
  }
  EXPECT_EQ(phone().partition().size(), static_cast<size_t>(kSize));
}

TEST_F(PartitionTransfer, ClosesOnceWhateverTheOtherPointerHolds) {
  partition_handle handle{};
  handle.mtd = reinterpret_cast<mtd_partition*>(8);
  ASSERT_EQ(partition_open(&handle, "mfg"), 0);
  EXPECT_EQ(handle.mtd, reinterpret_cast<mtd_partition*>(8)) << "an eMMC open leaves it";
  EXPECT_EQ(log_of([&] { EXPECT_EQ(partition_close(&handle), 0); }),
            (std::vector{E("partition_close(): emmc_close\n", kFrontTag)}));
  EXPECT_EQ(handle.mtd, nullptr);
  EXPECT_EQ(handle.emmc, nullptr);
  EXPECT_EQ(partition_close(&handle), -1);

  emmc_state state{};
  ASSERT_EQ(emmc_open(&state, "mfg"), 0);
  EXPECT_EQ(emmc_close(&state), 0);
  EXPECT_EQ(state.fd, -1);
  EXPECT_EQ(emmc_close(&state), 0);
}

}  // namespace
