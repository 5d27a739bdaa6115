// Raw Bayer images reduced to a frame's sums, as a camera's statistics block does it: over a grid of cells,
// those left out that are too dark or too bright to say anything of the colour.
#ifndef RUN_BAYER_H
#define RUN_BAYER_H

#include <cstdint>
#include <string>
#include <vector>

#include "inspect/decode.h"
#include "inspect/errors.h"
#include "run/frames.h"

namespace awbcal {

/// Samples row by row; `pattern` names the colours of the first two rows' first two samples.
struct BayerImage {
  size_t width = 0;
  size_t height = 0;
  std::string pattern = "rggb";
  double black = 0;
  double white = 0;  ///< a sample of this value or more is clipped
  std::vector<uint16_t> samples = {};
};

struct RawFormat {
  std::string packing;  ///< "raw10", "raw16" or "dng"
  size_t width = 0;
  size_t height = 0;
  size_t stride = 0;  ///< bytes from row to row; 0: no padding
  std::string pattern = "rggb";
  double black = 64;
  double white = 1023;
};

/// How many bytes an image of this format has; the last row may have its padding or not.
size_t size_of(const RawFormat& format);

/// Packed RAW10 (four samples in five bytes, the fifth holding their low bits) or RAW16, little-endian.
/// Throws InputError, naming `name`, when the bytes are not as many as the format needs.
BayerImage unpack(const Bytes& bytes, const RawFormat& format, const std::string& name);

inline constexpr size_t kLongestSide = 65536;

/// "rggb", "bggr", "grbg" or "gbrg".
bool is_bayer_pattern(const std::string& pattern);

struct Grid {
  size_t columns = 32;
  size_t rows = 24;
  double dark = 0.02;    ///< of the range from black to white: a darker cell is left out
  double bright = 0.95;  ///< a cell with a brighter sample is left out
};

struct GridSums {
  Frame frame;
  int dark_cells = 0;
  int saturated_cells = 0;
};

/// Throws InputError when a cell would hold no whole group of 2 x 2 samples.
GridSums reduce(const BayerImage& image, const Grid& grid, const std::string& name);

}  // namespace awbcal

#endif
