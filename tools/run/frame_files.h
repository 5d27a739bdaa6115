// Recorded frames in files: a CSV of sums, or raw images that are reduced to sums.
#ifndef RUN_FRAME_FILES_H
#define RUN_FRAME_FILES_H

#include <string>
#include <vector>

#include "run/bayer.h"

namespace awbcal {

struct FrameFileOptions {
  RawFormat format = {.packing = "csv"};  ///< "csv" or what RawFormat knows
  Grid grid = {};
};

/// Frames in the order of the files. Throws InputError.
std::vector<GridSums> read_frame_files(const std::vector<std::string>& files,
                                       const FrameFileOptions& options);

}  // namespace awbcal

#endif
