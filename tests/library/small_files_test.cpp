// What is left under /data/misc/camera when a file is replaced, and things go wrong meanwhile?
// Guards against half a record that hides the good one in the kernel's export, and against another file
// overwritten through a link.

#include "awb_calibration/factory.h"
#include "tests/support/support.h"

namespace {

using namespace support;

constexpr awb_fuse_id kFuse = {{kModule[0], kModule[1], kModule[2], kModule[3]}};
constexpr const char* kFolder = "/data/misc/camera/";

void run_to_its_end() {
  awb_enable_calibration();
  for (int i = 0; i < 11; ++i) QOR_AWB_Calibration_write_to_flash(0, 0);
}

struct Subject {
  std::string path;
  bool is_cache;
  std::function<void()> write;
};

const Subject kSubjects[] = {
    {"awb_cal", true, run_to_its_end},
    {"aec_cal", true, [] { aec_write_calibration(0, kFuse, 5, 6, 7); }},
    {"flash_cal", true, [] { QOR_FLASH_Calibration_write_to_flash(0, kFuse, 5, 6); }},
    {"flash_dual_cal", true, [] { QOR_Dual_FLASH_Calibration_write_to_flash(0, kFuse, 1, 2, 3, 4, 5, 6); }},
    {"gyro_cal_qor_CAM", true, [] { gyro_write_calibration(0, kFuse); }},
    {"awb_calibration_success.txt", false, run_to_its_end},
    {"CalibrationData.dat", false, [] { QOR_DUAL_Calibration_ReadCalData(); }},
    {"lsc_calibration_done.txt", false, [] { QOR_Set_LSC(pattern(99).data(), 99); }},
};

class SmallFiles : public PhoneTest {
 protected:
  SmallFiles() { fit_module("main"); }

  /// The file after the subject wrote it with these faults on it; nothing when it is not there.
  std::optional<Bytes> written(const Subject& subject, const std::vector<Fault>& faults) {
    for (Fault fault : faults) {
      fault.path = kFolder + subject.path;
      phone().add_fault(fault);
    }
    console_of(subject.write);
    phone().clear_faults();
    return get(kFolder + subject.path);
  }
};

TEST_F(SmallFiles, AreRemovedMadeAnewAndOnTheMediumBeforeTheyMayBeRead) {
  for (const Subject& subject : kSubjects) {
    const std::string path = kFolder + subject.path;
    const auto content = written(subject, {});
    ASSERT_TRUE(content && !content->empty()) << path;
    // An older file is longer, private, and has a second name.
    put(path, pattern(9000));
    chmod(host(path).c_str(), 0600);
    std::filesystem::create_hard_link(host(path), host("/data/misc/camera/older"));
    umask(077);
    phone().take_calls();
    EXPECT_EQ(written(subject, {}), content) << path;
    Names calls;
    for (const auto& call : phone().take_calls()) {
      if (call.path == path) calls.push_back(call.name);
    }
    if (calls.size() > 6) calls.erase(calls.begin());  // a run removes its success file when it begins, too
    EXPECT_EQ(calls, (Names{"remove", "open", "write", "fsync", "fchmod", "close"})) << path;
    EXPECT_EQ(mode_of(host(path)), 0644) << path;
    EXPECT_EQ(get("/data/misc/camera/older"), pattern(9000)) << path;
    EXPECT_EQ(mode_of(host("/data/misc/camera/older")), 0600) << path;
    std::filesystem::remove(host("/data/misc/camera/older"));
  }
}

TEST_F(SmallFiles, ComeWholeThroughSignalsAndShortWritesAndOtherwiseNotAtAll) {
  struct Row {
    const char* what;
    std::vector<Fault> faults;
    long kept;  ///< bytes in the file; -1 all of them
  };
  // clang-format off
  const Row rows[] = {
      {"not removed", {{.call = "remove"}}, -1},
      {"a signal", {{.call = "write", .error = EINTR}}, -1},
      {"short", {{.call = "write", .transfer = 3}}, -1},
      {"short, then a signal", {{.call = "write", .transfer = 3}, {.call = "write", .nth = 2, .error = EINTR}}, -1},
      {"not synced", {{.call = "fsync"}}, -1},
      {"no mode", {{.call = "fchmod"}}, -1},
      {"no space", {{.call = "write", .error = ENOSPC}}, 0},
      {"no space but for 10 bytes", {{.call = "write", .transfer = 10}, {.call = "write", .nth = 2, .error = ENOSPC}}, 10},
      {"nothing written", {{.call = "write", .transfer = 0}}, 0},
  };
  // clang-format on
  for (const Subject& subject : kSubjects) {
    const Bytes whole = written(subject, {}).value_or(Bytes{});
    for (const Row& row : rows) {
      put(kFolder + subject.path, pattern(9000));
      const auto left = written(subject, row.faults);
      if (subject.is_cache && row.kept >= 0) {
        EXPECT_EQ(left, std::nullopt) << subject.path << ": " << row.what;
      } else {
        const auto end = row.kept < 0 ? whole.end() : whole.begin() + row.kept;
        EXPECT_EQ(left, Bytes(whole.begin(), end)) << subject.path << ": " << row.what;
        EXPECT_EQ(mode_of(host(kFolder + subject.path)), 0644) << subject.path << ": " << row.what;
      }
    }
  }
  // The sub camera's flash writer, which sets the mode of the front camera's file, removes its own.
  put("/data/misc/camera/flash_cal_front", {7});
  const auto sub_flash = [] { QOR_FLASH_Calibration_write_to_flash(2, kFuse, 5, 6); };
  EXPECT_EQ(written({"flash_cal", true, sub_flash}, {{.call = "write"}}), std::nullopt);
  EXPECT_EQ(get("/data/misc/camera/flash_cal_front"), Bytes{7});
}

TEST_F(SmallFiles, AreNotWrittenThroughALink) {
  const auto victim = host("/data/misc/camera/victim");
  for (const Subject& subject : kSubjects) {
    const auto path = host(kFolder + subject.path);
    for (const bool removal_fails : {false, true}) {
      write_bytes(victim, {7});
      chmod(victim.c_str(), 0600);
      std::filesystem::remove(path);
      std::filesystem::create_symlink(victim, path);
      written(subject, removal_fails ? std::vector<Fault>{{.call = "remove", .from_then_on = true}}
                                     : std::vector<Fault>{});
      EXPECT_EQ(read_bytes(victim), Bytes{7}) << subject.path;
      EXPECT_EQ(mode_of(victim), 0600) << subject.path;
      EXPECT_EQ(std::filesystem::is_symlink(path), removal_fails) << subject.path;
      std::filesystem::remove(path);
    }
  }
}

}  // namespace
