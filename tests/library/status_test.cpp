// Do the status properties and the lens-shading marker carry what the factory tool and the camera stack hand
// over? Guards against a step reported as done that left no marker, and against a caller's buffer overrun.

#include "awb_calibration/factory.h"
#include "tests/support/support.h"

namespace {

using namespace support;

class Status : public PhoneTest {};

struct Wrapper {
  const char* property;
  std::function<int32_t(uint32_t)> set;
  uint32_t (*get)();
  uint32_t otherwise;
  std::vector<std::pair<uint32_t, const char*>> stored;
};

// clang-format off
const std::vector<Wrapper> kWrappers = {
    {"mfg.calibration.status", Sensor_set_Calibration_status, Sensor_get_Calibration_status, 0,
     {{3, "3"}, {0xFFFFFFFF, "-1"}}},
    {"mfg.calibration.target_luma", [](uint32_t luma) { return Sensor_set_target_luma(static_cast<uint8_t>(luma)); },
     Sensor_get_target_luma, 90, {{255, "255"}, {300, "44"}}},
    {"qor.camera.mfg.trigger_index", [](uint32_t index) { return Sensor_set_trigger_index(static_cast<uint16_t>(index)); },
     Sensor_get_trigger_index, 0, {{65535, "65535"}, {65536, "0"}}},
    {"qor.camera.mfg.aec_exp_index", Stats_set_exp_index, Stats_get_exp_index, 0,
     {{7, "7"}, {0x80000000, "-2147483648"}}},
};
// clang-format on

TEST_F(Status, SettersStoreASignedDecimalNumber) {
  for (const Wrapper& wrapper : kWrappers) {
    for (const auto& [number, text] : wrapper.stored) {
      EXPECT_EQ(wrapper.set(number), 0);
      EXPECT_EQ(phone().property(wrapper.property), text);
    }
    phone().add_fault({.call = "property_set", .path = wrapper.property});
    EXPECT_NE(wrapper.set(1), 0) << wrapper.property;
    phone().clear_faults();
  }
}

TEST_F(Status, GettersTakeTheLeadingNumberOrTheDefault) {
  for (const Wrapper& wrapper : kWrappers) {
    phone().unset_property(wrapper.property);
    EXPECT_EQ(wrapper.get(), wrapper.otherwise) << wrapper.property;
    for (const auto& [text, number] :
         {std::pair{"5", 5U}, {" 7rest", 7U}, {"none", 0U}, {"0x5", 0U}, {"4294967299", 3U}}) {
      phone().set_property(wrapper.property, text);
      EXPECT_EQ(wrapper.get(), number) << wrapper.property << '=' << text;
    }
    if (wrapper.get == Sensor_get_Calibration_status) continue;
    phone().set_property(wrapper.property, "-1");
    EXPECT_EQ(wrapper.get(), 0xFFFFFFFF);
  }
}

TEST_F(Status, OnlyTheFlashIndicesAreLoggedAndOnlyForDebugging) {
  const auto all = [] {
    for (const Wrapper& wrapper : kWrappers) {
      wrapper.set(12);
      wrapper.get();
    }
  };
  const std::string lead = "[Flash_Calibration] ";
  EXPECT_EQ(log_of(all),
            (std::vector{D(lead + "Sensor_set_trigger_index: trigger_index = 12, aec_trigger_index = 12"),
                         D(lead + "Sensor_get_trigger_index: aec_trigger_index = 12, trigger_index = 12"),
                         D(lead + "Stats_set_exp_index: exp_index = 12"),
                         D(lead + "Stats_get_exp_index: exp_index = 12")}));
  phone().set_property("qor.camera.mfg.trigger_index", "x1");
  EXPECT_EQ(log_of([] { Sensor_get_trigger_index(); }),
            (std::vector{D(lead + "Sensor_get_trigger_index: aec_trigger_index = x1, trigger_index = 0")}));
}

TEST_F(Status, EvenStepsCountOnlyWithTheirSuccessFile) {
  const std::map<int, std::string> markers = {{2, "LSC_Calibration_Success.txt"},
                                              {4, "awb_calibration_success.txt"},
                                              {6, "flash_calibration_success.txt"}};
  for (const bool present : {false, true}) {
    for (int step = -2; step <= 10; ++step) {
      for (const auto& [owner, name] : markers) {
        // Without its own marker a step is not helped by the others'.
        const std::string path = "/data/misc/camera/" + name;
        put(path, {});
        if (!present && owner == step) std::filesystem::remove(host(path));
      }
      phone().set_property("mfg.calibration.status", std::to_string(step));
      const bool counts = step >= 1 && step <= 8 && (present || !markers.contains(step));
      EXPECT_EQ(Sensor_get_Calibration_status(), counts ? static_cast<uint32_t>(step) : 0U) << step;
    }
  }
}

const std::string kDone = "/data/misc/camera/lsc_calibration_done.txt";
const LogLine kNotOpen = I("[AWB Calibration] can't open /data/misc/camera/lsc_calibration_done.txt");

TEST_F(Status, LensShadingMarkerIsSetAndRemoved) {
  umask(077);
  const Bytes data = pattern(5000);
  for (const uint32_t length : {5000U, 1U, 0U}) {
    EXPECT_EQ(log_of([&] { QOR_Set_LSC(data.data(), length); }), std::vector{I("QOR_Set_LSC\n")});
    EXPECT_EQ(get(kDone), Bytes(data.begin(), data.begin() + length));
    EXPECT_EQ(mode_of(host(kDone)), 0644);
  }
  EXPECT_EQ(log_of([] { EXPECT_EQ(QOR_Init_LSC(), 0); }), std::vector{I("QOR_Init_LSC\n")});
  EXPECT_EQ(QOR_Init_LSC(), -1) << "there is none";
  phone().add_fault({.call = "open", .path = kDone});
  EXPECT_EQ(log_of([&] { QOR_Set_LSC(data.data(), 9); }), (std::vector{I("QOR_Set_LSC\n"), kNotOpen}));
  EXPECT_EQ(camera_files(), Names{});

  Bytes buffer(40, 0xEE);
  EXPECT_EQ(log_of([&] { EXPECT_EQ(QOR_Get_LSC(buffer.data(), 40), -1); }),
            (std::vector{I("QOR_Get_LSC\n"), kNotOpen}));
  EXPECT_EQ(buffer, Bytes(40, 0xEE));
}

TEST_F(Status, LensShadingMarkerIsReadWithTheAwbRecordInFront) {
  // The first frame of a run leaves a neutral record in memory.
  fit_module("main");
  awb_enable_calibration();
  QOR_AWB_Calibration_write_to_flash(1, 1);
  const Bytes record = sealed32({3099, 1024, 1024, kModule[0], kModule[1], kModule[2], kModule[3]});
  for (const size_t stored : {0U, 10U, 32U, 50U}) {
    const Bytes marker = pattern(stored);
    put(kDone, marker);
    for (const size_t length : {0U, 5U, 31U, 32U, 40U, 60U}) {
      Bytes buffer(80, 0xEE), expected(80, 0xEE);
      std::copy_n(marker.begin(), std::min(stored, length), expected.begin());
      std::copy_n(record.begin(), std::min<size_t>(32, length), expected.begin());
      const std::string count = std::to_string(std::min(stored, length));
      EXPECT_EQ(log_of([&] { EXPECT_EQ(QOR_Get_LSC(buffer.data(), static_cast<uint32_t>(length)), 1); }),
                (std::vector{I("QOR_Get_LSC\n"), I("bytes_read :" + count + "\n")}));
      EXPECT_EQ(buffer, expected) << stored << ' ' << length;
    }
  }
}

}  // namespace
