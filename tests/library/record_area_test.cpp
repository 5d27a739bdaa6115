// Does every entry transfer at the right place of the partition, for both page sizes and every camera?
// Guards against a record that lands in another camera's slot, and against a write that reports the wrong
// result.

#include "awb_calibration/records.h"

#include <algorithm>

#include "awb_calibration/factory.h"
#include "tests/support/support.h"

namespace {

using namespace support;

/// One entry of the record area under one page size.
struct Entry {
  const char* name;
  std::function<int32_t(void* buffer, uint32_t length)> call;
  uint32_t place;  // relative to the base
};

class RecordArea : public PhoneTest {
 protected:
  RecordArea() { fill_partition(); }

  void set_a_light(int value) {
    // The flag is the calibration run's: it takes it from the property when the camera is opened.
    phone().set_property("mfg.awb.calibration.Alight", std::to_string(value));
    check_and_init_awb_calibration();
  }
};

std::vector<Entry> writers(int a_light) {
  std::vector<Entry> rows = {
      {"WriteFlash", [](void* b, uint32_t n) { return WriteFlash(b, n); }, 0},
      {"WriteFlash_for_front_Cam", [](void* b, uint32_t n) { return WriteFlash_for_front_Cam(b, n); },
       0x1000},
      {"WriteFlashOffset 0x1E08", [](void* b, uint32_t n) { return WriteFlashOffset(b, n, 0x1E08); }, 0x1E08},
      {"WriteFlashOffset wraps", [](void* b, uint32_t n) { return WriteFlashOffset(b, n, 0xFFFFFFF0); },
       0xFFFFFFF0},
  };
  for (uint8_t camera = 0; camera < 4; ++camera) {
    rows.push_back({"WriteFlash_for_bayer_Cam",
                    [camera](void* b, uint32_t n) { return WriteFlash_for_bayer_Cam(b, n, camera); },
                    camera * 0x1000U + (a_light == 1 ? 0xEC0U : 0U)});
  }
  return rows;
}

TEST_F(RecordArea, WritersChangeTheirBytesAndNoOther) {
  struct Page {
    const char* text;
    uint32_t base;
  };
  for (const Page& page : {Page{"4096", 0x20000}, Page{"2048", 0x10000}, Page{"", 0x10000},
                           Page{"40960", 0x10000}, Page{" 4096", 0x10000}}) {
    phone().set_property("ro.pagesize", page.text);
    for (const int a_light : {0, 1, 2}) {
      set_a_light(a_light);
      for (const Entry& entry : writers(a_light)) {
        Bytes record = pattern(48, entry.place + page.base);
        expect_partition_write(static_cast<uint32_t>(page.base + entry.place), record, [&] {
          EXPECT_EQ(entry.call(record.data(), 48), 0) << entry.name << " page " << page.text;
        });
      }
    }
  }
}

/// The lines that CheckFlash() logs, with the dump of the bytes that are at the base afterwards.
Log check_flash_lines(const Bytes& image, uint32_t base) {
  Log lines = {I(base == 0x20000 ? "CheckFlash() : 4K page\n" : "CheckFlash() : 2K page\n"),
               I(printf_text("CheckFlash: eMMC boot: offset =0x%x\n", base)),
               I("[LSC Calibration]CheckFlash open\n"), I("[LSC Calibration]CheckFlash read\n"),
               I("[LSC Calibration]CheckFlash memcpy\n")};
  for (uint32_t i = 0; i < 8; ++i) {
    const uint64_t high = word_at(image, base + 8 * i + 4);
    lines.push_back(
        I(printf_text("[Read NandFlash]pData.caBuff[%u]:0x%llx\n", i,
                      static_cast<unsigned long long>(high << 32 | word_at(image, base + 8 * i)))));
  }
  for (uint32_t j = 0; j < 150; ++j) {
    const uint32_t word = word_at(image, base + 64 + 4 * j);
    lines.push_back(I(printf_text("[Read NandFlash] 0x%x:0x%x\n", word & 0xFFFF, word >> 16 & 0xFF)));
  }
  return lines;
}

TEST_F(RecordArea, EveryWriterHasItsOwnFirstLinesAndThenLogsTheArea) {
  phone().set_property("ro.pagesize", "2048");
  const Bytes record = {0x00, 0x7F, 0xFF};
  const LogLine stars = I(std::string(81, '*') + "\n");
  const Log written = {I("[LSC Calibration]WriteFlash memcpy\n"), I("partition_write() done\n")};
  const Log opened = {I("[LSC Calibration]WriteFlash open\n"),
                      I("WriteFlash(): partition_open success (3)\n")};
  struct Row {
    std::function<int32_t()> call;
    Log lines;
  };
  // clang-format off
  const Row rows[] = {
      {[&] { return WriteFlashOffset(record.data(), 3, 0x1E08); },
       {I("WriteFlashOffset, byteOffset=7688"), I("WriteFlash() : 2K page\n"), I("WriteFlashOffset: eMMC boot: offset =0x10000\n"),
        I("[Calibration]WriteFlash open\n"), I("WriteFlash(): partition_open success\n"), stars, I("write partition data 0\n"),
        I("write partition data 7f\n"), I("write partition data ff\n"), stars, I("[Calibration]WriteFlash partition_write()\n"),
        I("partition_write() done\n")}},
      {[&] { return WriteFlash(record.data(), 3); },
       Log{I("WriteFlash(3)\n"), I("WriteFlash() : 2K page\n"), I("WriteFlash: eMMC boot pagesize[2048] offset(65536)\n")} +
           opened + Log{stars, stars} + written},
      {[&] { return WriteFlash_for_front_Cam(record.data(), 3); },
       Log{I("WriteFlash_for_front_Cam(3)\n"), I("WriteFlash() : 2K page\n"), I("WriteFlash_for_front_Cam: eMMC boot: offset =0x11000\n")} +
           opened + written},
      {[&] { return WriteFlash_for_bayer_Cam(record.data(), 3, 2); },
       Log{I("WriteFlash_for_bayer_Cam(3), cam_id = 2\n"), I("WriteFlash() : 2K page\n"),
           I("WriteFlash_for_bayer_Cam: eMMC boot: pagesize[2048], offset = 0x12000\n")} + opened + written},
  };
  // clang-format on
  for (const Row& row : rows) {
    const auto log = own_log([&] { EXPECT_EQ(row.call(), 0); });
    EXPECT_EQ(log, row.lines + check_flash_lines(phone().partition(), 0x10000));
  }
  phone().set_property("ro.pagesize", "4096");
  const auto log = own_log([&] { WriteFlashOffset(record.data(), 3, 0x1E08); });
  EXPECT_EQ(Log(log.begin() + 1, log.begin() + 3),
            (Log{I("WriteFlash() : 4K page\n"), I("WriteFlashOffset: eMMC boot: offset =0x20000\n")}));
  EXPECT_EQ(Log(log.begin() + 12, log.end()), check_flash_lines(phone().partition(), 0x20000));
}

TEST_F(RecordArea, ReadersDeliverTheBytesOfTheirPlaceAndLogTheirLines) {
  const Bytes image = phone().partition();
  Bytes buffer(41, 0xA5);
  const auto address = printf_text("%p", static_cast<void*>(buffer.data()));
  const auto delivers = [&](uint32_t place) {
    return std::equal(buffer.begin(), buffer.end() - 1, image.begin() + place) && buffer.back() == 0xA5;
  };
  for (const auto& [page, base] : {std::pair{"4096", 0x20000U}, {"2048", 0x10000U}, {nullptr, 0x10000U}}) {
    page != nullptr ? phone().set_property("ro.pagesize", page) : phone().unset_property("ro.pagesize");
    const LogLine opening =
        I(base == 0x20000 ? "ReadEmmcFlash() : 4K page\n" : "ReadEmmcFlash() : 2K page\n");
    EXPECT_EQ(own_log([&] { EXPECT_EQ(ReadEmmcFlash(buffer.data(), 40), 0); }),
              (Log{opening, I(printf_text("ReadEmmcFlash: eMMC boot: offset =0x%x\n", base)),
                   I("[LSC Calibration]ReadFlash open\n"),
                   I("[LSC Calibration]WriteFlash read : pdata addr=" + address + "\n")}));
    EXPECT_TRUE(delivers(base));
    EXPECT_EQ(own_log([&] { EXPECT_EQ(ReadEmmcOffset(buffer.data(), 40, 0x1E08), 0); }),
              (Log{opening, I(printf_text("ReadEmmcOffset: eMMC boot: offset =0x%x\n", base)),
                   I("[DUAL Calibration]ReadEmmcOffset : pdata addr=" + address + "\n")}));
    EXPECT_TRUE(delivers(base + 0x1E08));
  }
}

TEST_F(RecordArea, FailuresAreMinusOneWithTheirLineAndStillCheckTheArea) {
  Bytes b(32);
  struct Row {
    std::function<int32_t()> call;
    LogLine open_fails, transfer_fails;
  };
  // clang-format off
  const Row rows[] = {
      {[&] { return ReadEmmcFlash(b.data(), 32); }, E("ReadEmmcFlash(): partition_open fail\n"), E("ReadEmmcFlash(): partition_read fail\n")},
      {[&] { return ReadEmmcOffset(b.data(), 32, 4); }, E("ReadEmmcOffset(): partition_open fail\n"), E("ReadEmmcOffset(): partition_read fail\n")},
      {[&] { return WriteFlashOffset(b.data(), 32, 4); }, E("WriteFlash(): partition_open fail\n"), E("partition_write() fail\n")},
      {[&] { return WriteFlash(b.data(), 32); }, I("WriteFlash(): partition_open fail\n"), I("partition_write() fail\n")},
      {[&] { return WriteFlash_for_front_Cam(b.data(), 32); }, I("WriteFlash(): partition_open fail\n"), I("partition_write() fail\n")},
      {[&] { return WriteFlash_for_bayer_Cam(b.data(), 32, 1); }, I("WriteFlash(): partition_open fail\n"), I("partition_write() fail\n")},
  };
  // clang-format on
  const auto contains = [](const Log& log, const LogLine& line) {
    return std::count(log.begin(), log.end(), line) == 1;
  };
  const LogLine check = I("[LSC Calibration]CheckFlash open\n");
  for (const Row& row : rows) {
    const bool writes = &row >= &rows[2];
    for (const char* call : {"open", "lseek"}) {
      phone().add_fault({.call = call, .path = "/dev/block/mmcblk0p6", .from_then_on = true});
      const auto log = own_log([&] { EXPECT_EQ(row.call(), -1); });
      const LogLine& wanted = std::string_view(call) == "open" ? row.open_fails : row.transfer_fails;
      EXPECT_TRUE(contains(log, wanted)) << wanted.text;
      EXPECT_EQ(contains(log, check), writes);
      phone().clear_faults();
    }
  }
}

TEST_F(RecordArea, CheckFlashReportsOnlyTheClose) {
  EXPECT_EQ(CheckFlash(), 0);
  phone().add_fault({.call = "read", .path = "/dev/block/mmcblk0p6"});
  EXPECT_EQ(CheckFlash(), 0) << "a read that fails is no verdict";
  phone().clear_faults();
  phone().add_fault({.call = "open", .path = "/dev/block/mmcblk0p6"});
  EXPECT_EQ(CheckFlash(), -1);
}

}  // namespace
