// Does the MTD back end find its partition, and ask, seek, erase and log exactly as documented around each
// block? Guards against an erase too many, a block read twice and a failure that nobody can see on a phone.

#include <cstring>

#include "tests/support/nand_phone.h"

namespace {

using namespace support;

class MtdBackend : public NandPhone {};

// ---- finding the partition --------------------------------------------------------------------------------

TEST_F(MtdBackend, FindsTheFirstWholeNameInTheFirst511BytesOfProcMtd) {
  const std::string line = "mtd3: 00008000 00001000 \"mfg\"";
  const auto padded = [&](size_t end) {
    return std::string(end - line.size() - 1, 'x') + "\n" + line + "\n";
  };
  const std::string long_name = "mtd1: 00008000 00001000 \"" + std::string(70, 'n') + "\"\n";
  struct Row {
    const char* what;
    std::string text;
    bool found;
    uint32_t size = 0x8000;
  };
  const Row rows[] = {
      {"with the kernel's header", "dev:    size   erasesize  name\n" + line + "\n", true},
      {"without a header or a newline", line, true},
      {"the first of two", line + "\nmtd5: 00004000 00001000 \"mfg\"\n", true},
      {"whole names only", "mtd1: 1 1 \"mfg2\"\nmtd2: 1 1 \"mf\"\nmtd3: 1 1 \"MFG\"\n", false},
      {"behind an overlong name", long_name + line + "\n", true},
      {"no closing quote", "mtd3: 00008000 00001000 \"mfg\nmtd4: 1 1 \"x\"\n", true},
      {"unquoted", "mtd3: 00008000 00001000 mfg\n", false},
      {"sizes missing", "mtd3: \"mfg\"\n", false},
      {"ends at byte 511", padded(511), true},
      {"cut before its closing quote", padded(512), true},
      {"cut inside its name", padded(513), false},
      {"begins behind byte 511", std::string(511, '\n') + line + "\n", false},
      {"a number that is 3 in 32 bits", "mtd4294967299: 00008000 00001000 \"mfg\"\n", false},
      {"a size above 2 GiB", "mtd3: c0000000 00001000 \"mfg\"\n", true, 0xC0000000},
      {"a size above 4 GiB", "mtd3: 100008000 00001000 \"mfg\"\n", true, UINT32_MAX},
      {"empty", "", false},
  };
  for (const Row& row : rows) {
    list_in_proc_mtd(row.text);
    mtd_partition found{};
    const auto lines = said([&] { EXPECT_EQ(mtd_open(&found, "mfg"), row.found ? 0 : -1) << row.what; });
    EXPECT_STREQ(found.path, row.found ? kMtdPath : "") << row.what;
    EXPECT_EQ(found.size, row.found ? row.size : 0) << row.what;
    EXPECT_EQ(found.erase_size, row.found ? 0x1000U : 0U) << row.what;
    if (row.found) {
      EXPECT_TRUE(lines.empty() && found.fd >= 0 && found.index == 3) << row.what;
      EXPECT_EQ(mtd_close(&found), 0);
      EXPECT_EQ(found.fd, -1);
      EXPECT_EQ(mtd_close(&found), 0) << "closed already";
    } else {
      EXPECT_EQ(lines, "Emtd_open(): cannot find MTD partition [mfg]!\n|") << row.what;
    }
  }
}

TEST_F(MtdBackend, OpensWithOneReadAndSaysWhatDoesNotOpen) {
  mtd_partition found{};
  EXPECT_EQ(calls_of([&] { mtd_open(&found, "mfg"); }), (Names{"open", "read", "close", "open"}));
  mtd_close(&found);
  const auto open = [&] { EXPECT_EQ(mtd_open(&found, "mfg"), -1); };
  for (const char* call : {"open", "read"}) {
    phone().add_fault({.call = call, .path = "/proc/mtd"});
    phone().add_fault({.call = "close", .path = "/proc/mtd", .error = EDQUOT});
    EXPECT_EQ(said(open), "Emtd_open(): cannot find MTD partition [mfg]!\n|");
    EXPECT_EQ(error, EIO);
    EXPECT_STREQ(found.path, "") << "not that of the open before";
    std::strcpy(found.path, kMtdPath);
  }
  list_in_proc_mtd("mtd7: 00008000 00001000 \"mfg\"");
  EXPECT_EQ(said(open), "Emtd_open(): /dev/mtd/mtd7: No such file or directory\n|");
  EXPECT_EQ(error, ENOENT);
  EXPECT_EQ(found.fd, -1);
}

TEST_F(MtdBackend, IsWhereTheFrontEndGoesWithoutEmmc) {
  for (const uint32_t bad : {0U, 3U, 4U}) nand().mark_bad(bad);  // which do not count in addresses
  partition_handle handle{};
  ASSERT_EQ(partition_open(&handle, "mfg"), 0);
  EXPECT_EQ(handle.emmc, nullptr);
  Bytes bytes(10);
  const std::string tag = "camera_calibration_partition";
  const auto read = [&] { EXPECT_EQ(partition_read(&handle, 2 * 4096 - 4, 10, bytes.data()), 0); };
  EXPECT_EQ(log_of(read, tag), Log{D("use mtd_read(), path = /dev/mtd/mtd3\n", tag)});
  Bytes expected(content(2).end() - 4, content(2).end());
  expected.insert(expected.end(), content(5).begin(), content(5).begin() + 6);
  EXPECT_EQ(bytes, expected);
  const Bytes data = pattern(3 * 4096, 70);
  const auto write = [&] { EXPECT_EQ(partition_write(&handle, 5000, 3 * 4096, data.data()), 0); };
  expect_partition_write(5000, data, [&] {
    EXPECT_EQ(log_of(write, tag), Log{D("use mtd_write(), path = /dev/mtd/mtd3\n", tag)});
  });
  EXPECT_EQ(partition_close(&handle), 0);
}

// ---- the exact calls --------------------------------------------------------------------------------------

Names operator+(Names left, const Names& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

const Names kStart = {"lseek"};
const Names kReadBegins = {"ioctl ECCGETSTATS", "lseek"};
const Names kReadBlock = {"lseek", "read", "ioctl ECCGETSTATS", "ioctl MEMGETBADBLOCK"};
const Names kWriteBlock = {"lseek", "ioctl MEMGETBADBLOCK", "ioctl MEMERASE", "lseek", "write", "lseek",
                           "read"};

TEST_F(MtdBackend, ReachesABlockWithOneReadOfEachBlockBeforeIt) {
  Bytes bytes(4096 + 100);
  const Names one = kReadBegins + kReadBlock;
  EXPECT_EQ(calls_of([&] { mtd_read(state(), 2 * 4096 + 50, 4096 + 100, bytes.data()); }),
            kStart + one + one + one + one);
  nand().set_block_bytes(1, Bytes(4096, 0));
  EXPECT_EQ(calls_of([&] { mtd_read(state(), 4096, 10, bytes.data()); }),
            kStart + one + kReadBegins + kReadBlock + kReadBlock)
      << "a block that is passed over costs no new baseline";
}

TEST_F(MtdBackend, WritesWholeBlocksUnreadAndMergesTheOthers) {
  const Bytes bytes = pattern(3 * 4096);
  const Names read = kReadBegins + kReadBlock;
  const Names merge = Names{"lseek"} + read + Names{"lseek"} + kWriteBlock;
  EXPECT_EQ(calls_of([&] { mtd_write(state(), 4096, 2 * 4096, bytes.data()); }),
            kStart + read + kWriteBlock + kWriteBlock);
  EXPECT_EQ(calls_of([&] { mtd_write(state(), 4000, 4096 + 200, bytes.data()); }),
            kStart + merge + kWriteBlock + merge);
  const unsigned erased[] = {1, 2, 2, 0, 0, 0, 0, 0};
  for (uint32_t block = 0; block < 8; ++block) EXPECT_EQ(nand().erase_count(block), erased[block]) << block;
}

// ---- the exact lines --------------------------------------------------------------------------------------

using Prepare = std::function<void(NandPhone&)>;

// clang-format off
void as_it_is(NandPhone&) {}
void zero_first(NandPhone& phone) { phone.nand().set_block_bytes(0, Bytes(4096, 0)); }
Prepare mark(uint32_t block) { return [=](NandPhone& phone) { phone.nand().mark_bad(block); }; }
// clang-format on
Prepare chip(Op op, int64_t block, Effect effect = Effect::fail, unsigned nth = 1, int64_t byte = 0) {
  return [=](NandPhone& phone) {
    phone.nand().add_fault({.op = op, .effect = effect, .block = block, .nth = nth, .byte = byte});
  };
}
Prepare chip_always(Op op, int64_t block) {
  return [=](NandPhone& phone) { phone.nand().add_fault({.op = op, .block = block, .from_then_on = true}); };
}
Prepare call(const char* name, unsigned nth, long transfer = -1) {
  const char* path = std::string_view(name) == "malloc" ? "" : kMtdPath;
  return [=](NandPhone& phone) {
    phone.phone().add_fault({.call = name, .path = path, .nth = nth, .transfer = transfer});
  };
}
Prepare operator+(const Prepare& first, const Prepare& second) {
  return [=](NandPhone& phone) { first(phone), second(phone); };
}

struct LogRow {
  Prepare prepare;
  std::string lines;
  int error = 0;  ///< of a transfer that fails
};

// Calls are counted from the transfer's seek to the start; the question for the position is the second.
const LogRow kReads[] = {
    {as_it_is, ""},
    {chip(Op::read, 0, Effect::ecc_corrected), ""},
    {mark(0), "Emtd: MEMGETBADBLOCK returned 1 at 0x00000000 (errno=0)\n|"},
    {chip(Op::ask_bad, 0), "Emtd: MEMGETBADBLOCK returned -1 at 0x00000000 (errno=5)\n|"},
    {chip(Op::read, 0), "Emtd: read error at 0x00000000 (Input/output error)\n|"},
    {call("read", 1, 4095), "Emtd: read error at 0x00000000 (Success)\n|"},
    {call("lseek", 3), "Emtd: read error at 0x00000000 (Input/output error)\n|"},
    {zero_first, "Emtd: read all-zero block at 0x00000000; skipping\n|"},
    // After an uncorrectable error no block is trusted.
    {zero_first + chip(Op::read, 0, Effect::ecc_corrected) + chip(Op::read, 1, Effect::ecc_failed),
     "Emtd: read all-zero block at 0x00000000; skipping\n|"
     "Emtd: ECC errors (1 soft, 1 hard) at 0x00001000\n|"
     "Emtd: ECC errors (1 soft, 1 hard) at 0x00002000\n|",
     ENOSPC},
    {chip(Op::read, 0, Effect::ecc_failed),
     "Emtd: ECC errors (0 soft, 1 hard) at 0x00000000\n|"
     "Emtd: ECC errors (0 soft, 1 hard) at 0x00001000\n|"
     "Emtd: ECC errors (0 soft, 1 hard) at 0x00002000\n|",
     ENOSPC},
    {chip(Op::ecc_stats, -1), "Emtd: ECCGETSTATS error (Input/output error)\n|", EIO},
    {chip(Op::ecc_stats, -1, Effect::fail, 2), "Emtd: ECCGETSTATS error (Input/output error)\n|", EIO},
    {call("lseek", 1), "Emtd_read(): lseek64(): Input/output error\n|", EIO},
    {call("lseek", 2), "", EIO},
    {call("malloc", 1), "Emtd_read(): malloc failed!\n|", ENOMEM},
};

const std::string kErase = "Emtd: erase failure at 0x00000000 (Input/output error)\n|";
const std::string kWrite = "Emtd: write error at 0x00000000 (Input/output error)\n|";
const std::string kReread = "Emtd: re-read error at 0x00000000 (Input/output error)\n|";
const std::string kVerify = "Emtd: verification error at 0x00000000 (Input/output error)\n|";
const std::string kSilent = "Emtd: verification error at 0x00000000 (Success)\n|";
const std::string kRetried = "Emtd: wrote block after 1 retries\n|";
const std::string kSkipped = "Emtd: skipping write block at 0x00000000\n|";

const LogRow kWrites[] = {
    {as_it_is, ""},
    {mark(0), "Emtd: not writing bad block at 0x00000000\n|"},
    {chip(Op::ask_bad, 0), ""},  // used all the same
    {chip(Op::erase, 0), kErase + kRetried},
    {chip_always(Op::erase, 0), kErase + kErase + kSkipped},
    {chip(Op::program, 0), kWrite + kVerify + kRetried},
    {chip_always(Op::program, 0), kWrite + kVerify + kWrite + kVerify + kSkipped},
    {chip(Op::program, 0, Effect::corrupt), kSilent + kRetried},
    {chip(Op::program, 0, Effect::corrupt, 1, -1), kSilent + kRetried},  // the last byte
    {chip(Op::read, 0, Effect::corrupt), kSilent + kRetried},
    {chip(Op::read, 0), kReread + kRetried},
    {call("write", 1, 2048), "Emtd: write error at 0x00000000 (Success)\n|" + kSilent + kRetried},
    {call("lseek", 3), kWrite + kVerify + kRetried},
    {call("lseek", 4), kReread + kRetried},
    {mark(1) + chip_always(Op::erase, -1),
     kErase + kErase + kSkipped + "Emtd: not writing bad block at 0x00001000\n|" +
         "Emtd: erase failure at 0x00002000 (Input/output error)\n|Emtd: erase failure at 0x00002000 (Input/output error)\n|" +
         "Emtd: skipping write block at 0x00002000\n|",
     ENOSPC},
    {call("lseek", 1), "Emtd_write(): lseek64(): Input/output error\n|", EIO},
    {call("lseek", 2), "", EIO},
    {call("malloc", 1), "Emtd_write(): malloc failed!\n|", ENOMEM},
    {call("malloc", 2), "Emtd_write(): malloc failed!\n|", ENOMEM},
};

void check(const LogRow& row, const std::function<int32_t(mtd_partition*, uint8_t*)>& transfer) {
  SCOPED_TRACE(row.lines);
  NandPhone phone({.erase_size = 4096, .blocks = 3});
  row.prepare(phone);
  Bytes block = pattern(4096, 70);
  const auto run = [&] { EXPECT_EQ(transfer(phone.state(), block.data()), row.error == 0 ? 0 : -1); };
  EXPECT_EQ(phone.said(run), row.lines);
  EXPECT_TRUE(row.error == 0 || phone.error == row.error) << phone.error;
  EXPECT_TRUE(phone.nand().violations().empty());
  const bool nothing_tried = row.error != 0 && row.error != ENOSPC;
  EXPECT_TRUE(!nothing_tried || phone.nand().erase_count(0) == 0) << "a block was lost for nothing";
}

TEST(MtdBackendLog, NamesTheReasonForEveryBlockPassedOverAndEveryAttempt) {
  for (const LogRow& row : kReads)
    check(row, [](auto* s, auto* block) { return mtd_read(s, 0, 4096, block); });
  for (const LogRow& row : kWrites)
    check(row, [](auto* s, auto* block) { return mtd_write(s, 0, 4096, block); });
  // Of a merge: the position before the read; the way back to it.
  for (const unsigned nth : {2U, 5U})
    check({call("lseek", nth), "Emtd_write(): lseek64(): Input/output error\n|", EIO},
          [](auto* s, auto* block) { return mtd_write(s, 1, 1, block); });
}

TEST_F(MtdBackend, OneByteMakesABlockMoreThanZeros) {
  for (const size_t place : {size_t{0}, size_t{1}, size_t{2047}, size_t{4095}}) {
    Bytes block(4096, 0);
    block[place] = 0x10;
    nand().set_block_bytes(0, block);
    Bytes read(4096);
    EXPECT_EQ(mtd_read(state(), 0, 4096, read.data()), 0);
    EXPECT_EQ(read, block) << place;
  }
}

// ---- bad input --------------------------------------------------------------------------------------------

TEST_F(MtdBackend, WhatDoesNotFitEndsWithoutSpaceOrErase) {
  struct Row {
    const char* what;
    uint32_t size, block_size;
    int64_t offset, length;
    int error = ENOSPC;
  };
  const Row rows[] = {
      {"past the end", 0x8000, 0x1000, 0x8000, 1},
      {"across the end", 0x8000, 0x1000, 0x7FFF, 2},
      {"far past the end", 0x8000, 0x1000, INT64_MAX, INT64_MAX},
      {"longer than the partition", 0x8000, 0x1000, 1, 0x8000},
      {"a device smaller than listed", 0x10000, 0x1000, 0x8000, 1},
      {"2 GiB", 0x80000000, 0x1000, 0, 1},
      {"no erase size", 0x8000, 0, 0, 1, 0},
      {"one block, larger than the partition", 0x8000, 0x10000, 0, 1},
  };
  for (const Row& row : rows) {
    state()->size = row.size;
    state()->erase_size = row.block_size;
    Bytes buffer(0x8000);
    log_of([&] { EXPECT_EQ(mtd_read(state(), row.offset, row.length, buffer.data()), -1) << row.what; });
    EXPECT_EQ(error, row.error) << row.what;
    if (row.offset % 0x1000 != 0 && row.offset < 0x8000)
      continue;  // the head is written before the end shows
    log_of([&] { EXPECT_EQ(mtd_write(state(), row.offset, row.length, buffer.data()), -1) << row.what; });
    EXPECT_EQ(error, row.error) << row.what;
    EXPECT_EQ(erases(), 0U) << row.what;
  }
}

}  // namespace
