// What the camera pipeline measures of a preview frame, and recorded streams of it.
#ifndef RUN_FRAMES_H
#define RUN_FRAMES_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace awbcal {

/// Sums of R/G and B/G times 1024 over `count` samples: the arguments of QOR_AWB_Calibration_collect().
struct Frame {
  int32_t rg_sum;
  int32_t bg_sum;
  int32_t count;
};

/// A stream of frames is larger than a phone's files, but not without end.
inline constexpr size_t kLargestFrames = 1024UL * 1024 * 1024;

struct FrameLine {
  Frame frame;
  size_t line;  ///< its number in the stream, from 1
};

/// A stream with a frame a line: rg_sum,bg_sum,count. Empty lines, lines that begin with '#' and a first line
/// of the column names are passed over, and so is a byte-order mark. `name` stands in the messages.
std::vector<FrameLine> parse_frames(std::string_view text, const std::string& name);

/// "-" is standard input. Throws InputError.
std::vector<FrameLine> read_frames(const std::filesystem::path& file);

}  // namespace awbcal

#endif
