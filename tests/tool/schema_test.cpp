// Does everything that the tool prints for programs agree with its schema? Guards against a document that
// changed and a schema that did not, with a validator that knows nothing of the tool.

#include "tests/support/tool_support.h"

namespace {

using namespace tool;

class Schema : public ToolTest {
 protected:
  Outcome validate(const std::string& documents) const {
    text_file("documents", documents);
    return support::run_shell("python3 " SOURCE_DIR "/tests/tool/validate_json.py " SOURCE_DIR
                              "/docs/awbcal.schema.json <" +
                              path("documents") + " 2>&1");
  }
};

TEST_F(Schema, DescribesEveryDocument) {
  phone();
  Bytes image = support::pattern(0x24000);
  put(image, 0x20EC0, awb());
  put(image, 0x20EA0, gyro());
  file("mfg.img", image);
  file("lsc_cal", support::pattern(4000));
  file("aec_cal", Bytes(9, 1));
  fs::create_directories(path("phone/data/misc/camera/flash_cal"));
  const std::string log =
      text_file("log",
                "I/camera_calibration( 7): [AWB Calibration] use light version: v3\n"
                "E/camera_calibration( 7): QOR_AWB_Calibration_write_to_flash error:not valid : "
                "delta(inf)>threshold(0.150000)\n");
  const std::string csv = SOURCE_DIR "/examples/frames_d65_main.csv";
  std::string documents;
  for (const std::string& arguments : {"show " + path("phone"),
                                       "show --raw " + path("mfg.img"),
                                       "show " + path("lsc_cal"),
                                       "show " + path("aec_cal"),
                                       "verify --require flash,dual_camera --golden 0.7,0.5 " + path("phone"),
                                       "verify " + path("mfg.img"),
                                       "verify " + path("lsc_cal") + kFuse,
                                       "explain main " + path("phone"),
                                       "explain sub " + path("mfg.img"),
                                       "explain --log " + log,
                                       "explain main --log " + log + " " + path("phone"),
                                       "diff " + path("phone") + " " + path("mfg.img"),
                                       "diff " + path("aec_cal") + " " + path("phone"),
                                       "replay --golden 0.75,0.56 " + csv,
                                       "replay --golden 0.75,0.56 --threshold 0 " + csv,
                                       "verify --no-accept --only aec " + path("phone"),
                                       "verify " + path("nothing"),
                                       std::string("explain top"),
                                       std::string("show --bogus"),
                                       std::string("rubbish")}) {
    documents += run(arguments + " --json", "2>/dev/null").output;
  }
  const Outcome validated = validate(documents);
  EXPECT_EQ(validated.exit_code, 0) << validated.output;

  // So that this can fail.
  std::string renamed = run("show --json " + file("awb_cal", awb())).output;
  renamed.replace(renamed.find("\"state\""), 7, "\"mood\"");
  EXPECT_THAT(validate(documents + renamed).output, testing::StartsWith("document 20: "));
}

}  // namespace
