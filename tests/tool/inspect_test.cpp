// Does the tool recognise what people have, show every byte of it, and come to the right verdict? Guards
// against records passed over, a verdict that misleads a line engineer, and a crash where a message is due.

#include <unistd.h>

#include "tests/support/tool_support.h"

namespace {

using namespace tool;

constexpr uint32_t kOther[4] = {1, 2, 3, 4};
constexpr uint32_t kUnbound[4] = {};

class Inspect : public ToolTest {};

/// Its checksum has one byte.
Bytes first_form() {
  Bytes bytes = support::pattern(464);
  bytes.push_back(static_cast<uint8_t>(support::bitwise_crc(bytes.data(), bytes.size())));
  return bytes;
}

// ---- show -------------------------------------------------------------------------------------------------

TEST_F(Inspect, ShowsOneCacheFileWithItsBytes) {
  const std::string name = file("awb_cal_front_CAM", awb());
  EXPECT_THAT(run("show --raw " + name), Exits(0, name + R"(: one record

front camera, AWB record
  file: awb_cal_front_CAM, byte 0x0
    000000  1b 0c 00 00 20 03 00 00 58 02 00 00 44 33 22 11  |.... ...X...D3".|
    000010  88 77 66 55 cc bb aa 99 01 ff ee dd 30 1e 3e 61  |.wfU........0.>a|
    byte  field        value       meaning
       0  valid word   3099        version 3, calibrated
       4  R/G          800         0.7812
       8  B/G          600         0.5859
      12  fuse word 1  0x11223344
      16  fuse word 2  0x55667788
      20  fuse word 3  0x99aabbcc
      24  fuse word 4  0xddeeff01
      28  CRC          0x613e1e30

1 record
fuse IDs not compared: the modules are not known
)"));
}

TEST_F(Inspect, RecognisesAFileByItsNameOrItsContent) {
  Bytes lens = support::pattern(3584);
  lens[0] = 0x1B;
  const std::tuple<const char*, Bytes, const char*> rows[] = {
      {"awb_cal", awb(), "main camera, AWB record"},
      {"flash_cal_front", awb(), "front camera, flash record"},
      {"awb_A_light_cal_sub_CAM", awb(), "sub camera, A-light AWB record"},
      {"gyro_cal_front_qor_CAM", gyro(), "front camera, gyro record"},
      {"x", awb(), "\nAWB record"},
      {"x", aec(), "\nAEC record"},
      {"x", gyro(), "\ngyro record"},
      {"x", dual_flash(), "\ndual-flash record"},
      {"x", support::pattern(1667), "\ndual-camera record"},
      {"x", support::pattern(465), "\ndual-camera record, first form"},
      {"CalibrationData.dat", support::pattern(1643), "\ndual-camera payload"},
      {"x", lens, "\nlens-shading record"},
  };
  for (const auto& [name, bytes, title] : rows) {
    EXPECT_THAT(run("show " + file(name, bytes)), Exits(0, HasSubstr(title), HasSubstr("1 record\n")))
        << title;
  }
}

TEST_F(Inspect, ReadsStandardInputAndWhatItIsTold) {
  const std::string name = file("mine", awb());
  EXPECT_THAT(run("show - <" + name).output, HasSubstr("AWB record"));
  EXPECT_THAT(run("show --as flash --camera sub " + name).output, HasSubstr("sub camera, flash record"));
  EXPECT_THAT(run("show --as aec " + name).output, HasSubstr("truncated: 32 of 36 bytes"));
}

TEST_F(Inspect, FindsTheRecordAreaAtEitherBase) {
  for (const auto& [base, other] : {std::pair{0x10000U, "4k"}, std::pair{0x20000U, "2k"}}) {
    Bytes image(0x30000);
    put(image, base + 0x1E28, aec());
    const std::string file_name = file("mfg.img", image);
    EXPECT_THAT(run("show " + file_name),
                Exits(0, HasSubstr("front camera, AEC record"), HasSubstr("(found by its records)")));
    EXPECT_THAT(run("show " + file_name + " --base " + other),
                Exits(0, Not(HasSubstr("front camera, AEC record")), HasSubstr("(as --base says)")));
  }
}

TEST_F(Inspect, FindsEveryRecordOfAnExport) {
  Bytes image(4000);
  put(image, 0, awb());
  put(image, 3648, awb());
  put(image, 3712, aec());
  put(image, 3784, awb());
  put(image, 3848, dual_flash());
  put(image, 3952, gyro());
  const Outcome shown = run("show " + file("awb_cal_front", image));
  for (const char* kind : {"AWB", "flash", "AEC", "A-light AWB", "dual-flash", "gyro"}) {
    EXPECT_THAT(shown.output, HasSubstr("front camera, " + std::string(kind) + " record")) << kind;
  }
  EXPECT_THAT(shown.output, HasSubstr("front lens_shading")) << "named as blank";
  EXPECT_THAT(shown.output, HasSubstr("6 records"));
  EXPECT_THAT(shown.output, Not(HasSubstr("overlap"))) << "it has the shared bytes twice, and they differ";
}

// The gyro record's end lies on the A-light record's beginning: who was written last is good.
TEST_F(Inspect, PointsOutTheOverlapOfGyroAndALight) {
  Bytes image(0x30000);
  put(image, 0x20EC0, awb());
  put(image, 0x20EA0, gyro());
  EXPECT_THAT(run("show " + file("mfg.img", image)),
              Exits(0, HasSubstr("main camera, A-light AWB record"),
                    HasSubstr("overlap: 16 of its bytes are those of the gyro record, which is good")));
  EXPECT_THAT(run("verify " + path("mfg.img")),
              Exits(1, HasSubstr("good                     main camera, gyro record"),
                    HasSubstr("overwritten              main camera, A-light AWB record")));
  put(image, 0x20EC0, Bytes(32));
  put(image, 0x20EA0, gyro());
  EXPECT_EQ(run("verify " + file("mfg.img", image)).exit_code, 0)
      << "nothing but the gyro record was written";
}

// What the kernel passes over is no part of the partition: bad blocks, and blocks of zeros.
TEST_F(Inspect, ReadsARawNandChipByTheMapOfItsBlocks) {
  phone();
  fs::remove_all(path("phone/data"));
  text_file("phone/proc/mtd", "dev:    size   erasesize  name\nmtd3: 00080000 00020000 \"mfg\"\n");
  std::string map = "mtd 3\nerase_size 131072\nblocks 4\n";
  for (const char* block : {"0 erased 0 programmed 0 good", "1 erased 0 programmed 0 bad",
                            "2 erased 1 programmed 1 good", "3 erased 1 programmed 1 good"})
    map += std::string("block ") + block + "\n";
  text_file("phone/nand", map);
  Bytes chip(0x80000);
  put(chip, 0x20000, support::pattern(0x40000));
  put(chip, 0x60000, awb());
  file("phone/dev/mtd/mtd3", chip);
  EXPECT_THAT(
      run("show " + path("phone")),
      Exits(0, HasSubstr("AWB record\n  partition: dev/mtd/mtd3, byte 0x60000"), HasSubstr("1 record\n")));
  EXPECT_THAT(run("verify " + path("phone")), Exits(0, HasSubstr("PASS: 1 good")));
  EXPECT_THAT(run("explain --reboot main " + path("phone")), Exits(0, HasSubstr("White balance corrected")));
  // Where the area is searched for, too, the bytes are as the kernel delivers them: nothing is turned round.
  fs::remove(path("phone/getprop.txt"));
  for (size_t word = 0x60000; word < 0x60020; word += 4) std::reverse(&chip[word], &chip[word] + 4);
  file("phone/dev/mtd/mtd3", chip);
  EXPECT_THAT(run("verify " + path("phone")),
              Exits(1, HasSubstr("bad CRC                  main camera, AWB record")));
}

// ---- inputs that cannot be used ---------------------------------------------------------------------------

TEST_F(Inspect, NamesTheFileAndTheCause) {
  const std::string odd = file("odd", Bytes(7));
  const std::string empty = file("empty", {});
  fs::create_directories(path("folder/sub"));
  symlink("loop", path("loop").c_str());
  const std::pair<std::string, std::string> rows[] = {
      {path("no"), path("no") + ": no such file"},
      {path("loop"), path("loop") + ": cannot be read: Too many levels of symbolic links"},
      {odd, odd + ": 7 bytes match no record, export or partition; say what it is with --as"},
      {empty, empty + ": empty"},
      {path("folder"), path("folder") + ": no file of a phone's calibration in it"},
      {odd + " --as phone", odd + ": not a folder"},
      {odd + " --as rubbish", "--as rubbish: no such kind"},
      {path("folder") + " --as awb", path("folder") + ": a folder, not a file to read as awb"},
  };
  for (const auto& [arguments, message] : rows) {
    for (const char* command : {"show ", "verify ", "explain main "}) {
      EXPECT_THAT(run(command + arguments), Exits(2, "awbcal: " + message + "\n")) << command << arguments;
    }
  }
}

TEST_F(Inspect, TakesNoFullDiskForAVerdict) {
  const std::string verify = "verify " + phone();
  for (const std::string& arguments : {verify, verify + " --json", "demo --dir " + path("demo")}) {
    EXPECT_EQ(run(arguments, ">/dev/full 2>&1").exit_code, 2) << arguments;
  }
}

// ---- verdicts ---------------------------------------------------------------------------------------------

struct Row {
  const char* name;  ///< of the cache file
  Bytes bytes;
  const char* verdict;
  const char* rule;
  int exit_code;
};

TEST_F(Inspect, ComesToOneVerdictPerRecord) {
  const Row rows[] = {
      {"awb_cal", awb(), "good", "bound to the fitted module", 0},
      {"awb_cal", awb(3099, 800, 600, kUnbound), "good", "bound to no module", 0},
      {"awb_cal", awb(99), "good", "bound to the fitted module", 0},
      {"awb_cal", awb(3099, 800, 600, {0, kModule[1], kModule[2], kModule[3]}), "good", "bound to the fitted",
       0},
      {"awb_cal", Bytes(32), "blank", "blank: main camera: awb", 3},
      {"awb_cal", Bytes(32, 0xFF), "blank", "blank: main camera: awb", 3},
      {"awb_cal", damaged(awb(), 5), "bad CRC", "rule record.crc: expected CRC 0x", 1},
      {"awb_cal", damaged(awb(), 31), "bad CRC", "rule record.crc: expected CRC 0x613e1e30", 1},
      {"awb_cal", awb(3099, 800, 600, kOther), "wrong module",
       "rule record.module: expected fuse ID 11223344", 1},
      {"awb_cal", awb(3000), "judged out of tolerance", "expected valid word 3099, found valid word 3000", 1},
      {"awb_cal", awb(4099), "unknown version", "found valid word 4099", 1},
      {"awb_cal", awb(3098), "unknown version", "found valid word 3098", 1},
      {"awb_cal", Bytes(31), "truncated", "rule record.length: expected 32 bytes, found 31 bytes", 3},
      {"aec_cal", sealed32({3000, 1, 2, 3, 0, 0, 0, 0}), "unknown version",
       "expected valid word 99, 1099, 2099", 1},
      {"first_form", first_form(), "good", "no fuse ID in this kind", 0},
      {"first_form", damaged(first_form(), 464), "bad CRC", "expected CRC 0x000000", 1},
      {"gyro_cal_qor_CAM", gyro(), "good", "accepted by Sensor_Check_GYRO_Calibration_Result", 0},
      {"gyro_cal_qor_CAM", sealed64({2099, 0, 0, 0, 0}), "unknown version", "expected valid word 3099", 1},
      {"gyro_cal_qor_CAM", gyro({0, kModule[1], kModule[2], kModule[3]}), "wrong module", "record.module", 1},
  };
  for (const auto& [name, bytes, verdict, rule, exit_code] : rows) {
    const Outcome verified = run("verify " + file(name, bytes) + kFuse);
    const char* const endings[] = {"\nPASS: ", "\nFAIL: ", "", "\nNOTHING TO JUDGE: "};
    EXPECT_THAT(verified, Exits(exit_code, HasSubstr("\n  " + std::string(verdict)), Tells(rule),
                                HasSubstr(endings[exit_code])))
        << verdict << rule;
    EXPECT_LE(longest_line(verified.output), 80U);
  }
}

// The words of `verify`, compared with what the library itself answers for these very records.
TEST_F(Inspect, AsksTheLibraryWhoWouldTakeTheRecord) {
  const std::pair<Bytes, std::string> rows[] = {
      {awb(),
       "      accepted by QOR_AWB_Calibration_Reference_Points_Correction,\n"
       "      Correct_Reference_Points_qorModule, Dual_Cam_Correction\n"
       "  note: Sensor_Check_AWB_Calibration_Result reads 64-bit fields and can accept\n"},
      {awb(99),
       "      accepted by QOR_AWB_Calibration_Reference_Points_Correction,\n"
       "      Dual_Cam_Correction\n"
       "      refused by Correct_Reference_Points_qorModule\n"},
      {awb(3000),
       "      refused by QOR_AWB_Calibration_Reference_Points_Correction,\n"
       "      Correct_Reference_Points_qorModule, Dual_Cam_Correction\n"}};
  for (const auto& [bytes, answers] : rows) {
    EXPECT_THAT(run("verify " + file("awb_cal", bytes) + kFuse).output, HasSubstr(answers)) << answers;
  }
}

// A record that is good in the cache and damaged on the partition is lost with the next wipe.
TEST_F(Inspect, LetsNoGoodCopyHideABadOne) {
  phone();
  Bytes image(0x30000);
  put(image, 0x20000, damaged(awb(), 9));
  file("phone/mfg.img", image);
  EXPECT_THAT(run("verify " + path("phone")),
              Exits(1, HasSubstr("the cache's is good"),
                    HasSubstr("bad CRC                  main camera, AWB record\n"
                              "      partition: mfg.img, byte 0x20000")));
}

TEST_F(Inspect, SparesTheFrontCameraThatBearsTheMainOnesFuseId) {
  const std::string name = file("awb_cal_front_CAM", awb());
  const std::string fuse = " --fuse front=1,2,3,4 --fuse main=0x11223344,0x55667788,0x99aabbcc,0xddeeff01";
  EXPECT_THAT(run("verify " + name + fuse), Exits(0, HasSubstr("bears the main camera's fuse ID")));
  EXPECT_EQ(run("verify " + file("awb_cal_sub_CAM", awb()) + " --fuse sub=1,2,3,4").exit_code, 1);
}

}  // namespace
