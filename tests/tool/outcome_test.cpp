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
      EXPECT_EQ(verified.exit_code, exit_code) << what << verified.output;
      EXPECT_THAT(verified.output, Tells(text)) << what;
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
  const std::string near = " --golden 0.75,0.5859375 --threshold ";
  expect({
      {"good", good, 0, "PASS: 2 good"},
      {"zeros", file("zeros", Bytes(4 << 20)), 3, "no calibration found"},
      {"limit kept", good + near + "10", 0, "42 % of it"},
      {"limit not kept", good + near + "4", 1, "out of limit: 0.0312 from the golden sample, 0.0300 allowed"},
      {"A light", file("awb_A_light_cal", awb()) + near + "4", 1, "out of limit"},
      {"A light, blank under a gyro record", file("gyro.img", gyro_alone) + near + "10", 0, "PASS: 2 good"},
      {"no number", good + near + "nan", 2, "is not a whole number"},
      {"negative", good + near + "-1", 2, "is not a whole number"},
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
  const Outcome missing = run("verify --json " + path("no"), "2>/dev/null");
  EXPECT_EQ(missing.exit_code, 2);
  EXPECT_THAT(missing.output,
              Tells("\"error\": { \"message\": \"" + path("no") + ": no such file\", \"exit_code\": 2 }"));
  const std::string one = file("awb_cal", awb());
  const std::string digest = support::run_shell("sha256sum " + one).output.substr(0, 64);
  EXPECT_THAT(run("show --json " + one).output, HasSubstr("\"sha256\": \"" + digest + "\""));
}

}  // namespace
