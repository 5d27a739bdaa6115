// Does the virtual NAND chip keep the rules of a real one, and break in the ways that real ones break?
// Guards against storage code that works only because the chip under its tests forgives what hardware does
// not.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <optional>

#include "tests/support/support.h"

namespace {

using namespace support;
namespace fs = std::filesystem;
using phone::NandFault;
using phone::VirtualPhone;
using testing::ElementsAre;
using Op = NandFault::Op;
using Effect = NandFault::Effect;

constexpr const char* kDevice = "/dev/mtd/mtd3";
constexpr uint32_t kErase = 16 * 1024;
constexpr uint32_t kPage = 2048;
constexpr uint32_t kBlocks = 8;
constexpr off_t kSize = off_t{kErase} * kBlocks;
const phone::NandGeometry kGeometry = {
    .erase_size = kErase, .blocks = kBlocks, .mtd_number = 3, .factory_bad = {2}};

class VirtualNandTest : public testing::Test {
 protected:
  VirtualNandTest()
      : phone(VirtualPhone::create(root, {.storage = phone::Storage::nand, .nand = kGeometry})) {
    fd = open(kDevice, O_RDWR);
    EXPECT_GE(fd, 0);
  }
  ~VirtualNandTest() override { close(fd); }
  void reattach() {
    close(fd);
    phone.reset();
    phone.emplace(VirtualPhone::attach(root));
    fd = open(kDevice, O_RDWR);
  }
  phone::Nand& nand() { return phone->nand(); }
  int erase(uint32_t start, uint32_t length = kErase) const {
    erase_info_user range = {start, length};
    return ioctl(fd, MEMERASE, &range);
  }
  int is_bad(int64_t at) const { return ioctl(fd, MEMGETBADBLOCK, &at); }
  ssize_t program(uint32_t block, uint8_t value, size_t size = kErase) const {
    const Bytes bytes(size, value);
    return pwrite(fd, bytes.data(), size, off_t{block} * kErase);
  }
  Bytes read_block(uint32_t block) const {
    Bytes bytes(kErase);
    EXPECT_EQ(pread(fd, bytes.data(), kErase, off_t{block} * kErase), kErase);
    return bytes;
  }
  Names violations() {
    Names what;
    for (const auto& violation : nand().violations()) what.push_back(violation.what);
    return what;
  }

  const TemporaryFolder folder;
  const fs::path root = folder.path() / "phone";
  std::optional<VirtualPhone> phone;
  int fd = -1;
};

/// A block whose first bytes, as many as `count`, differ from the others.
Bytes block_of(uint8_t first, uint8_t others, size_t count = kErase / 2) {
  Bytes bytes(kErase, others);
  std::fill_n(bytes.begin(), count, first);
  return bytes;
}

TEST_F(VirtualNandTest, TheKernelDescribesThePartition) {
  const std::string table = *read_text("/proc/mtd");
  EXPECT_THAT(table, testing::StartsWith("dev:    size   erasesize  name\nmtd0: "));
  EXPECT_THAT(table, testing::HasSubstr("\nmtd3: 00020000 00004000 \"mfg\"\n"));
  EXPECT_LT(table.size(), 511u);
  EXPECT_EQ(access("/proc/emmc", F_OK), -1);

  mtd_info_user info = {};
  region_info_user region = {};
  struct stat status = {};
  expect_calls({{"chip", [&] { return ioctl(fd, MEMGETINFO, &info); }, 0},
                {"region", [&] { return ioctl(fd, MEMGETREGIONINFO, &region); }, 0},
                {"node", [&] { return fstat(fd, &status); }, 0}});
  EXPECT_THAT((std::vector<uint32_t>{info.type, info.size, info.erasesize, info.writesize, region.numblocks}),
              ElementsAre(MTD_NANDFLASH, kSize, kErase, kPage, kBlocks));
  EXPECT_TRUE(S_ISCHR(status.st_mode));
}

TEST_F(VirtualNandTest, EraseSetsOnesAndProgrammingOnlyClearsBits) {
  ASSERT_EQ(program(1, 0xF0), kErase);
  ASSERT_EQ(program(1, 0x3C, kPage), kPage);
  EXPECT_THAT(violations(), ElementsAre("program of a block that was not erased"));
  EXPECT_EQ(nand().block_bytes(1), block_of(0x30, 0xF0, kPage));
  ASSERT_EQ(erase(kErase), 0);
  EXPECT_EQ(nand().block_bytes(1), Bytes(kErase, 0xFF));
  EXPECT_EQ(program(1, 0x0F), kErase);
  EXPECT_EQ(nand().erase_count(1), 1u);
  EXPECT_EQ(nand().program_count(1), 3u);
  EXPECT_EQ(nand().violations().size(), 1u);
}

TEST_F(VirtualNandTest, WhatTheKernelRefusesIsRefusedAndTheWorstRecorded) {
  Bytes bytes(kPage, 0);
  const int read_only = open(kDevice, O_RDONLY);
  region_info_user second = {};
  second.regionindex = 1;
  erase_info_user first = {0, kErase};
  erase_info_user64 wraps = {kErase, ~uint64_t{0} - kErase + 1};
  expect_calls({
      {"erase from within a block", [&] { return erase(kPage); }, -1, EINVAL},
      {"erase of half a block", [&] { return erase(0, kPage); }, -1, EINVAL},
      {"erase past the end", [&] { return erase(7 * kErase, 2 * kErase); }, -1, EINVAL},
      {"erase that comes round", [&] { return ioctl(fd, MEMERASE64, &wraps); }, -1, EINVAL},
      {"erase of a bad block", [&] { return erase(2 * kErase); }, -1, EIO},
      {"write of half a page", [&] { return pwrite(fd, bytes.data(), 1024, 0); }, -1, EINVAL},
      {"write within a page", [&] { return pwrite(fd, bytes.data(), kPage, 512); }, -1, EINVAL},
      {"write at the end", [&] { return program(kBlocks, 0, kPage); }, -1, ENOSPC},
      {"bad-block question past the end", [&] { return is_bad(kSize); }, -1, EINVAL},
      {"seek past the end", [&] { return lseek(fd, kSize + 1, SEEK_SET); }, -1, EINVAL},
      {"a second region", [&] { return ioctl(fd, MEMGETREGIONINFO, &second); }, -1, EINVAL},
      {"unknown ioctl", [&] { return ioctl(fd, MEMISLOCKED, bytes.data()); }, -1, ENOTTY},
      {"truncation", [&] { return ftruncate(fd, 0); }, -1, EINVAL},
      {"write without leave", [&] { return write(read_only, bytes.data(), kPage); }, -1, EBADF},
      {"erase without leave", [&] { return ioctl(read_only, MEMERASE, &first); }, -1, EPERM},
  });
  close(read_only);
  EXPECT_THAT(violations(), ElementsAre("unaligned erase", "unaligned erase", "erase beyond the end",
                                        "erase beyond the end", "erase of a bad block", "unaligned write",
                                        "unaligned write"));
  for (uint32_t block = 0; block < kBlocks; ++block) {
    EXPECT_EQ(nand().block_bytes(block), Bytes(kErase, 0xFF)) << block;
  }
}

TEST_F(VirtualNandTest, TransfersEndWithTheChipAndMoveThePosition) {
  Bytes bytes(2 * kPage, 0x11);
  expect_calls({
      {"seek", [&] { return lseek(fd, kSize - kPage, SEEK_SET); }, kSize - kPage},
      {"write", [&] { return write(fd, bytes.data(), bytes.size()); }, kPage},
      {"position", [&] { return lseek(fd, 0, SEEK_CUR); }, kSize},
      {"read", [&] { return read(fd, bytes.data(), 1); }, 0},
      {"seek back", [&] { return lseek(fd, -100, SEEK_CUR); }, kSize - 100},
      {"read to the end", [&] { return read(fd, bytes.data(), bytes.size()); }, 100},
      {"pread", [&] { return pread(fd, bytes.data(), bytes.size(), 0); }, 2 * kPage},
      {"which leaves the position", [&] { return lseek(fd, 0, SEEK_CUR); }, kSize},
  });
}

TEST_F(VirtualNandTest, MarksCountersViolationsAndContentSurviveInTheFolder) {
  int64_t at = 5 * kErase;
  ASSERT_EQ(ioctl(fd, MEMSETBADBLOCK, &at), 0);
  nand().mark_bad(6);
  ASSERT_EQ(erase(0), 0);
  ASSERT_EQ(program(0, 0xAB), kErase);
  nand().add_fault({.op = Op::read, .effect = Effect::ecc_failed});
  char byte = 0;
  ASSERT_EQ(pread(fd, &byte, 1, 0), 1);
  EXPECT_EQ(erase(kPage), -1);
  reattach();
  EXPECT_THAT(violations(), ElementsAre("unaligned erase"));
  EXPECT_EQ(nand().violations().front().offset, kPage);
  for (uint32_t block = 0; block < kBlocks; ++block) {
    EXPECT_EQ(is_bad(block * kErase), block == 2 || block == 5 || block == 6) << block;
  }
  mtd_ecc_stats stats = {};
  EXPECT_EQ(ioctl(fd, ECCGETSTATS, &stats), 0);
  EXPECT_EQ(stats.failed, 1u);
  EXPECT_EQ(stats.badblocks, 3u);
  EXPECT_EQ(nand().erase_count(0), 1u);
  EXPECT_EQ(nand().program_count(0), 1u);
  EXPECT_EQ(nand().block_bytes(0), Bytes(kErase, 0xAB));
  EXPECT_THAT(nand().geometry().factory_bad, ElementsAre(2));
  // The file becomes shorter by the letters between "good" and "bad".
  nand().mark_bad(1);
  nand().mark_bad(7);
  reattach();
  EXPECT_EQ(is_bad(7 * kErase), 1);
}

// ---- a chip that breaks -----------------------------------------------------------------------------------

TEST_F(VirtualNandTest, CorruptionIsSilentAndLastsOnlyWhereItIsStored) {
  // clang-format off
  const std::pair<int64_t, size_t> rows[] = {
      {0, 0}, {1, 1}, {kErase - 1, kErase - 1}, {kErase, kErase - 1}, {-1, kErase - 1}, {-int64_t{kErase}, 0}};
  // clang-format on
  for (const auto& [byte, hit] : rows) {
    for (const Op op : {Op::program, Op::read}) {
      ASSERT_EQ(erase(kErase), 0);
      nand().add_fault({.op = op, .effect = Effect::corrupt, .block = 1, .byte = byte});
      ASSERT_EQ(program(1, 0x5A), kErase);
      Bytes wrong(kErase, 0x5A);
      wrong[hit] = 0x5B;
      EXPECT_EQ(read_block(1), wrong) << byte;
      EXPECT_EQ(read_block(1), op == Op::program ? wrong : Bytes(kErase, 0x5A)) << byte;
      nand().clear_faults();
    }
  }
  EXPECT_EQ(nand().violations().size(), 0u);
}

TEST_F(VirtualNandTest, AfterAPowerCutNothingAnswersUntilTheNextBoot) {
  ASSERT_EQ(program(1, 0x00), kErase);
  nand().add_fault({.op = Op::erase, .effect = Effect::power_cut, .block = 1, .done = 100});
  char byte = 0;
  const int other = open(kDevice, O_RDONLY);
  expect_calls({{"the cut", [&] { return erase(kErase); }, -1, EIO},
                {"pread", [&] { return pread(fd, &byte, 1, 0); }, -1, EIO},
                {"pwrite", [&] { return program(3, 0x00); }, -1, EIO},
                {"lseek", [&] { return lseek(fd, 0, SEEK_SET); }, -1, EIO},
                {"ioctl", [&] { return is_bad(0); }, -1, EIO},
                {"open", [&] { return open(kDevice, O_RDONLY); }, -1, EIO},
                {"another file", [&] { return access("/proc/mtd", F_OK); }, -1, EIO},
                {"close", [&] { return close(other); }, 0}});
  EXPECT_EQ(nand().block_bytes(3), Bytes(kErase, 0xFF));
  phone->reboot();
  EXPECT_EQ(is_bad(0), 0);
  EXPECT_EQ(nand().block_bytes(1), block_of(0xFF, 0x00, 100));
}

TEST_F(VirtualNandTest, SenselessFaultsAreRefused) {
  for (const NandFault& fault :
       {NandFault{.op = Op::erase, .effect = Effect::corrupt},
        NandFault{.op = Op::read, .effect = Effect::power_cut},
        NandFault{.op = Op::program, .effect = Effect::ecc_failed},
        NandFault{.op = Op::read, .block = kBlocks}, NandFault{.op = Op::ecc_stats, .block = 1}}) {
    EXPECT_THROW(nand().add_fault(fault), std::invalid_argument);
  }
}

TEST_F(VirtualNandTest, FaultsOfTheFileReachTheChipAndMistakesAreNamed) {
  std::ofstream(root / "faults", std::ios::app)
      << "nand program 4 1+ fail\nnand program 5 1 corrupt=-1\nnand ask_bad * 2 fail\n";
  reattach();
  expect_calls({{"the first", [&] { return program(4, 0); }, -1, EIO},
                {"and the next", [&] { return program(4, 0); }, -1, EIO},
                {"another block", [&] { return program(5, 0); }, kErase},
                {"the first question", [&] { return is_bad(0); }, 0},
                {"the second", [&] { return is_bad(0); }, -1, EIO}});
  EXPECT_EQ(nand().block_bytes(4), block_of(0x00, 0xFF)) << "half of it";
  EXPECT_EQ(nand().block_bytes(5), block_of(0x00, 0x01, kErase - 1));
  phone.reset();
  for (const char* wrong :
       {"nand program -1 1 fail", "nand program 4 1 corrupt=", "nand program 4 1 corrupt=x",
        "nand program 4 1 fail=1", "nand smelt 4 1 fail", "nand program 4 0 fail"}) {
    write_text(root / "faults", wrong);
    EXPECT_THROW(VirtualPhone::attach(root), std::runtime_error) << wrong;
  }
  write_text(root / "faults", "");
  write_text(root / "nand", *read_text(root / "nand") + "block 8 erased 0 programmed 0 good\n");
  EXPECT_THROW(VirtualPhone::attach(root), std::runtime_error) << "a block too many";
}

// ---- what the kernel reads at boot ------------------------------------------------------------------------

TEST_F(VirtualNandTest, ThePartitionIsItsGoodBlocksInOrder) {
  for (uint32_t block = 0; block < kBlocks; ++block) {
    nand().set_block_bytes(block, Bytes(kErase, static_cast<uint8_t>(block == 4 ? 0 : block + 1)));
  }
  Bytes expected;
  for (const uint8_t value : Bytes{1, 2, 4, 6, 7, 8}) expected.insert(expected.end(), kErase, value);
  EXPECT_EQ(phone->partition(), expected);
  const std::string text(kErase + 2, 'x');
  phone->write_partition(2 * kErase - 1, text.data(), text.size());
  EXPECT_EQ(nand().block_bytes(1).back(), 'x');
  EXPECT_EQ(nand().block_bytes(2), Bytes(kErase, 3));
  EXPECT_EQ(nand().block_bytes(3), Bytes(kErase, 'x'));
  EXPECT_EQ(nand().block_bytes(4), Bytes(kErase, 0));
  EXPECT_EQ(nand().block_bytes(5).front(), 'x');
  EXPECT_EQ(nand().block_bytes(5)[1], 6);
  EXPECT_THROW(phone->write_partition(6 * kErase, "x", 1), std::out_of_range);
}

}  // namespace
