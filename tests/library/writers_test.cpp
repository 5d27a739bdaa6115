// Do the AEC, flash, gyro and dual-camera writers store exactly their record, and say honestly how that went?
// Guards against a record in the wrong place, a success told for a write that failed, and files left
// unreadable.

#include "awb_calibration/factory.h"
#include "tests/support/support.h"

namespace {

using namespace support;

constexpr awb_fuse_id kFuse = {{kModule[0], kModule[1], kModule[2], kModule[3]}};
const std::string kFolder = "/data/misc/camera/";
const std::string kPayload = kFolder + "CalibrationData.dat";
const std::string kMarker = kFolder + "dual_calibration_success.txt";
const std::string kDevice = "/dev/block/mmcblk0p6";

/// A writer that takes a camid. In texts $ is its name, @ the camid and the offset, and every log line begins
/// with its level and ends with |.
struct Writer {
  std::string name;
  std::function<int32_t(uint8_t camid)> call;
  Bytes record;
  uint32_t place;
  std::string cache, front_cache, sub_cache;
  const char *opening, *words, *stored,
      *not_stored;  // `words`: of the line of each word, if there are such lines
  /// Into which file a record goes: a camid of 3 and more is the main camera's.
  const std::string& written(int camid) const {
    return camid == 1 ? front_cache : camid == 2 ? sub_cache : cache;
  }
};

const Writer kWriters[] = {
    {"QOR_FLASH_Calibration_write_to_flash",
     [](uint8_t camid) { return QOR_FLASH_Calibration_write_to_flash(camid, kFuse, 2048, -1); },
     sealed32({3099, 2048, 0xFFFFFFFF, kModule[0], kModule[1], kModule[2], kModule[3]}), 3592,
     kFolder + "flash_cal", kFolder + "flash_cal_front", kFolder + "flash_cal", "I$: @ (2048,-1)|",
     "[Flash Calibration]-FlashcaBuff",
     "I$, [Flash Calibration] write flash pass|I[Flash Calibration] write cabuff to /data/misc/camera/awb_cal|",
     "E$, [Flash Calibration] Can't write flash. Maybe Not MFG ROM or Flash is bad|"},
    {"QOR_Dual_FLASH_Calibration_write_to_flash",
     [](uint8_t camid) { return QOR_Dual_FLASH_Calibration_write_to_flash(camid, kFuse, 1, 2, 3, 4, 5, -6); },
     sealed32({3099, 1, 2, 3, 4, 5, 0xFFFFFFFA, kModule[0], kModule[1], kModule[2], kModule[3]}), 3692,
     kFolder + "flash_dual_cal", kFolder + "flash_dual_cal_front_CAM", kFolder + "flash_dual_cal",
     "I$: @ x1(1,2)|I$: @ x2(3,4)|I$: @ x3(5,-6)|", "[Flash Calibration]-FlashcaBuff",
     "I$, [Flash Calibration] write flash pass|I[Flash Calibration] write cabuff to /data/misc/camera/awb_cal|",
     "E$, [Flash Calibration] Can't write flash. Maybe Not MFG ROM or Flash is bad|"},
    {"gyro_write_calibration", [](uint8_t camid) { return gyro_write_calibration(camid, kFuse); },
     sealed64({3099, kModule[0], kModule[1], kModule[2], kModule[3]}), 3744, kFolder + "gyro_cal_qor_CAM",
     kFolder + "gyro_cal_front_qor_CAM", kFolder + "gyro_cal_qor_CAM",
     "E$, [gyro Calibration] E|I$: @|E$, [gyro Calibration] @|", nullptr,
     "E$, [gyro Calibration] gyro write flash pass|"
     "E[ISP Calibration] write isp_cabuff to /data/misc/camera/awb_cal_ISP_sub_qor_CAM|",
     "E$, [gyro Calibration] Can't write to flash. Maybe Not MFG ROM or Flash is bad|"},
    {"aec_write_calibration",
     [](uint8_t camid) { return aec_write_calibration(camid, kFuse, 160, 33000, 51); },
     sealed32({3099, 160, 33000, 51, kModule[0], kModule[1], kModule[2], kModule[3]}), 3624,
     kFolder + "aec_cal", kFolder + "aec_cal_front_CAM", kFolder + "aec_cal_sub_CAM", "I$: @ (160,33000)|",
     "[AWB Calibration]-aec_caBuff",
     "I$, [AWB Calibration] AEC write flash pass|I[AWB Calibration] write aec_cabuff to /data/misc/camera/aec_cal|",
     "E$, [AWB Calibration] Can't write AEC to flash. Maybe Not MFG ROM or Flash is bad|"},
};

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (size_t at = 0; (at = text.find(what, at)) != text.npos; at += by.size())
    text.replace(at, what.size(), by);
  return text;
}

std::string opening_of(const Writer& writer, int camid) {
  std::string text =
      replaced(writer.opening, "@",
               printf_text("camid(%d) offset(%d)", camid, static_cast<int>(writer.place) + camid * 4096));
  for (size_t i = 0; writer.words != nullptr && i < writer.record.size() / 4; ++i) {
    text += printf_text("I$, %s-%zu, 0x%x|", writer.words, i, word_at(writer.record, 4 * i));
  }
  return text;
}

/// What was seen of one call, its own log lines without those of the transfer.
struct Outcome {
  int32_t result;
  std::string console, log;
  bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* stream) {
  *stream << outcome.result << "\n" << outcome.console << "\n" << outcome.log;
}

class Writers : public PhoneTest {
 protected:
  Writers() {
    fill_partition();
    umask(077);
  }

  Outcome run(const std::string& name, const std::function<int32_t()>& call) {
    Outcome seen{};
    const auto log = log_of([&] { seen.console = console_of([&] { seen.result = call(); }); });
    for (const LogLine& line : log) {
      const bool own =
          line.text.find(name) != line.text.npos || line.text.find("Calibration] write ") != line.text.npos;
      if (own) seen.log += std::string(1, "??DDIWE"[line.priority]) + line.text + "|";
    }
    seen.console = replaced(seen.console, name, "$");
    seen.log = replaced(seen.log, name, "$");
    return seen;
  }

  Outcome run_with(const Fault& fault, const std::string& name, const std::function<int32_t()>& call) {
    phone().add_fault(fault);
    Outcome seen = run(name, call);
    phone().clear_faults();
    return seen;
  }

  void put_private(const std::string& path, const Bytes& bytes) {
    put(path, bytes);
    chmod(host(path).c_str(), 0600);
  }
};

TEST_F(Writers, StoreTheirRecordInTheSlotAndInTheCacheFile) {
  for (const auto& [page, base] : {std::pair{"4096", 0x20000U}, {"2048", 0x10000U}}) {
    phone().set_property("ro.pagesize", page);
    for (const Writer& writer : kWriters) {
      for (const uint8_t camid : Bytes{0, 1, 2, 17}) {
        const std::string& written = writer.written(camid);
        const std::string& other = camid == 1 ? writer.cache : writer.front_cache;
        for (const auto& path : {written, other}) put_private(path, {1});
        Outcome seen;
        expect_partition_write(base + writer.place + camid * 4096U, writer.record,
                               [&] { seen = run(writer.name, [&] { return writer.call(camid); }); });
        EXPECT_EQ(seen, (Outcome{0, "$: writeflash() OK\n", opening_of(writer, camid) + writer.stored}));
        EXPECT_EQ(get(written), writer.record);
        EXPECT_EQ(get(other), Bytes{1});
        const bool to_other = writer.name.starts_with("QOR") && camid > 1;
        EXPECT_EQ(mode_of(host(written)), to_other ? 0600 : 0644) << writer.name << int{camid};
        EXPECT_EQ(mode_of(host(other)), to_other ? 0644 : 0600) << writer.name << int{camid};
      }
    }
  }
}

TEST_F(Writers, AFailedTransferIsToldAndLeavesTheCacheFileAlone) {
  for (const Fault& fault :
       {Fault{.call = "open", .path = kDevice}, Fault{.call = "lseek", .path = kDevice},
        Fault{.call = "write", .path = kDevice}, Fault{.call = "write", .path = kDevice, .transfer = 10}}) {
    for (const Writer& writer : kWriters) {
      put(writer.cache, {7});
      EXPECT_EQ(run_with(fault, writer.name, [&] { return writer.call(0); }),
                (Outcome{-1, "$: writeflash() fail\n", opening_of(writer, 0) + writer.not_stored}));
      EXPECT_EQ(get(writer.cache), Bytes{7});
    }
  }
}

TEST_F(Writers, ACacheFileThatCannotBeCreatedIsToldButIsNoFailure) {
  for (const Writer& writer : kWriters) {
    for (uint8_t camid = 0; camid < 3; ++camid) {
      const std::string line = "$: create " + writer.written(camid) + " fail\n";
      const std::string stored(writer.stored, std::string(writer.stored).find('|') + 1);
      EXPECT_EQ(
          run_with({.call = "open", .path = kFolder + "*"}, writer.name, [&] { return writer.call(camid); }),
          (Outcome{0, "$: writeflash() OK\n" + line, opening_of(writer, camid) + stored + "E" + line + "|"}));
    }
  }
}

// ---- dual camera --------------------------------------------------------------------------------------------

struct DualWriter {
  std::string name;
  std::function<int32_t()> call;
  size_t payload;
  uint32_t offset;
  Words head, tail;  // around the payload, before the checksum
  size_t checksum_size;
  std::string verified, verified_console, no_input_end;
};

const DualWriter kDualWriters[] = {
    {"QOR_DUAL_CalibrationData_write_to_flash",
     [] { return QOR_DUAL_CalibrationData_write_to_flash(kFuse); },
     1643,
     12800,
     {3099},
     {kModule[0], kModule[1], kModule[2], kModule[3]},
     4,
     "I$, [DUAL Calibration] dual_calibration_success.txt|",
     "$: [DUAL Calibration] dual_calibration_success.txt\n",
     "\n"},
    {"QOR_DUAL_Calibration_write_to_flash",
     QOR_DUAL_Calibration_write_to_flash,
     464,
     12288,
     {},
     {},
     1,
     "",
     "",
     ""},
};

Bytes record_of(const DualWriter& writer, Bytes payload) {
  payload.resize(writer.payload);
  Bytes record = le32(writer.head);
  record.insert(record.end(), payload.begin(), payload.end());
  for (const uint8_t byte : le32(writer.tail)) record.push_back(byte);
  const Bytes crc = le32({bitwise_crc(record.data(), record.size())});
  record.insert(record.end(), crc.begin(), crc.begin() + static_cast<ptrdiff_t>(writer.checksum_size));
  return record;
}

TEST_F(Writers, DualCameraRecordsHoldThePayloadFileCutOrFilledUp) {
  for (const DualWriter& writer : kDualWriters) {
    for (const size_t length :
         {size_t{0}, writer.payload - 1, writer.payload, writer.payload + 1, size_t{5000}}) {
      put(kPayload, pattern(length));
      put_private(kMarker, {1});
      Outcome seen;
      expect_partition_write(0x20000 + writer.offset, record_of(writer, pattern(length)),
                             [&] { seen = run(writer.name, writer.call); });
      const std::string begun =
          printf_text("I$: offset(%u)|I$, [DUAL Calibration] write flash pass|", writer.offset);
      EXPECT_EQ(seen,
                (Outcome{0, "$: writeflash() OK\n" + writer.verified_console, begun + writer.verified}));
      EXPECT_EQ(get(kMarker), Bytes{});
      EXPECT_EQ(mode_of(host(kMarker)), 0644);
    }
  }
}

TEST_F(Writers, DualCameraFailuresLeaveNoMarkerAndSayWhatFailed) {
  const std::string ok = "$: writeflash() OK\n", passed = "I$, [DUAL Calibration] write flash pass|";
  const std::string no_memory = "E$, [Dual Calibration] Can't allocate calibration buffer|";
  const std::string no_transfer =
      "E$, [Dual Calibration] Can't write flash. Maybe Not MFG ROM or Flash is bad|";
  for (const DualWriter& writer : kDualWriters) {
    const unsigned last_buffer = writer.head.empty() ? 2 : 1;
    const std::pair<Fault, Outcome> rows[] = {
        {{.call = "malloc"}, {-1, "$: Can't allocate calibration buffer\n", no_memory}},
        {{.call = "malloc", .nth = last_buffer}, {-1, "$: Can't allocate calibration buffer\n", no_memory}},
        {{.call = "open", .path = kPayload},
         {-1, "\n can not open file: " + kPayload + writer.no_input_end, ""}},
        {{.call = "write", .path = kDevice}, {-1, "$: writeflash() fail\n", no_transfer}},
        // Behind the write comes the dump of the area, then the read-back.
        {{.call = "read", .path = kDevice, .nth = 2},
         {-1, ok + "$: ReadEmmcOffset() fail\n", passed + no_transfer}},
        {{.call = "open", .path = kMarker},
         {-1, ok + "\n can not open calibration_success.txt file", passed}}};
    for (auto [fault, expected] : rows) {
      put(kPayload, pattern(2000));
      put(kMarker, {1});
      expected.log = printf_text("I$: offset(%u)|", writer.offset) + expected.log;
      EXPECT_EQ(run_with(fault, writer.name, writer.call), expected) << fault.call;
      EXPECT_EQ(camera_files(), Names{"CalibrationData.dat"}) << fault.call;
    }
  }
}

TEST_F(Writers, DualCameraMarkerNeedsEveryByteThatIsCompared) {
  put(kPayload, pattern(2000));
  for (const DualWriter& writer : kDualWriters) {
    const size_t compared = writer.head.empty() ? writer.payload + 1 : writer.checksum_size;
    for (size_t from_end = 1; from_end <= 6; ++from_end) {
      Bytes other = record_of(writer, pattern(2000));
      other[other.size() - from_end] ^= 0x40;
      // With another page size it is read back from another place.
      phone().write_partition(0x10000 + writer.offset, other.data(), other.size());
      const Fault fault{.call = "__system_property_get", .path = "ro.pagesize", .nth = 3};
      EXPECT_EQ(run_with(fault, writer.name, writer.call).result, 0);
      EXPECT_EQ(get(kMarker).has_value(), from_end > compared) << writer.name << from_end;
    }
  }
}

TEST_F(Writers, DualCameraPayloadIsReadBackIntoItsFile) {
  const std::string name = "QOR_DUAL_Calibration_ReadCalData";
  const Bytes area = phone().partition();
  const std::string begun = "$: [Dual Calibration] calibration_size=1643, offset=3200\n";
  const std::string dumped = "[Dual Calibration] dump the calibration data...";
  EXPECT_EQ(run(name, QOR_DUAL_Calibration_ReadCalData),
            (Outcome{0, begun + "$: " + dumped + "\n", "I" + begun + "|E$, " + dumped + "|"}));
  EXPECT_EQ(get(kPayload), Bytes(area.begin() + 0x23204, area.begin() + 0x23204 + 1643));
  EXPECT_EQ(mode_of(host(kPayload)), 0644);

  const std::tuple<Fault, const char*, const char*> rows[] = {
      {{.call = "malloc"},
       "$: Can't allocate calibration buffer\n",
       "E$, [Dual Calibration] Can't allocate calibration buffer|"},
      {{.call = "read", .path = kDevice},
       "$: ReadEmmcOffset() fail\n",
       "E$, [Dual Calibration] Can't write flash. Maybe Not MFG ROM or Flash is bad|"},
      {{.call = "open", .path = kPayload},
       "\n can not open file: /data/misc/camera/CalibrationData.dat",
       ""}};
  for (const auto& [fault, console, log] : rows) {
    EXPECT_EQ(run_with(fault, name, QOR_DUAL_Calibration_ReadCalData),
              (Outcome{-1, begun + console, "I" + begun + "|" + log}));
  }
}

}  // namespace
