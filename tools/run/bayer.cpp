#include "run/bayer.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace awbcal {

namespace {

uint16_t raw10_sample(const uint8_t* row, size_t x) {
  const uint8_t* group = row + x / 4 * 5;
  const auto low = static_cast<uint16_t>(group[4] >> (2 * (x % 4)) & 3);
  return static_cast<uint16_t>(group[x % 4] << 2 | low);
}

uint16_t raw16_sample(const uint8_t* row, size_t x) {
  return static_cast<uint16_t>(row[2 * x] | row[2 * x + 1] << 8);
}

/// The sums of one cell's colours, above black.
struct CellSums {
  std::array<double, 3> sum{};  // r, g, b
  std::array<double, 3> count{};
  bool is_clipped = false;
};

size_t colour_of(char name) {
  return name == 'r' ? 0 : name == 'b' ? 2 : 1;
}

/// Cells begin and end on whole groups, so that each has its share of every colour.
size_t edge(size_t index, size_t cells, size_t samples) {
  return index * (samples / 2) / cells * 2;
}

CellSums sum_cell(const BayerImage& image, const Grid& grid, size_t column, size_t row) {
  CellSums cell;
  const double clip = image.black + grid.bright * (image.white - image.black);
  for (size_t y = edge(row, grid.rows, image.height); y < edge(row + 1, grid.rows, image.height); ++y) {
    for (size_t x = edge(column, grid.columns, image.width); x < edge(column + 1, grid.columns, image.width);
         ++x) {
      const double sample = image.samples[y * image.width + x];
      const size_t colour = colour_of(image.pattern[y % 2 * 2 + x % 2]);
      cell.sum[colour] += std::max(sample - image.black, 0.0);
      cell.count[colour] += 1;
      cell.is_clipped = cell.is_clipped || sample >= clip;
    }
  }
  return cell;
}

/// False when a sum does not fit.
bool add_cell(GridSums& sums, const CellSums& cell, double darkest) {
  const double red = cell.sum[0] / cell.count[0];
  const double green = cell.sum[1] / cell.count[1];
  const double blue = cell.sum[2] / cell.count[2];
  if (cell.is_clipped) {
    sums.saturated_cells += 1;
    return true;
  }
  if (green < darkest || green <= 0) {
    sums.dark_cells += 1;
    return true;
  }
  sums.frame.count += 1;
  return !__builtin_add_overflow(sums.frame.rg_sum, std::lround(1024.0 * red / green), &sums.frame.rg_sum) &&
         !__builtin_add_overflow(sums.frame.bg_sum, std::lround(1024.0 * blue / green), &sums.frame.bg_sum);
}

size_t row_bytes_of(const RawFormat& format) {
  return format.packing == "raw10" ? format.width / 4 * 5 : format.width * 2;
}

}  // namespace

bool is_bayer_pattern(const std::string& pattern) {
  return pattern == "rggb" || pattern == "bggr" || pattern == "grbg" || pattern == "gbrg";
}

size_t size_of(const RawFormat& format) {
  const size_t stride = format.stride != 0 ? format.stride : row_bytes_of(format);
  return format.height == 0 ? 0 : (format.height - 1) * stride + row_bytes_of(format);
}

BayerImage unpack(const Bytes& bytes, const RawFormat& format, const std::string& name) {
  const bool is_raw10 = format.packing == "raw10";
  const size_t unit = is_raw10 ? 4 : 2;
  if (format.width == 0 || format.height == 0 || format.width > kLongestSide ||
      format.height > kLongestSide || format.width % unit != 0 || format.height % 2 != 0) {
    throw InputError(fmt::format("{}: {}x{} is not a valid size of a {} image", name, format.width,
                                 format.height, format.packing));
  }
  const size_t row_bytes = row_bytes_of(format);
  const size_t stride = format.stride != 0 ? format.stride : row_bytes;
  if (stride < row_bytes)
    throw InputError(
        fmt::format("{}: the stride must be at least {} bytes, not {}", name, row_bytes, stride));
  const size_t needed = size_of(format);
  if (bytes.size() < needed) {
    throw InputError(fmt::format("{}: truncated: expected {} bytes, found {}", name, needed, bytes.size()));
  }
  const size_t with_padding = needed + stride - row_bytes;
  if (bytes.size() != needed && bytes.size() != with_padding) {
    throw InputError(fmt::format("{}: longer than its size says: expected {} bytes, found {}", name, needed,
                                 bytes.size()));
  }
  BayerImage image{format.width, format.height, format.pattern, format.black, format.white, {}};
  image.samples.reserve(format.width * format.height);
  for (size_t y = 0; y < format.height; ++y) {
    const uint8_t* row = bytes.data() + y * stride;
    for (size_t x = 0; x < format.width; ++x)
      image.samples.push_back(is_raw10 ? raw10_sample(row, x) : raw16_sample(row, x));
  }
  return image;
}

GridSums reduce(const BayerImage& image, const Grid& grid, const std::string& name) {
  if (grid.columns == 0 || grid.rows == 0 || image.width / 2 < grid.columns || image.height / 2 < grid.rows) {
    throw InputError(fmt::format("{}: {}x{} samples are too few for {}x{} cells", name, image.width,
                                 image.height, grid.columns, grid.rows));
  }
  if (!is_bayer_pattern(image.pattern))
    throw InputError(fmt::format("{}: not a Bayer pattern: {}", name, image.pattern));
  if (!(image.white > image.black))
    throw InputError(fmt::format("{}: the white level must be above the black level", name));
  GridSums sums{};
  for (size_t row = 0; row < grid.rows; ++row) {
    for (size_t column = 0; column < grid.columns; ++column) {
      const CellSums cell = sum_cell(image, grid, column, row);
      if (!add_cell(sums, cell, grid.dark * (image.white - image.black)))
        throw InputError(fmt::format("{}: the sums of {}x{} cells do not fit into 32 bits", name,
                                     grid.columns, grid.rows));
    }
  }
  return sums;
}

}  // namespace awbcal
