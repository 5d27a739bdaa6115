// Does verify come to PASS only where something is good and nothing is wrong, and say otherwise what it cannot
// know? Guards against an answer that people act on and that is not so.

#include "tests/support/tool_support.h"

namespace {

using namespace tool;

struct Row {
  const char* what;
  std::string arguments;
  int exit_code;
  const char* text;
};

class Outcomes : public ToolTest {
 protected:
  void expect(const std::vector<Row>& rows) const {
    constexpr const char* kNames[] = {"\nPASS: ", "\nFAIL: ", "\nINCOMPLETE: ", "\nNOTHING TO JUDGE: "};
    for (const auto& [what, arguments, exit_code, text] : rows) {
      const Outcome verified = run("verify " + arguments);
      EXPECT_THAT(verified, Exits(exit_code, Tells(text))) << what;
      const bool is_answered = verified.output.find(kNames[exit_code]) != std::string::npos;
      EXPECT_NE(is_answered, verified.output.starts_with("awbcal: ")) << what << verified.output;
    }
  }
};

TEST_F(Outcomes, AreWhatTheRecordsAllow) {
  const std::string good = phone();
  Bytes node(4000);
  put(node, 0, awb());
  const std::string hidden = phone("hidden");
  file("hidden/data/misc/camera/awb_cal", Bytes(9, 1));
  file("hidden/sys/android_camera_awb_cal/awb_cal", node);
  const std::string unread = phone("unread");
  fs::create_directories(path("unread/data/misc/camera/gyro_cal_qor_CAM"));
  const std::string odd = phone("odd");
  fs::remove(path("odd/getprop.txt"));
  fs::create_directories(path("odd/properties"));
  const std::string over = phone("over");
  Bytes image(0x30000);
  put(image, 0x20EC0, awb());
  put(image, 0x20EA0, gyro());
  file("over/mfg.img", image);
  file("over/data/misc/camera/awb_A_light_cal", awb());
  Bytes gyro_alone(0x30000);
  put(gyro_alone, 0x20000, awb());
  put(gyro_alone, 0x20EA0, gyro());
  const std::string hexadecimal = phone("hexadecimal");
  text_file("hexadecimal/getprop.txt",
            support::replaced(text("phone/getprop.txt"), "[287454020]", "[0x11223344]"));
  const std::string part = phone("part");
  file("part/data/misc/camera/aec_cal", Bytes(9, 1));
  const std::string two = path("two/data/misc/camera");
  file("two/data/misc/camera/awb_cal", damaged(awb(3099, 800, 600, {1, 2, 3, 4}), 5));
  file("two/data/misc/camera/aec_cal", aec());
  file("two/data/misc/camera/awb_cal_front_CAM", awb());
  const std::string limits =
      text_file("limits", "camera,light,golden_rg,golden_bg,threshold\nfront,normal,0.75,0.5859375,4\n");
  const std::string near = " --golden 0.75,0.5859375 --threshold ";
  expect({
      {"good", good, 0, "PASS: 2 good"},
      {"its module", good, 0, "main module: fuse ID 11223344 55667788 99aabbcc ddeeff01"},
      {"the rest", good, 0, "absent: main camera: a_light_awb, flash, dual_flash, gyro, lens_shading"},
      {"required and there", good + " --require awb,main:aec", 0, "PASS: 2 good"},
      {"required and absent", good + " --require flash", 1, "flash (required)"},
      {"required of another camera", good + " --require front:awb", 1, "FAIL: 2 good"},
      {"required of no camera", good + " --require dual_camera", 1, "FAIL: 2 good"},
      {"required of a file that cannot hold it", file("one/awb_cal", awb()) + " --require dual_camera", 1,
       "dual_camera (required)"},
      {"no such kind", good + " --require rubbish", 2, "no such kind: \"rubbish\""},
      {"no such camera", good + " --require top:awb", 2, "no such camera: \"top:awb\""},
      {"zeros", file("zeros", Bytes(4 << 20)), 3, "no calibration found"},
      {"a word that is 0 to the library", hexadecimal, 1, "fuse ID 00000000 55667788"},
      {"a part of one record", part, 1, "FAIL: 1 good, 1 not"},
      {"the module of a record that is good", two, 1, "its record's own fuse ID, 11223344"},
      {"the limit of its camera", two + " --only front:awb --limits " + limits, 1, "out of limit: 0.0312"},
      {"limit kept", good + near + "10", 0, "0.0312 from the golden sample, 0.0750 allowed (42 % of it)"},
      {"limit not kept", good + near + "4", 1, "out of limit: 0.0312 from the golden sample, 0.0300 allowed"},
      {"A light", file("awb_A_light_cal", awb()) + near + "4", 1, "out of limit"},
      {"A light, blank under a gyro record", file("gyro.img", gyro_alone) + near + "10", 0, "PASS: 2 good"},
      {"no number", good + near + "nan", 2, "is not a whole number"},
      {"negative", good + near + "-1", 2, "is not a whole number"},
      {"half a golden sample", good + " --golden 0.75", 2, "--golden: 2 required RG,BG missing"},
      {"three fuse words", good + " --fuse 1,2,3", 2, "expected 4 words, found 3"},
      {"a word of 33 bits", good + " --fuse 1,2,3,4294967296", 2, "is not a 32-bit word"},
      {"of nothing", good + " --threshold 4", 2, "needs --golden"},
      {"cut cache file", hidden, 1, "remove it, and the camera loads the export"},
      {"unreadable record", unread, 2, "1 unreadable"},
      {"unreadable properties", odd, 2, "properties: is a folder"},
      {"not asked for", unread + " --ignore gyro", 0, "PASS: 2 good"},
      {"only the wrong one", hidden + " --only awb", 1, "FAIL: 0 good, 1 not"},
      {"without it", hidden + " --ignore main:awb", 0, "1 left out"},
      {"overlap by design", over, 0, "the partition's is overwritten"},
      {"held against it", over + " --strict", 1, "overwritten main camera, A-light AWB record"},
      {"only missing", good + " --only dual_camera", 3, "0 good, 2 left out"},
      {"unknown module", file("awb_cal", awb()), 0, "module: not known; its record's own fuse ID, 11223344"},
      {"refuses whatever comes", good, 0, "note: Sensor_Check_AWB_Calibration_Result reads 64-bit fields"},
      {"not asked", good + " --no-accept", 0, "PASS: 2 good"},
  });
  EXPECT_THAT(run("verify --no-accept " + good).output, Not(HasSubstr("accepted by")));
  EXPECT_THAT(run("verify " + good).output, Not(HasSubstr("refused by")));
}

TEST_F(Outcomes, ErrorsAreDocumentsToo) {
  EXPECT_THAT(support::run_shell("cd " + path("") + " && " AWBCAL " verify --json no 2>/dev/null"),
              Exits(2, Tells("\"error\": { \"message\": \"no: no such file\", \"exit_code\": 2 }")));
  const std::string one = file("awb_cal", awb());
  const std::string digest = support::run_shell("sha256sum " + one).output.substr(0, 64);
  EXPECT_THAT(run("show --json " + one).output, HasSubstr("\"sha256\": \"" + digest + "\""));
}

}  // namespace
