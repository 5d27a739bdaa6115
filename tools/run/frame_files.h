// Recorded frames in files: a CSV of sums, or raw images that are reduced to sums.
#ifndef RUN_FRAME_FILES_H
#define RUN_FRAME_FILES_H

#include <string>
#include <vector>

#include "run/bayer.h"

namespace awbcal {

struct FrameFileOptions {
  RawFormat format = {};  ///< "csv" or what RawFormat knows; empty: by each file's name and content
  Grid grid = {};
};

/// A frame and where it came from: a file, or a line of one.
struct FrameOfFile {
  std::string place;
  GridSums sums;
};

/// Adds the frames in the bytes of a file. Throws InputError.
void add_frames(const std::string& name, const Bytes& bytes, const FrameFileOptions& options,
                std::vector<FrameOfFile>& frames);

/// Frames in the order of the files. Throws InputError.
std::vector<FrameOfFile> read_frame_files(const std::vector<std::string>& files,
                                          const FrameFileOptions& options);

}  // namespace awbcal

#endif
