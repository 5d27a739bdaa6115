// Does the MTD back end find its partition, and ask, seek, erase and log exactly as documented around each
// block? Guards against an erase too many, a block read twice and a failure that nobody can see on a phone.

#include <climits>

#include "tests/support/nand_phone.h"

namespace {

using phone::Fault;
using phone::LogLine;
using phone::NandFault;
using support::Bytes;
using support::kMtdPath;
using support::MD;
using support::ME;
using Op = NandFault::Op;
using Effect = NandFault::Effect;
using Names = std::vector<std::string>;

class MtdBackend : public support::NandPhone {};

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
      {"without a header or a line end", line, true},
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
    const auto lines = lines_of([&] { EXPECT_EQ(mtd_open(&found, "mfg"), row.found ? 0 : -1) << row.what; });
    EXPECT_STREQ(found.path, row.found ? kMtdPath : "") << row.what;
    EXPECT_EQ(found.size, row.found ? row.size : 0) << row.what;
    EXPECT_EQ(found.erase_size, row.found ? 0x1000U : 0U) << row.what;
    if (row.found) {
      EXPECT_TRUE(lines.empty() && found.fd >= 0 && found.index == 3) << row.what;
      EXPECT_EQ(mtd_close(&found), 0);
      EXPECT_EQ(found.fd, -1);
      EXPECT_EQ(mtd_close(&found), 0) << "closed already";
    } else {
      EXPECT_EQ(lines, (std::vector{ME("mtd_open(): cannot find MTD partition [mfg]!\n")})) << row.what;
    }
  }
}

TEST_F(MtdBackend, OpensWithOneReadAndSaysWhatDoesNotOpen) {
  mtd_partition found{};
  EXPECT_EQ(calls_of([&] { mtd_open(&found, "mfg"); }), (Names{"open", "read", "close", "open"}));
  mtd_close(&found);
  for (const char* call : {"open", "read"}) {
    phone().add_fault({.call = call, .path = "/proc/mtd"});
    EXPECT_EQ(lines_of([&] { EXPECT_EQ(mtd_open(&found, "mfg"), -1); }),
              (std::vector{ME("mtd_open(): cannot find MTD partition [mfg]!\n")}));
  }
  list_in_proc_mtd("mtd7: 00008000 00001000 \"mfg\"");
  EXPECT_EQ(lines_of([&] { EXPECT_EQ(mtd_open(&found, "mfg"), -1); }),
            (std::vector{ME("mtd_open(): /dev/mtd/mtd7: No such file or directory\n")}));
  EXPECT_EQ(found.fd, -1);
}

TEST_F(MtdBackend, IsWhereTheFrontEndGoesWithoutEmmc) {
  partition_handle handle{};
  ASSERT_EQ(partition_open(&handle, "mfg"), 0);
  EXPECT_EQ(handle.emmc, nullptr);
  Bytes bytes(10);
  const char* tag = "camera_calibration_partition";
  EXPECT_EQ(log_of([&] { EXPECT_EQ(partition_read(&handle, 4092, 10, bytes.data()), 0); }),
            (std::vector{support::D("use mtd_read(), path = /dev/mtd/mtd3\n", tag)}));
  Bytes expected(content(0).end() - 4, content(0).end());
  expected.insert(expected.end(), content(1).begin(), content(1).begin() + 6);
  EXPECT_EQ(bytes, expected);
  expect_partition_write(5000, support::pattern(9), [&] {
    EXPECT_EQ(log_of([&] { partition_write(&handle, 5000, 9, support::pattern(9).data()); }),
              (std::vector{support::D("use mtd_write(), path = /dev/mtd/mtd3\n", tag)}));
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
  const Bytes bytes = support::pattern(3 * 4096);
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

struct LogRow {
  const char* what;
  std::vector<NandFault> faults;
  int32_t result;
  std::vector<LogLine> lines;
  std::vector<uint32_t> bad = {};
  bool first_block_zero = false;
  std::vector<Fault> call_faults = {};
};

void check(const std::vector<LogRow>& rows, const std::function<int32_t(mtd_partition*, Bytes&)>& transfer) {
  for (const LogRow& row : rows) {
    support::NandPhone phone({.erase_size = 4096, .blocks = 3, .factory_bad = row.bad});
    if (row.first_block_zero) phone.nand().set_block_bytes(0, Bytes(4096, 0));
    for (const auto& fault : row.faults) phone.nand().add_fault(fault);
    for (const auto& fault : row.call_faults) phone.phone().add_fault(fault);
    Bytes block = support::pattern(4096, 70);
    int32_t result = 1;
    EXPECT_EQ(phone.lines_of([&] { result = transfer(phone.state(), block); }), row.lines) << row.what;
    EXPECT_EQ(result, row.result) << row.what;
    const bool ran_out = row.result != 0 && row.lines.back().text.find("ECCGETSTATS") == std::string::npos;
    EXPECT_TRUE(!ran_out || phone.error == ENOSPC) << row.what;
    EXPECT_TRUE(phone.nand().violations().empty()) << row.what;
  }
}

TEST(MtdReadLog, NamesTheReasonForEveryBlockPassedOver) {
  const auto eio = [](const char* text) { return ME(std::string(text) + " (Input/output error)\n"); };
  const std::vector<LogRow> rows = {
      {"all is well", {}, 0, {}},
      {"corrected", {{.op = Op::read, .effect = Effect::ecc_corrected, .block = 0}}, 0, {}},
      {"marked bad", {}, 0, {ME("mtd: MEMGETBADBLOCK returned 1 at 0x00000000 (errno=0)\n")}, {0}},
      {"could not ask",
       {{.op = Op::ask_bad, .block = 0}},
       0,
       {ME("mtd: MEMGETBADBLOCK returned -1 at 0x00000000 (errno=5)\n")}},
      {"read fails", {{.op = Op::read, .block = 0}}, 0, {eio("mtd: read error at 0x00000000")}},
      {"read is short",
       {},
       0,
       {ME("mtd: read error at 0x00000000 (Success)\n")},
       {},
       false,
       {{.call = "read", .path = kMtdPath, .transfer = 4095}}},
      {"all zero", {}, 0, {ME("mtd: read all-zero block at 0x00000000; skipping\n")}, {}, true},
      {"uncorrectable: none after it is trusted",
       {{.op = Op::read, .effect = Effect::ecc_corrected, .block = 0},
        {.op = Op::read, .effect = Effect::ecc_failed, .block = 1}},
       -1,
       {ME("mtd: read all-zero block at 0x00000000; skipping\n"),
        ME("mtd: ECC errors (1 soft, 1 hard) at 0x00001000\n"),
        ME("mtd: ECC errors (1 soft, 1 hard) at 0x00002000\n")},
       {},
       true},
      {"no baseline", {{.op = Op::ecc_stats}}, -1, {eio("mtd: ECCGETSTATS error")}},
      {"no statistics", {{.op = Op::ecc_stats, .nth = 2}}, -1, {eio("mtd: ECCGETSTATS error")}},
      {"every ioctl fails",
       {},
       -1,
       {eio("mtd: ECCGETSTATS error")},
       {},
       false,
       {{.call = "ioctl", .from_then_on = true}}},
  };
  check(rows, [](mtd_partition* state, Bytes& block) { return mtd_read(state, 0, 4096, block.data()); });
}

TEST(MtdWriteLog, NamesEveryAttempt) {
  const auto eio = [](const char* text) { return ME(std::string(text) + " (Input/output error)\n"); };
  const LogLine retried = ME("mtd: wrote block after 1 retries\n");
  const LogLine skipped = ME("mtd: skipping write block at 0x00000000\n");
  const LogLine erase = eio("mtd: erase failure at 0x00000000");
  const LogLine write = eio("mtd: write error at 0x00000000");
  const LogLine verify = eio("mtd: verification error at 0x00000000");
  const LogLine silent = ME("mtd: verification error at 0x00000000 (Success)\n");
  const std::vector<LogRow> rows = {
      {"all is well", {}, 0, {}},
      {"marked bad", {}, 0, {ME("mtd: not writing bad block at 0x00000000\n")}, {0}},
      {"could not ask: used", {{.op = Op::ask_bad, .block = 0}}, 0, {}},
      {"erase fails once", {{.op = Op::erase, .block = 0}}, 0, {erase, retried}},
      {"erase fails", {{.op = Op::erase, .block = 0, .from_then_on = true}}, 0, {erase, erase, skipped}},
      {"program fails once: verified all the same", {{.op = Op::program}}, 0, {write, verify, retried}},
      {"program fails",
       {{.op = Op::program, .block = 0, .from_then_on = true}},
       0,
       {write, verify, write, verify, skipped}},
      {"silently wrong once", {{.op = Op::program, .effect = Effect::corrupt}}, 0, {silent, retried}},
      {"read back wrong once", {{.op = Op::read, .effect = Effect::corrupt}}, 0, {silent, retried}},
      {"not read back once", {{.op = Op::read}}, 0, {eio("mtd: re-read error at 0x00000000"), retried}},
      {"no block takes it",
       {{.op = Op::erase, .from_then_on = true}},
       -1,
       {erase, erase, skipped, ME("mtd: not writing bad block at 0x00001000\n"),
        eio("mtd: erase failure at 0x00002000"), eio("mtd: erase failure at 0x00002000"),
        ME("mtd: skipping write block at 0x00002000\n")},
       {1}},
  };
  check(rows, [](mtd_partition* state, Bytes& block) { return mtd_write(state, 0, 4096, block.data()); });
}

TEST_F(MtdBackend, ReportsSeeksThatFail) {
  uint8_t byte = 1;
  // The seek to the start, then that back to the block which was read for the merge.
  const std::pair<unsigned, bool> rows[] = {{1, false}, {1, true}, {2, true}, {5, true}};
  for (const auto& row : rows) {
    phone().clear_faults();
    phone().add_fault({.call = "lseek", .path = kMtdPath, .nth = row.first});
    int32_t result = 0;
    const auto lines = lines_of(
        [&] { result = row.second ? mtd_write(state(), 1, 1, &byte) : mtd_read(state(), 1, 1, &byte); });
    EXPECT_EQ(result, -1) << row.first;
    EXPECT_EQ(lines, std::vector{ME(row.second ? "mtd_write(): lseek64(): Input/output error\n"
                                               : "mtd_read(): lseek64(): Input/output error\n")});
  }
  EXPECT_EQ(nand().erase_count(0), 0U);
}

// ---- what follows from passing over -----------------------------------------------------------------------

TEST_F(MtdBackend, ABlockThatAWriteGaveUpOnIsStillThereForReads) {
  nand().add_fault({.op = Op::erase, .effect = Effect::fail, .block = 0, .from_then_on = true});
  const Bytes data = support::pattern(4096, 70);
  EXPECT_EQ(mtd_write(state(), 0, 4096, data.data()), 0);
  EXPECT_EQ(nand().block_bytes(1), data);
  EXPECT_FALSE(nand().is_bad(0)) << "nothing marks a block";
  Bytes read(2 * 4096);
  EXPECT_EQ(mtd_read(state(), 0, 2 * 4096, read.data()), 0);
  EXPECT_EQ(Bytes(read.begin(), read.begin() + 4096), nand().block_bytes(0));
  EXPECT_EQ(Bytes(read.begin() + 4096, read.end()), data) << "now logical block 1";
}

TEST_F(MtdBackend, ZerosHideABlockAndAMergeLandsInFrontOfIt) {
  const Bytes zeros(4096, 0);
  EXPECT_EQ(mtd_write(state(), 4096, 4096, zeros.data()), 0);
  Bytes read(4096);
  EXPECT_EQ(mtd_read(state(), 4096, 4096, read.data()), 0);
  EXPECT_EQ(read, content(2));
  const Bytes data = support::pattern(10, 70);
  EXPECT_EQ(mtd_write(state(), 4096, 10, data.data()), 0);
  Bytes merged = content(2);
  std::copy(data.begin(), data.end(), merged.begin());
  EXPECT_EQ(nand().block_bytes(1), merged);
  EXPECT_EQ(nand().block_bytes(2), content(2));
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

TEST_F(MtdBackend, BadArgumentsTouchNothing) {
  uint8_t byte = 0xA5;
  mtd_partition* const open = state();
  const auto read_line = ME("mtd_read(): invalid argument!\n");
  const auto write_line = ME("mtd_write(): invalid argument!\n");
  const std::pair<std::function<int32_t()>, LogLine> rows[] = {
      {[&] { return mtd_open(nullptr, "mfg"); }, ME("mtd_open(): invalid argument!\n")},
      {[&] { return mtd_open(open, nullptr); }, ME("mtd_open(): invalid argument!\n")},
      {[&] { return mtd_read(nullptr, 0, 1, &byte); }, read_line},
      {[&] { return mtd_read(open, -1, 1, &byte); }, read_line},
      {[&] { return mtd_read(open, 0, 0, &byte); }, read_line},
      {[&] { return mtd_read(open, 0, 1, nullptr); }, read_line},
      {[&] { return mtd_write(nullptr, 0, 1, &byte); }, write_line},
      {[&] { return mtd_write(open, -1, 1, &byte); }, write_line},
      {[&] { return mtd_write(open, 0, -1, &byte); }, write_line},
      {[&] { return mtd_write(open, 0, 1, nullptr); }, write_line},
      {[&] { return mtd_close(nullptr); }, ME("mtd_close(): invalid argument!\n")},
  };
  for (const auto& row : rows) {
    std::vector<LogLine> lines;
    const auto calls = calls_of([&] { lines = lines_of([&] { EXPECT_EQ(row.first(), -1); }); });
    EXPECT_EQ(lines, std::vector{row.second});
    EXPECT_TRUE(calls.empty()) << row.second.text;
  }
  EXPECT_EQ(byte, 0xA5);
}

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
    lines_of([&] { EXPECT_EQ(mtd_read(state(), row.offset, row.length, buffer.data()), -1) << row.what; });
    EXPECT_EQ(error, row.error) << row.what;
    if (row.offset % 0x1000 != 0 && row.offset < 0x8000)
      continue;  // the head is written before the end shows
    lines_of([&] { EXPECT_EQ(mtd_write(state(), row.offset, row.length, buffer.data()), -1) << row.what; });
    EXPECT_EQ(error, row.error) << row.what;
    for (uint32_t block = 0; block < 8; ++block) EXPECT_EQ(nand().erase_count(block), 0U) << row.what;
  }
}

TEST_F(MtdBackend, WithoutMemoryNothingIsErased) {
  uint8_t byte = 0;
  for (const unsigned nth : {1U, 2U}) {
    for (const bool write : {true, false}) {
      if (nth == 2 && !write) continue;  // a read has one block only
      phone().clear_faults();
      phone().add_fault({.call = "malloc", .nth = nth});
      const auto lines = lines_of(
          [&] { EXPECT_EQ(write ? mtd_write(state(), 0, 1, &byte) : mtd_read(state(), 0, 1, &byte), -1); });
      EXPECT_EQ(lines,
                std::vector{ME(write ? "mtd_write(): malloc failed!\n" : "mtd_read(): malloc failed!\n")});
      EXPECT_EQ(error, ENOMEM);
    }
  }
  EXPECT_EQ(nand().erase_count(0), 0U);
}

}  // namespace
