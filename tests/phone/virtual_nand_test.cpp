// Does the virtual NAND chip keep the rules of a real one, and break in the ways that real ones break?
// Guards against storage code that works only because the chip under its tests forgives what hardware does
// not.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <optional>

#include "phone/virtual_phone.h"

namespace {

namespace fs = std::filesystem;
using phone::NandFault;
using phone::VirtualPhone;
using Bytes = std::vector<uint8_t>;

constexpr const char* device = "/dev/mtd/mtd3";
constexpr uint32_t erase_size = 16 * 1024;
constexpr uint32_t page = 2048;
constexpr uint32_t blocks = 8;

class VirtualNandTest : public testing::Test {
 protected:
  VirtualNandTest() {
    char name[] = "/tmp/virtual_nand_XXXXXX";
    root = mkdtemp(name);
    phone.emplace(
        VirtualPhone::create(root / "phone", {.storage = phone::Storage::nand, .nand = geometry()}));
    fd = open(device, O_RDWR);
    EXPECT_GE(fd, 0);
  }
  ~VirtualNandTest() override {
    close(fd);
    phone.reset();
    fs::remove_all(root);
  }
  static phone::NandGeometry geometry() {
    return {.erase_size = erase_size, .blocks = blocks, .mtd_number = 3, .factory_bad = {2}};
  }
  void reattach() {
    close(fd);
    phone.reset();
    phone.emplace(VirtualPhone::attach(root / "phone"));
    fd = open(device, O_RDWR);
  }
  phone::Nand& nand() { return phone->nand(); }
  int erase(uint32_t start, uint32_t length = erase_size) const {
    erase_info_user range = {start, length};
    return ioctl(fd, MEMERASE, &range);
  }
  int is_bad(int64_t at) const { return ioctl(fd, MEMGETBADBLOCK, &at); }
  mtd_ecc_stats ecc() const {
    mtd_ecc_stats stats = {};
    EXPECT_EQ(ioctl(fd, ECCGETSTATS, &stats), 0);
    return stats;
  }
  ssize_t program(uint32_t block, uint8_t value, size_t size = erase_size) const {
    const Bytes bytes(size, value);
    return pwrite(fd, bytes.data(), size, off_t{block} * erase_size);
  }
  std::vector<std::string> violations() {
    std::vector<std::string> what;
    for (const auto& violation : nand().violations()) what.push_back(violation.what);
    return what;
  }

  fs::path root;
  std::optional<VirtualPhone> phone;
  int fd = -1;
};

TEST_F(VirtualNandTest, TheKernelDescribesThePartition) {
  std::ifstream in("/proc/mtd");
  const std::string table(std::istreambuf_iterator<char>(in), {});
  EXPECT_TRUE(table.starts_with("dev:    size   erasesize  name\nmtd0: "));
  EXPECT_NE(table.find("\nmtd3: 00020000 00004000 \"mfg\"\n"), std::string::npos);
  EXPECT_LT(table.size(), 511u);
  EXPECT_EQ(access("/proc/emmc", F_OK), -1);

  mtd_info_user info = {};
  ASSERT_EQ(ioctl(fd, MEMGETINFO, &info), 0);
  EXPECT_EQ(info.type, MTD_NANDFLASH);
  EXPECT_EQ(info.size, erase_size * blocks);
  EXPECT_EQ(info.erasesize, erase_size);
  EXPECT_EQ(info.writesize, page);
  region_info_user region = {};
  ASSERT_EQ(ioctl(fd, MEMGETREGIONINFO, &region), 0);
  EXPECT_EQ(region.numblocks, blocks);
  region.regionindex = 1;
  EXPECT_EQ(ioctl(fd, MEMGETREGIONINFO, &region), -1);
  EXPECT_EQ(errno, EINVAL);
  struct stat status = {};
  ASSERT_EQ(fstat(fd, &status), 0);
  EXPECT_TRUE(S_ISCHR(status.st_mode));
}

TEST_F(VirtualNandTest, EraseSetsOnesAndProgrammingOnlyClearsBits) {
  ASSERT_EQ(program(1, 0xF0), erase_size);
  ASSERT_EQ(program(1, 0x3C, page), page);
  EXPECT_EQ(violations(), std::vector<std::string>{"program of a block that was not erased"});
  Bytes expected(erase_size, 0xF0);
  std::fill_n(expected.begin(), page, uint8_t{0x30});
  EXPECT_EQ(nand().block_bytes(1), expected);
  ASSERT_EQ(erase(erase_size), 0);
  EXPECT_EQ(nand().block_bytes(1), Bytes(erase_size, 0xFF));
  EXPECT_EQ(program(1, 0x0F), erase_size);
  EXPECT_EQ(nand().erase_count(1), 1u);
  EXPECT_EQ(nand().program_count(1), 3u);
  EXPECT_EQ(nand().violations().size(), 1u);
}

TEST_F(VirtualNandTest, WhatTheKernelRefusesIsRefusedAndRecorded) {
  const Bytes bytes(page, 0);
  const struct {
    const char* what;
    std::function<ssize_t()> call;
    int error;
    std::vector<std::string> violations;
  } rows[] = {
      {"erase from within a block", [&] { return erase(page); }, EINVAL, {"unaligned erase"}},
      {"erase of half a block", [&] { return erase(0, page); }, EINVAL, {"unaligned erase"}},
      {"erase past the end",
       [&] { return erase(7 * erase_size, 2 * erase_size); },
       EINVAL,
       {"erase beyond the end"}},
      {"erase of a bad block", [&] { return erase(2 * erase_size); }, EIO, {"erase of a bad block"}},
      {"write of half a page",
       [&] { return pwrite(fd, bytes.data(), 1024, 0); },
       EINVAL,
       {"unaligned write"}},
      {"write within a page",
       [&] { return pwrite(fd, bytes.data(), page, 512); },
       EINVAL,
       {"unaligned write"}},
      {"write at the end", [&] { return program(blocks, 0, page); }, ENOSPC, {}},
      {"bad-block question past the end", [&] { return is_bad(blocks * erase_size); }, EINVAL, {}},
      {"seek past the end", [&] { return lseek(fd, blocks * erase_size + 1, SEEK_SET); }, EINVAL, {}},
      {"unknown ioctl", [&] { return ioctl(fd, MEMISLOCKED, bytes.data()); }, ENOTTY, {}},
      {"truncation", [&] { return ftruncate(fd, 0); }, EINVAL, {}},
  };
  for (const auto& row : rows) {
    const size_t before = nand().violations().size();
    errno = 0;
    EXPECT_EQ(row.call(), -1) << row.what;
    EXPECT_EQ(errno, row.error) << row.what;
    const auto all = violations();
    EXPECT_EQ(std::vector(all.begin() + static_cast<ptrdiff_t>(before), all.end()), row.violations)
        << row.what;
  }
  for (uint32_t block = 0; block < blocks; ++block) {
    EXPECT_EQ(nand().block_bytes(block), Bytes(erase_size, 0xFF)) << block;
  }
}

TEST_F(VirtualNandTest, TransfersEndWithTheChipAndMoveThePosition) {
  Bytes bytes(2 * page, 0x11);
  const off_t near_end = off_t{blocks} * erase_size - page;
  ASSERT_EQ(lseek(fd, near_end, SEEK_SET), near_end);
  EXPECT_EQ(write(fd, bytes.data(), bytes.size()), page);
  EXPECT_EQ(lseek(fd, 0, SEEK_CUR), near_end + page);
  EXPECT_EQ(read(fd, bytes.data(), 1), 0);
  EXPECT_EQ(lseek(fd, -100, SEEK_CUR), near_end + page - 100);
  EXPECT_EQ(read(fd, bytes.data(), bytes.size()), 100);
  EXPECT_EQ(pread(fd, bytes.data(), bytes.size(), 0), 2 * page);
  const int read_only = open(device, O_RDONLY);
  EXPECT_EQ(write(read_only, bytes.data(), page), -1);
  EXPECT_EQ(errno, EBADF);
  erase_info_user range = {0, erase_size};
  EXPECT_EQ(ioctl(read_only, MEMERASE, &range), -1);
  EXPECT_EQ(errno, EPERM);
  close(read_only);
}

TEST_F(VirtualNandTest, MarksCountersViolationsAndContentSurviveInTheFolder) {
  int64_t at = 5 * erase_size;
  ASSERT_EQ(ioctl(fd, MEMSETBADBLOCK, &at), 0);
  nand().mark_bad(6);
  ASSERT_EQ(erase(0), 0);
  ASSERT_EQ(program(0, 0xAB), erase_size);
  nand().add_fault({.op = NandFault::Op::read, .effect = NandFault::Effect::ecc_failed});
  char byte = 0;
  ASSERT_EQ(pread(fd, &byte, 1, 0), 1);
  EXPECT_EQ(erase(page), -1);
  reattach();
  EXPECT_EQ(violations(), std::vector<std::string>{"unaligned erase"});
  EXPECT_EQ(nand().violations().front().offset, page);
  for (uint32_t block = 0; block < blocks; ++block) {
    EXPECT_EQ(is_bad(block * erase_size), block == 2 || block == 5 || block == 6) << block;
  }
  EXPECT_EQ(ecc().failed, 1u);
  EXPECT_EQ(ecc().badblocks, 3u);
  EXPECT_EQ(nand().erase_count(0), 1u);
  EXPECT_EQ(nand().program_count(0), 1u);
  EXPECT_EQ(nand().block_bytes(0), Bytes(erase_size, 0xAB));
  EXPECT_EQ(nand().geometry().factory_bad, std::vector<uint32_t>{2});
}

// ---- a chip that breaks -----------------------------------------------------------------------------------

TEST_F(VirtualNandTest, AFailedOperationLeavesTheBlockHalfDone) {
  ASSERT_EQ(program(1, 0x00), erase_size);
  nand().add_fault({.op = NandFault::Op::erase, .block = 1});
  nand().add_fault({.op = NandFault::Op::program, .block = 3, .nth = 2});
  EXPECT_EQ(erase(erase_size), -1);
  EXPECT_EQ(errno, EIO);
  Bytes half(erase_size, 0x00);
  std::fill_n(half.begin(), erase_size / 2, uint8_t{0xFF});
  EXPECT_EQ(nand().block_bytes(1), half);
  EXPECT_EQ(erase(erase_size), 0);

  EXPECT_EQ(program(3, 0xFF), erase_size);
  EXPECT_EQ(program(3, 0x00), -1);
  EXPECT_EQ(errno, EIO);
  Bytes other_half(erase_size, 0xFF);
  std::fill_n(other_half.begin(), erase_size / 2, uint8_t{0x00});
  EXPECT_EQ(nand().block_bytes(3), other_half);
}

TEST_F(VirtualNandTest, CorruptionIsSilentAndLastsOnlyWhereItIsStored) {
  Bytes bytes(erase_size, 0);
  nand().add_fault({.op = NandFault::Op::program, .effect = NandFault::Effect::corrupt, .block = 1});
  nand().add_fault({.op = NandFault::Op::read, .effect = NandFault::Effect::corrupt, .block = 3});
  ASSERT_EQ(program(1, 0x5A), erase_size);
  ASSERT_EQ(program(3, 0x5A), erase_size);
  Bytes wrong(erase_size, 0x5A);
  wrong[0] = 0x5B;
  for (const int round : {1, 2}) {
    ASSERT_EQ(pread(fd, bytes.data(), erase_size, erase_size), erase_size);
    EXPECT_EQ(bytes, wrong) << round;
    ASSERT_EQ(pread(fd, bytes.data(), erase_size, 3 * erase_size), erase_size);
    EXPECT_EQ(bytes, round == 1 ? wrong : Bytes(erase_size, 0x5A));
  }
  EXPECT_EQ(nand().violations().size(), 0u);
}

TEST_F(VirtualNandTest, EccCountersMoveWithTheBlocksRead) {
  using Effect = NandFault::Effect;
  nand().add_fault(
      {.op = NandFault::Op::read, .effect = Effect::ecc_corrected, .block = 0, .from_then_on = true});
  nand().add_fault({.op = NandFault::Op::read, .effect = Effect::ecc_failed, .block = 1});
  ASSERT_EQ(program(1, 0x77), erase_size);
  Bytes bytes(3 * erase_size);
  for (const unsigned round : {1u, 2u}) {
    ASSERT_EQ(pread(fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    EXPECT_EQ(ecc().corrected, round);
    EXPECT_EQ(ecc().failed, 1u);
  }
  EXPECT_EQ(bytes[erase_size], 0x77);
  nand().add_fault({.op = NandFault::Op::ecc_stats});
  nand().add_fault({.op = NandFault::Op::ask_bad, .block = 0});
  nand().add_fault({.op = NandFault::Op::read, .block = 0});
  mtd_ecc_stats stats = {};
  EXPECT_EQ(ioctl(fd, ECCGETSTATS, &stats), -1);
  EXPECT_EQ(is_bad(0), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(is_bad(0), 0);
}

TEST_F(VirtualNandTest, AfterAPowerCutNothingAnswersUntilTheNextBoot) {
  ASSERT_EQ(program(1, 0x00), erase_size);
  nand().add_fault({.op = NandFault::Op::erase, .effect = NandFault::Effect::power_cut, .block = 1});
  EXPECT_EQ(erase(erase_size), -1);
  char byte = 0;
  EXPECT_EQ(pread(fd, &byte, 1, 0), -1);
  EXPECT_EQ(program(3, 0x00), -1);
  EXPECT_EQ(lseek(fd, 0, SEEK_SET), -1);
  EXPECT_EQ(is_bad(0), -1);
  EXPECT_EQ(open(device, O_RDONLY), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(nand().block_bytes(3), Bytes(erase_size, 0xFF));
  phone->reboot();
  EXPECT_EQ(is_bad(0), 0);
  EXPECT_EQ(nand().block_bytes(1)[0], 0xFF);
  EXPECT_EQ(nand().block_bytes(1)[erase_size - 1], 0x00);
}

TEST_F(VirtualNandTest, SenselessFaultsAreRefused) {
  using Op = NandFault::Op;
  using Effect = NandFault::Effect;
  for (const NandFault& fault :
       {NandFault{.op = Op::erase, .effect = Effect::corrupt},
        NandFault{.op = Op::read, .effect = Effect::power_cut},
        NandFault{.op = Op::program, .effect = Effect::ecc_failed},
        NandFault{.op = Op::read, .block = blocks}, NandFault{.op = Op::ecc_stats, .block = 1}}) {
    EXPECT_THROW(nand().add_fault(fault), std::invalid_argument);
  }
}

TEST_F(VirtualNandTest, FaultsOfTheFileReachTheChip) {
  std::ofstream(root / "phone/faults", std::ios::app) << "nand program 4 1+ fail\nnand ask_bad * 2 fail\n";
  reattach();
  EXPECT_EQ(program(4, 0), -1);
  EXPECT_EQ(program(4, 0), -1);
  EXPECT_EQ(program(5, 0), erase_size);
  EXPECT_EQ(is_bad(0), 0);
  EXPECT_EQ(is_bad(0), -1);
}

// ---- what the kernel reads at boot ------------------------------------------------------------------------

TEST_F(VirtualNandTest, ThePartitionIsItsGoodBlocksInOrder) {
  for (uint32_t block = 0; block < blocks; ++block) {
    nand().set_block_bytes(block, Bytes(erase_size, static_cast<uint8_t>(block == 4 ? 0 : block + 1)));
  }
  Bytes expected;
  for (const uint8_t value : Bytes{1, 2, 4, 6, 7, 8}) expected.insert(expected.end(), erase_size, value);
  EXPECT_EQ(phone->partition(), expected);
  const std::string text(erase_size + 2, 'x');
  phone->write_partition(2 * erase_size - 1, text.data(), text.size());
  EXPECT_EQ(nand().block_bytes(1).back(), 'x');
  EXPECT_EQ(nand().block_bytes(2), Bytes(erase_size, 3));
  EXPECT_EQ(nand().block_bytes(3), Bytes(erase_size, 'x'));
  EXPECT_EQ(nand().block_bytes(4), Bytes(erase_size, 0));
  EXPECT_EQ(nand().block_bytes(5).front(), 'x');
  EXPECT_EQ(nand().block_bytes(5)[1], 6);
  EXPECT_THROW(phone->write_partition(6 * erase_size, "x", 1), std::out_of_range);
}

}  // namespace
