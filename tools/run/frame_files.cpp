#include "run/frame_files.h"

#include <fmt/format.h>

#include "inspect/errors.h"
#include "inspect/files.h"

namespace awbcal {

namespace {

BayerImage read_image(const std::string& name, const RawFormat& format) {
  if (format.packing == "dng") return read_dng(name);
  const FileContent content = read_file(name);
  if (content.trouble) throw InputError(fmt::format("{}: is unreadable: {}", name, *content.trouble));
  return unpack(content.bytes, format, name);
}

}  // namespace

std::vector<GridSums> read_frame_files(const std::vector<std::string>& files,
                                       const FrameFileOptions& options) {
  std::vector<GridSums> frames;
  for (const std::string& name : files) {
    if (options.format.packing == "csv") {
      for (const Frame& frame : read_frames(name)) frames.push_back({.frame = frame});
    } else {
      frames.push_back(reduce(read_image(name, options.format), options.grid, name));
    }
  }
  return frames;
}

}  // namespace awbcal
