// Do pack, diff and redact keep every byte that they should keep, and change or tell the others? Guards
// against a dump that cannot be trusted, a fuse ID that leaks, and a tool that writes where it must not.

#include "tests/support/tool_support.h"

namespace {

using namespace tool;

constexpr uint32_t kFirst[4] = {0x11223344, 0, 0x99AABB00, 0x11223344};

class Transform : public ToolTest {
 protected:
  /// An image with good, damaged, overlapping and cut-off records between bytes of no meaning.
  Bytes image() const {
    Bytes bytes = support::pattern(0x23300);
    for (size_t slot = 0x20000; slot < 0x23000; slot += 0x1000) put(bytes, slot, Bytes(0x1000, 0xFF));
    put(bytes, 0x20000, awb());
    put(bytes, 0x20E08, damaged(awb(), 6));
    put(bytes, 0x20E28, aec());
    put(bytes, 0x20EC0, awb());
    put(bytes, 0x20EA0, gyro());
    put(bytes, 0x21E6C, dual_flash(kFirst));
    return bytes;
  }

  std::string repack(const std::string& arguments) const {
    return "show --json " + arguments + " | " AWBCAL " pack";
  }
};

// ---- pack -------------------------------------------------------------------------------------------------

TEST_F(Transform, PacksAPhoneIntoAFolder) {
  phone();
  file("phone/mfg.img", image());
  text_file("phone/data/misc/camera/awb_calibration_success.txt", "Fuse_ID[1]=0x1\n\xC3\x28");
  ASSERT_EQ(run(repack(path("phone")) + " --output " + path("copy"), "").exit_code, 0);
  EXPECT_EQ(run("verify " + path("copy"), "| tail -n +2").output,
            run("verify " + path("phone"), "| tail -n +2").output);
  EXPECT_THAT(support::run_shell("diff -r -x .made-by-awbcal " + path("phone") + " " + path("copy")),
              Exits(0, ""));
  EXPECT_EQ(run("pack " + path("no")).exit_code, 2);
}

TEST_F(Transform, SealsOnlyWhenAsked) {
  const std::string name = file("awb_cal", damaged(awb(), 4));
  const std::string edit = "show --json " + name + " | sed 's/\"b_g\": 600/\"b_g\": 601/' | " AWBCAL " pack ";
  run(edit + ">" + path("kept"), "");
  run(edit + "--seal >" + path("sealed"), "");
  EXPECT_EQ(support::word_at(bytes("kept"), 8), 601U);
  EXPECT_EQ(support::word_at(bytes("kept"), 28), support::word_at(awb(), 28))
      << "the CRC that the JSON holds";
  EXPECT_EQ(bytes("sealed"), awb(3099, 801, 601));
  file("image", image());
  run("show --json " + path("image") + " | sed 's/\"luma\": [0-9]*/\"luma\": 77/' | " AWBCAL " pack >" +
          path("edited"),
      "");
  EXPECT_EQ(support::word_at(bytes("edited"), 0x20E28 + 12), 77U) << "in the middle of others";
}

TEST_F(Transform, SealsOneOfTwoRecordsThatShareBytesOnlyByName) {
  Bytes both(0x24000);
  put(both, 0x20EC0, awb());
  put(both, 0x20EA0, damaged(gyro(), 40));
  file("image", both);
  EXPECT_THAT(run(repack(path("image")) + " --seal"),
              Exits(2, HasSubstr("name the one to seal, --seal-only gyro")));
  EXPECT_EQ(run(repack(path("image")) + " --seal-only gyro >" + path("out"), "").exit_code, 0);
  EXPECT_EQ(support::word_at(bytes("out"), 0x20EC8), support::bitwise_crc(&bytes("out")[0x20EA0], 40));
}

TEST_F(Transform, RefusesJsonThatIsNoDump) {
  const std::string head = R"({"awbcal_json":1,"command":"show","input":{"name":"x","kind":"record"},)";
  const std::string one_file = R"("files":[{"path":"x","layout":"record","size":32,"rest":[]}],)";
  const std::pair<std::string, const char*> rows[] = {
      {"rubbish", "bad.json: not JSON: error at byte 1"},
      {"{}", "not a document of \"awbcal show\""},
      {R"({"awbcal_json":2,"command":"show"})", "version 2 of the document: only 1 is known"},
      {R"({"awbcal_json":1,"command":"diff"})", "not a document of \"awbcal show\""},
      {head + R"("files":[{"path":"../x","size":0,"rest":[]}],"records":[]})",
       "not a path in a folder: \"../x\""},
      {head + R"("files":[{"path":"/x","size":0,"rest":[]}],"records":[]})",
       "not a path in a folder: \"/x\""},
      {head + R"("files":[{"path":"x","size":99999999999,"rest":[]}],"records":[]})",
       "\"size\" must be a whole number"},
      {head + R"("files":[{"path":"x","size":4,"rest":[{"offset":2,"bytes":"414243"}]}],"records":[]})",
       "outside"},
      {head + R"("files":[{"path":"x","size":4,"rest":[{"offset":0,"bytes":"4g"}]}],"records":[]})",
       "not a hexadecimal"},
      {head + R"("files":[{"path":"x","size":2,"rest":[{"offset":0,"bytes":"41"}]}],"records":[]})",
       "byte 0x1 is missing"},
      {head +
           R"("files":[{"path":"x","size":1,"rest":[{"offset":0,"bytes":"41"},{"offset":0,"bytes":"42"}]}]})",
       "contradicts an earlier value"},
      {head + one_file + R"("records":[{"kind":"x","file":"x","offset":0,"fields":{}}]})",
       "no kind of record: \"x\""},
      {head + one_file + R"("records":[{"kind":"awb","file":"y","offset":0,"fields":{}}]})", "no such file"},
      {head + one_file + R"("records":[{"kind":"awb","file":"x","offset":0,"fields":{"r_g":4294967296}}]})",
       "4 bytes"},
      {head + one_file + R"("records":[{"kind":"awb","file":"x","offset":0,"fields":{"r_g":"a"}}]})",
       "R/G of the AWB"},
      {head + one_file + R"("records":[{"kind":"awb","file":"x","offset":0,"fields":{"z":1}}]})",
       "unknown field"},
  };
  for (const auto& [json, message] : rows) {
    EXPECT_THAT(run("pack " + text_file("bad.json", json)), Exits(2, HasSubstr(message))) << json;
  }
}

TEST_F(Transform, WritesOverNothingUnasked) {
  file("awb_cal", awb());
  const std::string there = text_file("there", "mine");
  for (const std::string& command :
       {repack(path("awb_cal")) + " --output " + there, "redact " + path("awb_cal") + " --output " + there}) {
    EXPECT_EQ(run(command).exit_code, 2);
    EXPECT_EQ(text("there"), "mine");
    EXPECT_EQ(run(command + " --force", "").exit_code, 0) << command;
    EXPECT_EQ(bytes("there").size(), 32U);
    text_file("there", "mine");
  }
  phone();
  for (const char* inside : {"phone", "phone/copy"}) {
    const Outcome refused = run("redact --force " + path("phone") + " --output " + path(inside));
    EXPECT_EQ(refused.output, "awbcal: " + path(inside) + ": is the input, or lies in it\n");
  }
  fs::create_hard_link(path("awb_cal"), path("other_name"));
  EXPECT_EQ(run("redact --force " + path("awb_cal") + " --output " + path("other_name")).exit_code, 2);
  EXPECT_EQ(bytes("awb_cal"), awb());
}

// A full disk, as a limit on files, costs nobody the old content; and others may read what is new.
TEST_F(Transform, PutsWholeFilesIntoTheirPlacesAlone) {
  const std::string redact = AWBCAL " redact --force " + file("image", image()) + " --output " + path("out");
  text_file("out", "old");
  EXPECT_THAT(support::run_shell("trap '' XFSZ; ulimit -f 8; " + redact + " 2>&1"),
              Exits(2, HasSubstr("cannot be written: File too large")));
  EXPECT_EQ(text("out"), "old");
  EXPECT_EQ(support::run_shell("umask 027; " + redact + " >/dev/null; ls -A " + path("")).output,
            "image\nout\n");
  EXPECT_EQ(support::mode_of(path("out")), 0640);
}

// ---- diff -------------------------------------------------------------------------------------------------

TEST_F(Transform, ComparesFieldByFieldAndMergesWhatIsEqual) {
  const std::string a = file("a/awb_cal", awb());
  const std::string b = file("b/awb_cal", awb(3099, 801, 600));
  const std::string crc = support::printf_text("%08x", support::word_at(awb(3099, 801, 600), 28));
  EXPECT_THAT(run("diff " + a + " " + b), Exits(1, "A " + a + "\nB " + b + R"(

main camera, AWB record
  A file: awb_cal, byte 0x0
  B file: awb_cal, byte 0x0
    field  A             B
    R/G    800 (0.7812)  801 (0.7822)
    CRC    0x613e1e30    0x)" + crc + R"(
    equal: valid word, B/G, fuse word 1, fuse word 2, fuse word 3, fuse word 4

1 record differs
)"));
}

TEST_F(Transform, ComparesACacheWithThePartition) {
  phone();
  Bytes partition(0x30000);
  put(partition, 0x20000, awb());
  const std::string other = file("mfg.img", partition);
  EXPECT_THAT(run("diff " + path("phone/data/misc/camera") + " " + other),
              Exits(1, HasSubstr("equal: main awb (cache)"),
                    HasSubstr("main camera, AEC record\n  only in A: cache: aec_cal, byte 0x0")));
  EXPECT_EQ(run("diff " + path("phone") + " " + path("phone")).output,
            "A " + path("phone") + "\nB " + path("phone") +
                "\n\nequal: main awb (cache), main aec (cache)\nno difference\n");
  put(partition, 0x20000, awb(3099, 801, 600));
  file("phone/mfg.img", partition);
  EXPECT_THAT(run("diff " + path("phone") + " " + other).output, HasSubstr("equal: main awb (cache)"));
  EXPECT_EQ(run("diff " + path("phone") + " " + path("no")).exit_code, 2);
}

// ---- redact -----------------------------------------------------------------------------------------------

bool holds_word(const Bytes& bytes, uint32_t word) {
  const Bytes needle = support::le32({word});
  return std::search(bytes.begin(), bytes.end(), needle.begin(), needle.end()) != bytes.end();
}

TEST_F(Transform, RedactsAnImageSoThatEveryVerdictStays) {
  Bytes original = image();
  put(original, 0x100, support::le32({kModule[1]}));  // a stale copy where no record is
  put(original, original.size() - 4, support::le32({kModule[2]}));
  put(original, 0x200, Bytes(64));  // a word of which a zero is the first byte, behind zeros
  put(original, 0x240, support::le32({kFirst[2]}));
  put(original, 0x22EA0, sealed64({3099, uint64_t{kModule[3]} << 32 | 7, 8, 9, 10}));
  file("image", original);
  ASSERT_EQ(run("redact " + path("image") + " --output " + path("shared")).exit_code, 0);
  for (const uint32_t word : kModule) EXPECT_FALSE(holds_word(bytes("shared"), word)) << word;
  EXPECT_FALSE(holds_word(bytes("shared"), kFirst[2]));
  const std::string verdicts = "| grep -E '^  [a-z]|^[A-Z]{4}:' | grep -vE 'module:|assumed'";
  EXPECT_EQ(run("verify " + path("shared"), verdicts).output,
            run("verify " + path("image"), verdicts).output);
}

TEST_F(Transform, KeepsZeroWordsAndEqualWords) {
  file("awb_cal", sealed32({3099, kFirst[2], 600, kFirst[0], kFirst[1], kFirst[2], kFirst[3]}));
  ASSERT_EQ(run("redact " + path("awb_cal") + " --output " + path("out")).exit_code, 0);
  const Bytes out = bytes("out");
  EXPECT_EQ(support::word_at(out, 4), kFirst[2]) << "a ratio, whatever it looks like";
  EXPECT_EQ(support::word_at(out, 16), 0U);
  EXPECT_NE(support::word_at(out, 12), 0U);
  EXPECT_NE(support::word_at(out, 12), kFirst[0]);
  EXPECT_EQ(support::word_at(out, 12), support::word_at(out, 24));
  EXPECT_EQ(support::word_at(out, 28), support::bitwise_crc(out.data(), 28));
  file("awb_cal", damaged(awb(), 28));
  ASSERT_EQ(run("redact --force " + path("awb_cal") + " --output " + path("out")).exit_code, 0);
  EXPECT_EQ(support::word_at(bytes("out"), 28), support::word_at(damaged(awb(), 28), 28))
      << "no good CRC is made";
}

TEST_F(Transform, RedactsPropertiesAndReportsWithTheRecords) {
  phone();
  text_file("phone/data/misc/camera/awb_calibration_success.txt",
            "Fuse_ID[1]=0x11223344\nFuse_ID[2]=0x0\nDelta=0.1\n");
  text_file("phone/notes", "the module is 11223344");
  const std::string table = "mmcblk0p9: " + std::to_string(kModule[0]) + " 00000200 \"boot\"\n";
  text_file("phone/proc/emmc", table);
  const std::string before = run("verify " + path("phone"), "| tail -n 1").output;
  EXPECT_THAT(run("redact " + path("phone") + " --output " + path("shared")),
              Exits(0, "  partition: absent\n  left out: notes: not decoded: may hold anything\n"));
  EXPECT_EQ(run("verify " + path("shared"), "| tail -n 1").output, before);
  EXPECT_EQ(text("shared/data/misc/camera/awb_calibration_success.txt"),
            "Fuse_ID[1]=0x1\nFuse_ID[2]=0x0\nDelta=0.1\n");
  EXPECT_EQ(text("shared/proc/emmc"), table) << "a size, whatever it looks like";
  const std::string properties = text("shared/getprop.txt");
  EXPECT_NE(properties.find("[ro.pagesize]: [4096]\n[qor.camera.sensor.main_fuse1]: [1]\n"),
            std::string::npos);
  for (const uint32_t word : kModule)
    EXPECT_EQ(properties.find(std::to_string(word)), std::string::npos) << word;
}

TEST_F(Transform, RedactsAFolderThatIsAPhoneAfterwards) {
  phone();
  text_file("phone/build.prop",
            "ro.serialno=QX1234567\na=by QX1234567\nb=490154203237518\nc=4901542032375\n");
  file("phone/dev/block/mmcblk0p6", image());
  const std::string links = "/dev/block/platform/msm_sdcc.1/by-name/";
  fs::create_directories(path("phone" + links));
  fs::create_symlink("/dev/block/mmcblk0p6", path("phone" + links + "mfg"));
  fs::create_symlink("/home/somebody", path("phone" + links + "mine"));
  Bytes node(4000);
  put(node, 3784, awb());
  put(node, 3952, gyro());
  std::copy_n(node.begin() + 3952 + 32, 16, node.begin() + 3784);
  file("phone/sys/android_camera_awb_cal/awb_cal", node);
  EXPECT_THAT(run("redact " + path("phone") + " --output " + path("shared")),
              Exits(0, HasSubstr("mine: not")));
  EXPECT_EQ(text("shared/build.prop"),
            "ro.serialno=000000000\na=by 000000000\nb=000000000000000\nc=4901542032375\n");
  EXPECT_EQ(fs::read_symlink(path("shared" + links + "mfg")), "/dev/block/mmcblk0p6");
  EXPECT_FALSE(fs::is_symlink(path("shared" + links + "mine")));
  const Bytes shared = bytes("shared/sys/android_camera_awb_cal/awb_cal");
  EXPECT_TRUE(std::equal(shared.begin() + 3984, shared.begin() + 4000, shared.begin() + 3784));
  const std::string verdicts = "| grep -E '^  [a-z]|^[A-Z]{4}:' | grep -vE 'module:|assumed'";
  EXPECT_EQ(run("verify " + path("shared"), verdicts).output,
            run("verify " + path("phone"), verdicts).output);
}

}  // namespace
