// The dual-camera check: the kernel's node with the record, else the in-house node as a marker.

#include <unistd.h>

#include <cstdio>

#include "awb_calibration/verify.h"
#include "common/file.h"
#include "common/on_heap.h"
#include "common/uninterrupted.h"
#include "records/module_identity.h"
#include "verify/result_check.h"

namespace {

using calib::DualCameraRecord;
using calib::log_module;

constexpr const char* kName = "Sensor_Check_DUAL_Calibration_Result";

/// The node shows the partition from the first-form record on.
constexpr off_t kRecordInNode = calib::kAreaDualCamera - calib::kAreaDualCameraFirstForm;

/// The CRC of zeros is 0: without the rule on zero checksums, a node that gives nothing would look intact.
constexpr calib::RecordTest kTest{
    .name = kName,
    .view = {.fields = calib::RecordView::Fields::bits32,
             .fuse = offsetof(DualCameraRecord, fuse),
             .checksum = offsetof(DualCameraRecord, crc),
             .covered = calib::kSealedBytes<DualCameraRecord>},
    .zero_checksum_is_bad = true,
    .lines = calib::kPlainLines,
    .log_word = LINE(LOGI, "[Calibration Record] %s: dual calibration record = 0x%x\n")};

bool read_record(DualCameraRecord& record) {
  LOGI("Read awb_cal_3D\n");
  const calib::Descriptor node(calib::open_for_reading("/sys/android_camera_awb_cal/awb_cal_3D"));
  if (!node.is_open()) {
    REPORT("Read from file:/sys/android_camera_awb_cal/awb_cal_3D fail");
    return false;
  }
  LOGI("Read from file OK: /sys/android_camera_awb_cal/awb_cal_3D");
  // A node that cannot seek is read all the same: its checksum tells.
  calib::uninterrupted([&] { return lseek(node.get(), kRecordInNode, SEEK_SET); });
  calib::read_up_to(node.get(), &record, sizeof record);
  return true;
}

/// An intact, finished record is good whether it bears this module's fuse ID or not.
bool is_good(const DualCameraRecord& record, calib::FuseWords& module) {
  const calib::RecordClaims claims = calib::claims_at(&record, kTest.view);
  LOGI("%s: dual_verify(%ld) dual_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n", kName,
       static_cast<int64_t>(claims.valid_word), claims.fuse[0], claims.fuse[1], claims.fuse[2],
       claims.fuse[3]);
  if ((calib::test_record(kTest, claims, module) | calib::kBoundBit) != calib::kGoodRecord) return false;
  LOGI("[Calibration Record] %s: CALIBRATIONOK\n", kName);
  return true;
}

/// Any non-zero first word will do: the node is a marker, not a record.
bool is_calibrated_in_house() {
  LOGI("[Calibration Record] %s: Check InHouse calibration\n", kName);
  LOGI("Read awb_cal_InHouse3D\n");
  uint32_t word = 0;
  if (calib::read_file("/sys/android_camera_awb_cal/awb_cal_InHouse3D", &word, sizeof word) < 0) {
    REPORT("Read from file:/sys/android_camera_awb_cal/awb_cal_InHouse3D fail");
    return false;
  }
  LOGI("Read from file OK: /sys/android_camera_awb_cal/awb_cal_InHouse3D");
  return word != 0;
}

}  // namespace

int32_t Sensor_Check_DUAL_Calibration_Result() {
  calib::FuseWords module = calib::identify_module(kName);
  const calib::OnHeap<DualCameraRecord> record;
  if (!record) {
    const calib::KeepErrno keep;
    LOGE("%s, Can't allocate calibration buffer", kName);
    printf("%s: Can't allocate calibration buffer\n", kName);
    return -1;
  }
  if (calib::selected_camera() != calib::Camera::main || !read_record(*record)) return -1;
  return is_good(*record, module) || is_calibrated_in_house() ? 0 : -1;
}
