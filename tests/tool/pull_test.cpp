// Does the folder that is pulled from a phone come to what the phone itself does, however the cable and the phone's
// owner behave? Guards against a folder that looks whole and is not, and against a phone that is written to.

#include <fstream>
#include <map>
#include <utility>

#include "inspect/errors.h"
#include "pull/process.h"
#include "records/record_layouts.h"
#include "tests/support/stand_in_phones.h"

namespace {

using namespace tool;

/// Every file and link below a folder.
std::map<std::string, std::string> contents(const fs::path& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    std::string& content = files[entry.path().lexically_relative(folder).string()];
    if (entry.is_symlink()) {
      content = fs::read_symlink(entry.path()).string();
    } else if (entry.is_regular_file()) {
      content = support::read_text(entry.path()).value_or("(unreadable)");
    }
  }
  return files;
}

class Pull : public StandInPhones {
 protected:
  /// A phone with good records of the main camera.
  void connect(const phone::Options& options = {.partition_size = 256 * 1024},
               const std::string& serial = kSerial) {
    auto made = phone::VirtualPhone::create(phone_dir(serial), options);
    support::fit_module(made, "main");
    made.set_property("ro.serialno", serial);
    const uint64_t base = options.page_size == 4096 ? 0x20000 : 0x10000;
    made.write_partition(base, awb().data(), awb().size());
    made.write_partition(base + calib::kSlotAec, aec().data(), aec().size());
    made.reboot();
    file("adb/" + serial + "/data/misc/camera/awb_cal", awb());
    text_file("adb/" + serial + "/data/misc/camera/my calibration.txt", "good\n");
  }

  Outcome pull(const std::string& arguments = "", const std::string& dir = "out") const {
    return in_shell(AWBCAL " pull " + arguments + " " + path(dir) + " 2>&1");
  }

  /// What the tool says of a folder, but for its name.
  static Outcome said(const std::string& command, const std::string& dir) {
    Outcome outcome = run(command + " " + dir);
    outcome.output = support::replaced(outcome.output, dir, "DIR");
    return outcome;
  }

  void expect_like_the_phone(const std::string& dir = "out") const {
    for (const char* command : {"verify", "explain main", "explain front"})
      EXPECT_EQ(said(command, path(dir)), said(command, phone_dir())) << command;
  }

  void lets_through(size_t bytes) const { text_file("adb/left", std::to_string(bytes)); }

  /// What comes over the cable in a whole pull.
  size_t bytes_asked_by(const std::string& arguments) const {
    constexpr size_t kPlenty = 1 << 30;
    lets_through(kPlenty);
    EXPECT_THAT(pull(arguments), Exits(0));
    return kPlenty - std::stoul(text("adb/left"));
  }
};

TEST_F(Pull, MakesAFolderThatSaysWhatThePhoneSays) {
  const phone::Options nand{.storage = phone::Storage::nand, .nand = {.factory_bad = {0, 2, 15}}};
  const phone::Options all_bad_first{.storage = phone::Storage::nand,
                                     .page_size = 2048,
                                     .nand = {.blocks = 9, .factory_bad = {0, 1, 2, 3, 4}}};
  const struct {
    const char* what;
    phone::Options options;
    const char* arguments;
    const char* text;
  } rows[] = {
      {"eMMC", {}, "", "/dev/block/mmcblk0p6: the record area alone"},
      {"eMMC, all of it", {}, "--whole", "/dev/block/mmcblk0p6: all 1048576 bytes"},
      {"eMMC, 2k", {.page_size = 2048}, "", "the record area alone"},
      {"NAND without bad blocks",
       {.storage = phone::Storage::nand},
       "",
       "/dev/mtd/mtd3: 16 blocks, 0 of them bad"},
      {"NAND", nand, "", "/dev/mtd/mtd3: 16 blocks, 3 of them bad"},
      {"NAND, the first ones bad", all_bad_first, "", "/dev/mtd/mtd3: 9 blocks, 5 of them bad"},
  };
  for (const auto& [what, options, arguments, text] : rows) {
    SCOPED_TRACE(what);
    connect(options);
    const auto before = contents(phone_dir());
    EXPECT_THAT(pull(arguments), Exits(0, Tells(text), Tells("reports 1 read")));
    EXPECT_EQ(contents(phone_dir()), before) << "the phone was written to";
    expect_like_the_phone();
    EXPECT_THAT(said("verify", path("out")), Exits(0, Tells("PASS: 2 good")));
    fs::remove_all(phone_dir());
    fs::remove_all(path("out"));
  }
}

TEST_F(Pull, QuotesWhatThePhoneNames) {
  connect();
  const std::string device = "mmc blk0'p6 $(reboot)";
  const fs::path block = phone_dir() + "/dev/block";
  fs::rename(block / "mmcblk0p6", block / device);
  text_file(std::string("adb/") + kSerial + "/proc/emmc", device + ": 00000400 00000200 \"mfg\"\n");
  EXPECT_THAT(pull("--whole"), Exits(0, Tells("partition /dev/block/" + device + ": all 262144 bytes")));
  EXPECT_EQ(text("out/dev/block/" + device), support::read_text(block / device));
  expect_like_the_phone();
}

TEST_F(Pull, IsNotLedOutOfTheFolder) {
  connect();
  const fs::path link = phone_dir() + "/dev/block/platform/msm_sdcc.1/by-name/mfg";
  fs::remove(link);
  fs::create_symlink(path("mine"), link);
  file("mine/awb_cal", awb());
  const std::string device = "platform/msm_sdcc.1/by-name/mfg/awb_cal";
  text_file(std::string("adb/") + kSerial + "/proc/emmc", device + ": 00000400 00000200 \"mfg\"\n");
  EXPECT_THAT(pull(), Exits(2, Tells("a path that leads out of the folder")));
  EXPECT_EQ(bytes("mine/awb_cal"), awb());
}

TEST_F(Pull, SaysWhatItCouldNotRead) {
  const std::string no_partition =
      "no root: the partition is missing, cache files and exports suffice for explain";
  const struct {
    const char* what;
    const char* refused;
    const char* su;
    int pulled;
    std::string text;
    int verified;
    int explained;
  } rows[] = {
      {"the partition", "/dev/block/*", "", 0, no_partition, 2, 0},
      {"the device alone", "/dev/block/mmcblk0p6", "", 0, no_partition, 2, 0},
      {"and its table", "/proc/emmc", "", 0, "the record area alone", 2, 0},
      {"the platform's su", "/dev/block/*", "0", 0, "as root, through su", 0, 0},
      {"another su", "/dev/block/*", "-c", 0, "as root, through su", 0, 0},
      {"cache files", "/data/misc/camera/*", "", 2,
       "no root: cache files: CalibrationData.dat: Permission denied: a record that may be there is not known",
       2, 2},
      {"exports", "/sys/*", "", 2, "no root: kernel exports: awb_cal_3D: Permission denied", 2, 2},
  };
  for (const auto& [what, refused, su, pulled, text, verified, explained] : rows) {
    SCOPED_TRACE(what);
    connect();
    refuse(refused, su);
    EXPECT_THAT(pull(), Exits(pulled, Tells(text)));
    EXPECT_EQ(said("verify", path("out")).exit_code, verified);
    EXPECT_EQ(said("explain main", path("out")).exit_code, explained);
    // What is not known stays so in what is shared of it.
    run("redact --output " + path("shared") + " " + path("out"));
    EXPECT_EQ(run("verify " + path("shared")).exit_code, verified);
    for (const char* folder : {"adb/su", "out", "shared"}) fs::remove_all(path(folder));
    for (const char* of : {"", ".root"}) fs::remove_all(phone_dir() + of);
  }
}

TEST_F(Pull, OfANandChipNeedsNanddumpAndItsErrors) {
  connect({.storage = phone::Storage::nand, .nand = {.factory_bad = {0}}});
  const std::string there = std::exchange(nanddump, "/none");
  EXPECT_THAT(pull(), Exits(0, Tells("no nanddump on the phone: which blocks are bad is not known")));
  EXPECT_THAT(said("verify", path("out")), Exits(0, Tells("which blocks are bad is not known")));
  std::ofstream(phone_dir() + "/faults", std::ios::app) << "nand read 3 1+ ecc_failed\n";
  nanddump = there;
  EXPECT_THAT(pull(), Exits(0, Tells("/dev/mtd/mtd3: bit errors that the chip could not correct")));
  EXPECT_EQ(said("verify", path("out")).exit_code, 2);
}

TEST_F(Pull, NeedsOnePhoneThatAnswers) {
  connect();
  const struct {
    const char* devices;
    const char* arguments;
    const char* text;
  } rows[] = {
      {"", "", "no phone is connected: is its USB debugging switched on?"},
      {"A\tdevice\nB C\tdevice\n", "", "2 phones are connected: choose one with -s: A, B C"},
      {"A\tdevice\n", "-s B", "B: not connected; there are: A"},
      {"A\tunauthorized\n", "", "A: unauthorized: allow this computer on the phone's screen"},
      {"A\toffline\nB\tdevice\n", "-s A", "A: does not answer: offline"},
  };
  for (const auto& [devices, arguments, text] : rows) {
    text_file("adb/devices", devices);
    EXPECT_THAT(pull(arguments), Exits(2, Tells(text)));
    EXPECT_FALSE(fs::exists(path("out"))) << text;
  }
  connect({.partition_size = 256 * 1024}, "two words");
  text_file("adb/devices", std::string(kSerial) + "\tdevice\ntwo words\trecovery\n");
  text_file("adb/slow", "0.1");
  EXPECT_THAT(pull("-s 'two words'"), Exits(0, Tells("phone two words, without root")));
  EXPECT_THAT(pull("-s " + std::string(kSerial)),
              Exits(2, Tells("is of another phone, or of other modules: its ro.serialno is two words")));
  EXPECT_THAT(said("verify", path("out")), Exits(0));
  const std::string properties = "adb/two words/properties";
  text_file(properties, support::replaced(text(properties), "main_fuse1=", "main_fuse1=1"));
  EXPECT_THAT(pull("-s 'two words'"),
              Exits(2, Tells("or of other modules: its qor.camera.sensor.main_fuse1")));
  text_file("mine/note", "of a person");
  EXPECT_THAT(pull("-s 'two words'", "mine"),
              Exits(2, Tells("no awbcal pull made it: nothing in it was touched")));
  EXPECT_THAT(contents(path("mine")), testing::SizeIs(1));
}

TEST(RunProgram, EndsOneThatNeverEndsItsAnswer) {
  EXPECT_THROW(awbcal::run_program({"yes"}, 100000), awbcal::InputError);
}

TEST_F(Pull, CutOffAnywhereSaysSoAndGoesOn) {
  connect();
  const size_t size = bytes_asked_by("");
  const auto whole = contents(path("out"));
  fs::remove_all(path("out"));
  const size_t cuts = std::stoul(setting("PULL_TEST_CUTS", "6"));
  for (size_t i = 0; i < cuts; ++i) {
    const size_t left = i < 3 ? size - 1 - i : i * size / cuts;
    SCOPED_TRACE(left);
    lets_through(left);
    EXPECT_THAT(pull(), Exits(2, Tells("the phone's answer ends too early: error: device")));
    if (fs::exists(path("out"))) {
      EXPECT_THAT(said("verify", path("out")), Exits(2, Tells("DIR: not whole: run awbcal pull again")));
      EXPECT_THAT(said("explain main", path("out")), Exits(2));
    }
    fs::remove(path("adb/left"));
    EXPECT_THAT(pull(), Exits(0));
    EXPECT_EQ(contents(path("out")), whole);
    // The next one goes on in the folder of an earlier pull, or begins a new one.
    if (i % 2 == 0) fs::remove_all(path("out"));
  }
}

TEST_F(Pull, OfAWholePartitionGoesOnWhereItWasCutOff) {
  constexpr size_t kMiB = 1024 * 1024;
  connect({.partition_size = 3 * kMiB + 4096, .fill = 0x5A});
  const std::string device = std::string("adb/") + kSerial + "/dev/block/mmcblk0p6";
  EXPECT_THAT(pull(), Exits(0));
  Bytes others = bytes("out/dev/block/mmcblk0p6");
  others.erase(others.begin() + 0x10000, others.begin() + 0x14000);
  others.resize(0x20000 - 0x4000);
  EXPECT_THAT(others, testing::Each(0)) << "of a partition's other users nothing is taken along";
  fs::remove_all(path("out"));
  const auto goes_on = [&](size_t through, bool is_changed) {
    lets_through(through);
    EXPECT_THAT(pull("--whole"), Exits(2, Tells("is not whole: run awbcal pull again")));
    const size_t came = text("out/dev/block/mmcblk0p6.part").size();
    EXPECT_EQ(text("out/dev/block/mmcblk0p6"), "(absent)");
    fs::remove(path("adb/left"));
    if (is_changed) file(device, damaged(bytes(device), 77));
    text_file("adb/asked", "");
    EXPECT_THAT(pull("--whole"), Exits(0));
    EXPECT_EQ(text("adb/asked").find("tail -c +" + std::to_string(came + 1)) == std::string::npos,
              is_changed);
    EXPECT_EQ(bytes("out/dev/block/mmcblk0p6"), bytes(device));
    expect_like_the_phone();
    fs::remove_all(path("out"));
    return came;
  };
  constexpr size_t kCut = 2 * kMiB + kMiB / 2;
  const size_t came = goes_on(kCut, false);
  EXPECT_THAT(came, testing::AllOf(testing::Gt(2 * kMiB), testing::Lt(kCut)));
  goes_on(kCut, true);
  // Cut off in the mark that ends the last answer, which is none of the device's bytes.
  const size_t size = bytes_asked_by("--whole");
  fs::remove_all(path("out"));
  goes_on(size - 10, false);
}

}  // namespace
