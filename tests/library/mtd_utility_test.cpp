// Does each function of the MTD utility give its documented result, errno, lines and bytes, also when blocks or
// memory are bad? Guards against callers outside this library finding out in the field.

#include <mtd/mtd-user.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "tests/support/nand_phone.h"

namespace {

using namespace support;

constexpr uint32_t kBlock = 4096;
const uint32_t kEraseSizeAtFirst = erase_size;

/// Blocks 2 and 5 are marked bad.
class MtdUtility : public NandPhone {
 protected:
  MtdUtility() : NandPhone({.erase_size = kBlock, .blocks = 8, .factory_bad = {2, 5}}) {
    erase_size = kBlock;
  }
  ~MtdUtility() override { drop_table(); }

  static void drop_table() {
    mtd_data_handle handle{nullptr, std::malloc(1)};
    mtd_data_close(&handle);
  }
  /// The contents of the good blocks, in order.
  Bytes usable() {
    Bytes all;
    for (const uint32_t block : {0U, 1U, 3U, 4U, 6U, 7U}) {
      const Bytes bytes = nand().block_bytes(block);
      all.insert(all.end(), bytes.begin(), bytes.end());
    }
    return all;
  }
  /// From now on the nth of those calls fails.
  void fail(const char* call, const char* path = kMtdPath, unsigned nth = 1, int error_number = EIO) {
    phone().clear_faults();
    phone().add_fault({.call = call, .path = path, .nth = nth, .error = error_number});
  }
};

// ---- the table --------------------------------------------------------------------------------------------

TEST_F(MtdUtility, TheTableKeepsWhatEarlierScansFound) {
  const std::string longest(63, 'a');
  list_in_proc_mtd("dev:\nmtd0: 1 1 \"" + longest +
                   "\"\nmtd31: 20000 1000 \"last\"\nmtd32: 1 1 \"out\"\nmtd-1: 1 1 \"out\"\n");
  EXPECT_EQ(said([] { EXPECT_EQ(mtd_scan_partitions(), 2); }), "Ig_mtd_state.partitions 0\n|");
  const mtd_partition* last = mtd_find_partition_by_name("last");
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(last->index, 31);
  EXPECT_EQ(last->size, 0x20000U);
  EXPECT_EQ(last->erase_size, 0x1000U);
  EXPECT_EQ(mtd_find_partition_by_name("out"), nullptr);
  EXPECT_NE(mtd_find_partition_by_name(longest.c_str()), nullptr) << "number 0";

  list_in_proc_mtd("mtd3: 8000 1000 \"mfg\"\n");
  EXPECT_NE(said([] { EXPECT_EQ(mtd_scan_partitions(), 1); }), "Ig_mtd_state.partitions 0\n|");
  EXPECT_EQ(mtd_find_partition_by_name(last->name), last) << "no longer listed, and its own name stays valid";
  drop_table();
  EXPECT_EQ(mtd_find_partition_by_name("last"), nullptr);
  EXPECT_STREQ(last->name, "last") << "dropped, not freed";
}

TEST_F(MtdUtility, AScanReads2047BytesAndFailsWithoutFileOrMemory) {
  const std::string line = "mtd3: 8000 1000 \"mfg\"";
  list_in_proc_mtd(std::string(2047 - line.size(), '\n') + line);
  EXPECT_EQ(mtd_scan_partitions(), 1);
  list_in_proc_mtd(std::string(2048 - line.size(), '\n') + line);
  EXPECT_EQ(mtd_scan_partitions(), 1) << "without its quote";
  EXPECT_NE(mtd_find_partition_by_name("mfg"), nullptr) << "a name that ends with the text";
  list_in_proc_mtd("mtd3: 8000 1000 \"mfg\"\n");
  for (const auto& [call, path, expected] :
       {std::tuple{"open", "/proc/mtd", EACCES}, {"read", "/proc/mtd", EIO}, {"malloc", "", ENOMEM}}) {
    fail(call, path, 1, expected);
    EXPECT_EQ(mtd_scan_partitions(), -1) << call;
    EXPECT_EQ(errno, expected);
  }
  EXPECT_NE(mtd_find_partition_by_name("mfg"), nullptr);
  drop_table();
  fail("malloc", "");
  EXPECT_EQ(mtd_find_partition_by_name("mfg"), nullptr) << "no table";
  EXPECT_EQ(errno, ENOMEM);
}

// ---- streams ----------------------------------------------------------------------------------------------

// The bytes that streams move, in pieces of any length, are those of mtd_fault_test's model.
TEST_F(MtdUtility, StreamsHaveACopyOfTheirPartitionAndEndWithTheGoodBlocks) {
  mtd_partition partition = *state();
  mtd_read_context* in = mtd_read_partition(&partition);
  mtd_write_context* out = mtd_write_partition(&partition);
  ASSERT_TRUE(in != nullptr && out != nullptr);
  partition = {};
  Bytes read(7 * kBlock);
  log_of([&] { EXPECT_EQ(mtd_read_data(in, read.data(), 7 * kBlock), -1); });
  EXPECT_EQ(error, ENOSPC);
  EXPECT_EQ(mtd_read_data(in, read.data(), 0), 0);
  mtd_read_close(in);

  const Bytes data = pattern(6 * kBlock, 70);
  EXPECT_EQ(mtd_write_data(out, data.data(), 6 * kBlock), 6 * kBlock);
  EXPECT_EQ(mtd_write_data(out, data.data(), 100), 100) << "waits in the context";
  log_of([&] { EXPECT_EQ(mtd_write_data(out, data.data(), kBlock), -1); });
  EXPECT_EQ(error, ENOSPC);
  log_of([&] { EXPECT_EQ(mtd_write_close(out), -1); });
  EXPECT_EQ(error, ENOSPC);
  EXPECT_EQ(usable(), data);
}

TEST_F(MtdUtility, BytesThatCannotBeWrittenAtTheCloseAreNoSuccess) {
  for (const auto& [call, path, expected] : {std::tuple{"malloc", "", ENOMEM}, {"close", kMtdPath, EIO}}) {
    mtd_write_context* stream = mtd_write_partition(state());
    EXPECT_EQ(mtd_write_data(stream, "abc", 3), 3);
    fail(call, path, 1, expected);
    phone().add_fault({.call = "close", .path = kMtdPath, .error = EDQUOT});  // too late to count
    log_of([&, call = call] { EXPECT_EQ(mtd_write_close(stream), -1) << call; });
    EXPECT_EQ(error, expected);
  }
}

TEST_F(MtdUtility, EraseBlocksCountsBadBlocksAndFlushesFirst) {
  struct Row {
    int32_t blocks;
    int64_t result;
    unsigned erased;
    std::string lines = "";
  };
  const std::string first = "Emtd: not erasing bad block at 0x00002000\n|";
  const std::string both = first + "Emtd: not erasing bad block at 0x00005000\n|";
  for (const Row& row :
       {Row{0, kBlock, 0}, Row{1, 2 * kBlock, 1}, Row{3, 4 * kBlock, 2, first}, Row{-1, 8 * kBlock, 5, both},
        Row{7, 8 * kBlock, 5, both}, Row{8, -1, 0}, Row{INT32_MAX, -1, 0}}) {
    mtd_write_context* stream = mtd_write_partition(state());
    EXPECT_EQ(mtd_write_data(stream, "abc", 3), 3);
    const unsigned before = erases();
    int64_t result = 0;
    EXPECT_EQ(said([&] { result = mtd_erase_blocks(stream, row.blocks); }), row.lines) << row.blocks;
    EXPECT_EQ(result, row.result) << row.blocks;
    EXPECT_EQ(erases() - before, row.erased + 1) << "one for the waiting bytes";
    EXPECT_TRUE(result >= 0 || error == ENOSPC) << row.blocks;
    EXPECT_EQ(mtd_write_close(stream), 0);
  }
  EXPECT_EQ(nand().block_bytes(0)[2], 'c');
  EXPECT_EQ(nand().block_bytes(0)[3], 0);
}

TEST_F(MtdUtility, EraseBlocksUsesABlockThatItCannotAskAboutAndGoesOnAfterAFailure) {
  nand().add_fault({.op = Op::ask_bad, .block = 0});
  nand().add_fault({.op = Op::erase, .block = 1});
  mtd_write_context* stream = mtd_write_partition(state());
  EXPECT_EQ(said([&] { EXPECT_EQ(mtd_erase_blocks(stream, 2), 2 * kBlock); }),
            "Emtd: erase failure at 0x00001000\n|");
  EXPECT_EQ(nand().block_bytes(0), Bytes(kBlock, 0xFF));
  phone().add_fault({.call = "lseek", .path = kMtdPath, .from_then_on = true});
  const unsigned before = erases();
  EXPECT_EQ(mtd_erase_blocks(stream, 1), -1);
  EXPECT_EQ(mtd_write_data(stream, content(0).data(), kBlock), -1) << "where is not known";
  EXPECT_EQ(mtd_write_close(stream), -1);
  EXPECT_EQ(erases(), before);
}

TEST_F(MtdUtility, AnEraseSizeOf0EndsTheStreamsButNotAnEraseOf0Blocks) {
  state()->erase_size = 0;
  uint8_t byte = 0;
  mtd_read_context* in = mtd_read_partition(state());
  mtd_write_context* out = mtd_write_partition(state());
  ASSERT_TRUE(in != nullptr && out != nullptr);
  EXPECT_EQ(mtd_read_data(in, &byte, 1), -1);
  EXPECT_EQ(mtd_write_data(out, &byte, 1), -1);
  EXPECT_EQ(mtd_erase_blocks(out, 1), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(mtd_erase_blocks(out, -1), 0);
  mtd_read_close(in);
  EXPECT_EQ(mtd_write_close(out), 0);
}

// ---- whole partitions through a descriptor ----------------------------------------------------------------

class MtdDescriptor : public MtdUtility {
 protected:
  MtdDescriptor() : fd_(mtd_open_partition_device(state())) { EXPECT_GE(fd_, 0); }
  ~MtdDescriptor() override { close(fd_); }
  const int fd_;
};

TEST_F(MtdDescriptor, TellsWhatTheKernelSays) {
  mtd_info_user info{};
  EXPECT_EQ(mtd_get_partition_info(fd_, &info), 0);
  EXPECT_EQ(info.size, 8 * kBlock);
  region_info_user region{};
  EXPECT_EQ(mtd_get_partition_region_info(fd_, &region), 0);
  EXPECT_EQ(region.numblocks, 8U);
  region.regionindex = 9;
  EXPECT_EQ(mtd_get_partition_region_info(fd_, &region), -1);
  mtd_partition missing{};
  missing.index = 9;
  EXPECT_EQ(said([&] { EXPECT_EQ(mtd_open_partition_device(&missing), -1); }),
            "Ecannot open device [/dev/mtd/mtd9]!\n|");
  EXPECT_EQ(error, ENOENT);
}

TEST_F(MtdDescriptor, EraseInfoErasesGoodBlocksAndSaysEachStep) {
  nand().add_fault({.op = Op::ask_bad, .block = 3});
  nand().add_fault({.op = Op::erase, .block = 4});
  EXPECT_EQ(said([&] { EXPECT_EQ(mtd_set_partition_erase_info(fd_, kBlock, 7 * kBlock), -1); }),
            "Dtrying to erase offset 4096|Doffset 8192 is bad block, skip...|"
            "Doffset 12288 is bad block, skip...|Dtrying to erase offset 16384|"
            "Derasing offset 16384 failed, errno = 5|Doffset 20480 is bad block, skip...|"
            "Dtrying to erase offset 24576|");
  EXPECT_EQ(error, EIO);
  EXPECT_EQ(nand().block_bytes(6), Bytes(kBlock, 0xFF)) << "goes on after a failure";
  EXPECT_EQ(mtd_set_partition_erase_info(fd_, 0, 2 * kBlock), 0);
  erase_size = 0x20000;
  EXPECT_EQ(said([&] { EXPECT_EQ(mtd_set_partition_erase_info(fd_, 0, 0x30000), -1); }),
            "Elength 196608 is not a multiple of erase size 131072|");
  erase_size = 0x30000;
  EXPECT_EQ(said([&] { EXPECT_EQ(mtd_set_partition_erase_info(fd_, 0xFFFE0000, 0xFFFF0000), 0); }),
            "Doffset -131072 is bad block, skip...|")
      << "what follows the last block lies past 4 GiB";
  erase_size = 0;
  EXPECT_EQ(mtd_set_partition_erase_info(fd_, 0, kBlock), -1);
  EXPECT_EQ(kEraseSizeAtFirst, 0x20000U);
}

/// A transfer that moves what its script says, and what it was asked for.
struct Script {
  std::vector<std::pair<ssize_t, int>> answers;  // bytes moved, errno; then whole pieces
  std::vector<std::pair<size_t, size_t>> asked;  // offset in the buffer, count
  char* buffer;
};
Script script;

ssize_t scripted(int fd, void* at, size_t count) {
  EXPECT_EQ(fd, 42);
  script.asked.emplace_back(static_cast<char*>(at) - script.buffer, count);
  const size_t call = script.asked.size() - 1;
  if (call >= script.answers.size()) return static_cast<ssize_t>(count);
  errno = script.answers[call].second;
  return script.answers[call].first;
}

TEST_F(MtdUtility, RepeatsInHalvesWhileMemoryIsShort) {
  struct Row {
    const char* what;
    uint32_t total;
    decltype(Script::answers) answers;
    int32_t result;
    decltype(Script::asked) asked;
  };
  // clang-format off
  const Row rows[] = {
      {"halves do", 0x20000, {}, 0, {{0, 0x10000}, {0x10000, 0x10000}}},
      {"then quarters, from the start", 0x4000, {{0x2000, 0}, {-1, ENOMEM}}, 0,
       {{0, 0x2000}, {0x2000, 0x2000}, {0, 0x1000}, {0x1000, 0x1000}, {0x2000, 0x1000}, {0x3000, 0x1000}}},
      {"another error", 0x4000, {{-1, EIO}}, -1, {{0, 0x2000}}},
      {"a short piece, whatever errno held", 0x4000, {{0x1FFF, ENOMEM}}, -1, {{0, 0x2000}}},
      {"down to 2048 bytes", 0x2000, {{-1, ENOMEM}, {-1, ENOMEM}}, -1, {{0, 0x1000}, {0, 0x800}}},
      {"too small to halve", 0xFFF, {}, -1, {}},
      {"an odd length never fits", 0x2001, {}, -1, {{0, 0x1000}, {0x1000, 0x1000}, {0, 0x800}, {0x800, 0x800}, {0x1000, 0x800}, {0x1800, 0x800}}},
      {"nothing", 0, {}, -1, {}},
      {"past 2 GiB", 0xC0000000, {{-1, ENOMEM}}, 0,
       {{0, 0x60000000}, {0, 0x30000000}, {0x30000000, 0x30000000}, {0x60000000, 0x30000000}, {0x90000000, 0x30000000}}},
  };
  // clang-format on
  Bytes buffer(0x20000);
  for (const Row& row : rows) {
    script = {row.answers, {}, reinterpret_cast<char*>(buffer.data())};
    EXPECT_EQ(alloc_mtd_repeat_and_do(scripted, 42, buffer.data(), row.total), row.result) << row.what;
    EXPECT_EQ(script.asked, row.asked) << row.what;
  }
}

TEST_F(MtdDescriptor, ReadsAWholePartitionOrItsSize) {
  uint32_t size = 0;
  EXPECT_EQ(said([&] { EXPECT_EQ(mtd_read_partition_data(fd_, &size, nullptr), 0); }),
            "Dpartition size = 32768|");
  EXPECT_EQ(size, 8 * kBlock);
  EXPECT_EQ(mtd_read_partition_data(fd_, &size, nullptr), -1) << "a size and nowhere to put it";
  size = 0;
  void* out = nullptr;
  ASSERT_EQ(mtd_read_partition_data(fd_, &size, &out), 0);
  const auto* bytes = static_cast<const uint8_t*>(out);
  EXPECT_TRUE(std::equal(content(7).begin(), content(7).end(), bytes + 7 * kBlock));
  std::free(out);

  const auto fails = [&] { EXPECT_EQ(mtd_read_partition_data(fd_, &size, &out), -1); };
  size = 9 * kBlock;
  EXPECT_EQ(said([&] { errno = ENOMEM, fails(); }), "Ecannot read 36864 bytes from partition! errno = 12|")
      << "short, which says nothing of memory";
  EXPECT_EQ(out, nullptr);
  fail("lseek");
  EXPECT_EQ(said(fails), "");
  size = 0;
  fail("ioctl");
  EXPECT_EQ(said(fails), "Dcannot get partition info!|");
  EXPECT_EQ(error, EIO);
  fail("malloc", "");
  size = kBlock;
  EXPECT_EQ(said(fails), "");
  EXPECT_EQ(error, ENOMEM);
}

TEST_F(MtdDescriptor, RetriesAWholeTransferThatRanOutOfMemory) {
  fail("read", kMtdPath, 1, ENOMEM);
  uint32_t size = 8 * kBlock;
  void* out = nullptr;
  EXPECT_EQ(said([&] { EXPECT_EQ(mtd_read_partition_data(fd_, &size, &out), 0); }),
            "Ecannot read 32768 bytes from partition! errno = 12|Dtry again: data size 0x4000, loops 2\n|"
            "D> loop 0, data size 0x4000, total 0x4000 bytes\n|"
            "D> loop 1, data size 0x4000, total 0x8000 bytes\n|");
  EXPECT_EQ(std::memcmp(out, content(0).data(), kBlock), 0);
  std::free(out);

  phone().add_fault({.call = "read", .path = kMtdPath, .from_then_on = true, .error = ENOMEM});
  const auto lines = log_of([&] { EXPECT_EQ(mtd_read_partition_data(fd_, &size, &out), -1); });
  EXPECT_EQ(lines[2].text, "this try also fails: Cannot allocate memory(12)!\n");
  EXPECT_EQ(lines.size(), 1U + 2 * 4) << "0x4000, 0x2000, 0x1000, 0x800";
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(error, ENOMEM);
}

TEST_F(MtdDescriptor, WritesAWholePartitionOverErasedBlocks) {
  const Bytes data = pattern(2 * kBlock, 70);
  ASSERT_EQ(mtd_write_partition_data(fd_, 2 * kBlock, data.data()), 0);
  EXPECT_EQ(nand().block_bytes(1), Bytes(data.begin() + kBlock, data.end()));
  fail("write", kMtdPath, 1, ENOMEM);
  const auto lines = log_of([&] { EXPECT_EQ(mtd_write_partition_data(fd_, 2 * kBlock, data.data()), 0); });
  EXPECT_EQ(lines[2].text, "cannot write 8192 bytes to partition! errno = 12");
  EXPECT_EQ(nand().block_bytes(0), Bytes(data.begin(), data.begin() + kBlock));
  fail("write");
  log_of([&] { EXPECT_EQ(mtd_write_partition_data(fd_, kBlock, data.data()), -1); });
  EXPECT_EQ(error, EIO);
  fail("lseek");
  EXPECT_EQ(calls_of([&] { EXPECT_EQ(mtd_write_partition_data(fd_, kBlock, data.data()), -1); }).back(),
            "lseek");
  phone().clear_faults();
  phone().add_fault({.call = "write", .path = kMtdPath, .transfer = 0});
  EXPECT_EQ(calls_of([&] { EXPECT_EQ(mtd_write_partition_data(fd_, kBlock, data.data()), -1); }).back(),
            "write")
      << "a short write is not tried again";
  EXPECT_EQ(mtd_write_partition_data(fd_, 100, data.data()), -1) << "no multiple of the erase size";
  EXPECT_TRUE(nand().violations().empty());
}

// ---- by name ----------------------------------------------------------------------------------------------

TEST_F(MtdUtility, DataIsReadAndWrittenByName) {
  mtd_data_handle handle{.partition = nullptr, .data = &handle};  // what is no pointer of the library's
  log_of([&] { ASSERT_EQ(mtd_data_open(&handle, "mfg"), 0); });
  EXPECT_EQ(mtd_data_write(&handle), -1) << "no data yet";
  EXPECT_EQ(said([&] { EXPECT_EQ(mtd_data_read_block(&handle), 0); }),
            "Emtd_read_data returns 4096, errno = Success|")
      << "a block is not the partition";
  EXPECT_EQ(std::memcmp(handle.data, content(0).data(), kBlock), 0);
  EXPECT_EQ(log_of([&] { EXPECT_EQ(mtd_data_read(&handle), 0); }).back().text,
            "mtd_read_data returns -1, errno = No space left on device")
      << "two blocks are bad";
  EXPECT_EQ(std::memcmp(handle.data, usable().data(), 6 * kBlock), 0);

  const Bytes data = pattern(8 * kBlock, 70);
  std::memcpy(handle.data, data.data(), data.size());
  EXPECT_EQ(said([&] { EXPECT_EQ(mtd_data_write_block(&handle), 0); }), "Dtrying to write length 4096|");
  EXPECT_EQ(nand().block_bytes(0), Bytes(data.begin(), data.begin() + kBlock));
  EXPECT_EQ(log_of([&] { EXPECT_EQ(mtd_data_write(&handle), -1); }).back().text,
            "mtd_write_data returns -1, errno = No space left on device");
  EXPECT_EQ(error, ENOSPC);
  EXPECT_EQ(usable(), Bytes(data.begin(), data.begin() + 6 * kBlock));
  EXPECT_EQ(mtd_data_close(&handle), 0);
  EXPECT_EQ(handle.data, nullptr);
  EXPECT_EQ(said([] { mtd_scan_partitions(); }), "Ig_mtd_state.partitions 0\n|");
}

TEST_F(MtdUtility, DataCallsSayWhatFailedAndLeaveErrno) {
  mtd_data_handle handle{};
  EXPECT_EQ(log_of([&] { EXPECT_EQ(mtd_data_open(&handle, "none"), -1); }).back().text,
            "cannot find partition [none]!");
  ASSERT_EQ(mtd_data_open(&handle, "mfg"), 0);
  struct Row {
    const char *call, *path;
    unsigned nth;
    int32_t (*made)(mtd_data_handle*);
    int error;
    const char* line;
  };
  const auto check = [&](const Row& row) {
    fail(row.call, row.path, row.nth, row.error);
    phone().add_fault({.call = "close", .path = kMtdPath, .error = EDQUOT});
    const auto lines = log_of([&] { EXPECT_EQ(row.made(&handle), -1) << row.line; });
    EXPECT_EQ(lines.empty() ? "" : lines.back().text, row.line);
    EXPECT_EQ(error, row.error) << row.line;
  };
  // clang-format off
  check({"open", kMtdPath, 1, mtd_data_read, EIO, "Can't open mfg\n(Input/output error)\n"});
  check({"malloc", "", 3, mtd_data_read, ENOMEM, "cannot malloc 32768 bytes"});
  check({"malloc", "", 3, mtd_data_read_block, ENOMEM, "cannot malloc 4096 bytes"});
  EXPECT_EQ(handle.data, nullptr);
  phone().clear_faults();
  EXPECT_EQ(mtd_data_read_block(&handle), 0);
  check({"open", kMtdPath, 1, mtd_data_read, EIO, "Can't open mfg\n(Input/output error)\n"});
  check({"open", kMtdPath, 1, mtd_data_write, EIO, "Can't open mfg\n(Input/output error)\n"});
  check({"malloc", "", 3, mtd_data_write_block, ENOMEM, "mtd_write_data returns 4294967295, errno = Cannot allocate memory"});
  check({"malloc", "", 3, mtd_data_write, ENOMEM, "mtd_write_data returns -1, errno = Cannot allocate memory"});
  EXPECT_EQ(erases(), 0U) << "before anything is erased";
  check({"close", kMtdPath, 1, mtd_data_write_block, EIO, "Can't finish writing mfg\n(Input/output error)\n"});
  // clang-format on

  // The one block that was read is followed by zeros, up to what the partition takes.
  phone().clear_faults();
  log_of([&] { EXPECT_EQ(mtd_data_write(&handle), -1) << "two blocks are bad"; });
  Bytes expected = content(0);
  expected.resize(6 * kBlock);
  EXPECT_EQ(usable(), expected);
  EXPECT_EQ(mtd_data_close(&handle), 0);
}

}  // namespace
