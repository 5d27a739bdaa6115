// What the camera pipeline measures of a preview frame, and recorded streams of it.
#ifndef RUN_FRAMES_H
#define RUN_FRAMES_H

#include <cstdint>
#include <filesystem>
#include <istream>
#include <string>
#include <vector>

namespace awbcal {

/// Sums of R/G and B/G times 1024 over `count` samples: the arguments of QOR_AWB_Calibration_collect().
struct Frame {
  int32_t rg_sum;
  int32_t bg_sum;
  int32_t count;
};

/// A stream with a frame a line: rg_sum,bg_sum,count. Empty lines, lines that begin with '#' and a first line
/// of the column names are passed over. `name` stands in the messages.
std::vector<Frame> parse_frames(std::istream& stream, const std::string& name);

std::vector<Frame> read_frames(const std::filesystem::path& file);

}  // namespace awbcal

#endif
