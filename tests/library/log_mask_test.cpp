// Is a line printed exactly when its level's mask bit is set, whatever the platform's log-mask service
// answers? Guards against lost error lines, lines nobody asked for, and a service call before every line.
//
// The mask byte lives as long as the library, so every case runs in a process of its own.

#include <unistd.h>

#include "awb_calibration/records.h"
#include "awb_calibration/storage.h"
#include "tests/support/support.h"

namespace {

/// Ends with a bit for each that is seen of one tag: an error line, an info line, a single question.
[[noreturn]] void end_with_what_is_seen(const std::filesystem::path& dir, unsigned mask) {
  auto phone = phone::VirtualPhone::create(dir);
  phone.set_log_mask(mask);
  awb_read_fuseid(1);
  awb_read_fuseid(2);
  ReadEmmcFlash(nullptr, 4);  // ends in an error line of the same tag
  int seen = 0;
  for (const auto& line : phone.take_log())
    if (line.tag == "camera_calibration") seen |= line.priority == 6 ? 4 : 2;
  const auto questions = phone.take_mask_questions();
  if (std::count(questions.begin(), questions.end(), "camera_calibration") == 1) seen |= 1;
  _exit(seen);
}

TEST(LogMask, EachLevelHasItsBit) {
  struct Row {
    unsigned mask;
    bool error_line, info_line, asked_once;
  };
  // Bit 7 of the answer means "not initialised": the service is asked again before every line, and the low
  // bits decide meanwhile. Bits above the low eight are dropped.
  for (const Row& row : {Row{0, false, false, true}, Row{4, false, true, true}, Row{16, true, false, true},
                         Row{20, true, true, true}, Row{0xFFFFFF00, false, false, true},
                         Row{0x94, true, true, false}, Row{0x80, false, false, false}}) {
    const support::TemporaryFolder folder;
    EXPECT_EXIT(end_with_what_is_seen(folder.path() / "phone", row.mask),
                testing::ExitedWithCode((row.error_line ? 4 : 0) | (row.info_line ? 2 : 0) |
                                        (row.asked_once ? 1 : 0)),
                "")
        << row.mask;
  }
}

}  // namespace
