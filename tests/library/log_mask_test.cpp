// Is a line printed exactly when its level's mask bit is set, whatever the platform's log-mask service
// answers? Guards against lost error lines, lines nobody asked for, and a service call before every line.
//
// The mask byte lives as long as the library, so every case runs in a process of its own.

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "awb_calibration/records.h"
#include "awb_calibration/storage.h"
#include "tests/support/support.h"

namespace {

/// What a fresh process sees: which lines appear, and how often the service is asked, for one tag.
struct Seen {
  bool error_line;
  bool info_line;
  size_t questions;
};

Seen seen_with_mask(unsigned mask) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const support::TemporaryFolder folder;
  const pid_t child = fork();
  if (child == 0) {
    auto phone = phone::VirtualPhone::create(folder.path() / "phone");
    phone.set_log_mask(mask);
    awb_read_fuseid(1);
    awb_read_fuseid(2);
    ReadEmmcFlash(nullptr, 4);  // ends in an error line of the same tag
    Seen seen{};
    for (const auto& line : phone.take_log())
      if (line.tag == "camera_calibration") (line.priority == 6 ? seen.error_line : seen.info_line) = true;
    for (const auto& tag : phone.take_mask_questions()) seen.questions += tag == "camera_calibration" ? 1 : 0;
    _exit(write(ends[1], &seen, sizeof seen) == sizeof seen ? 0 : 1);
  }
  Seen seen{};
  EXPECT_EQ(read(ends[0], &seen, sizeof seen), static_cast<ssize_t>(sizeof seen));
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  close(ends[0]);
  close(ends[1]);
  return seen;
}

TEST(LogMask, EachLevelHasItsBit) {
  struct Row {
    unsigned mask;
    bool error_line;
    bool info_line;
    bool asked_once;
  };
  // Bit 7 of the answer means "not initialised": the service is asked again before every line, and the low
  // bits decide meanwhile. Bits above the low eight are dropped.
  for (const Row& row : {Row{0, false, false, true}, Row{4, false, true, true}, Row{16, true, false, true},
                         Row{20, true, true, true}, Row{0xFFFFFF00, false, false, true},
                         Row{0x94, true, true, false}, Row{0x80, false, false, false}}) {
    const Seen seen = seen_with_mask(row.mask);
    EXPECT_EQ(seen.error_line, row.error_line) << row.mask;
    EXPECT_EQ(seen.info_line, row.info_line) << row.mask;
    EXPECT_EQ(seen.questions == 1, row.asked_once) << row.mask << ": " << seen.questions;
  }
}

}  // namespace
