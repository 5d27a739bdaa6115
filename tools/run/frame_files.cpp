#include "run/frame_files.h"

#include <fmt/format.h>

#include "inspect/errors.h"
#include "inspect/files.h"

namespace awbcal {

namespace {

bool begins_as_tiff(const Bytes& bytes) {
  const std::string_view text = text_of(bytes).substr(0, 4);
  return text == std::string_view("II*\0", 4) || text == std::string_view("MM\0*", 4);
}

/// A stream of numbers in lines, with or without a byte-order mark.
bool is_text(const Bytes& bytes) {
  const std::string_view begin = text_of(bytes).substr(0, 4096);
  return begin.find_first_of(std::string_view("\0\x01\x02\x03\x04\x05\x06", 7)) == begin.npos;
}

/// What the name says, else what the content says: a raw image tells its packing by its length alone.
std::string format_of(const std::string& name, const Bytes& bytes, const RawFormat& format) {
  if (!format.packing.empty()) return format.packing;
  const std::string ending = std::filesystem::path(name).extension().string();
  if (ending == ".csv" || ending == ".raw10" || ending == ".raw16" || ending == ".dng")
    return ending.substr(1);
  if (begins_as_tiff(bytes)) return "dng";
  for (const char* packing : {"raw10", "raw16"}) {
    RawFormat guess = format;
    guess.packing = packing;
    if (format.width != 0 && size_of(guess) == bytes.size()) return packing;
  }
  if (is_text(bytes)) return "csv";
  throw InputError(fmt::format("{}: neither name nor content says what it is; --format and --size do", name));
}

void add_stream(const std::string& name, const Bytes& bytes, std::vector<FrameOfFile>& frames) {
  for (const auto& [frame, line] : parse_frames(text_of(bytes), name))
    frames.push_back({fmt::format("{}:{}", name, line), {.frame = frame}});
}

void add_file(const std::string& name, const FrameFileOptions& options, std::vector<FrameOfFile>& frames) {
  const Bytes bytes = bytes_of_file(name, kLargestFrames);
  RawFormat format = options.format;
  format.packing = format_of(name, bytes, format);
  if (format.packing == "csv") return add_stream(name, bytes, frames);
  const BayerImage image = format.packing == "dng" ? read_dng(bytes, name) : unpack(bytes, format, name);
  frames.push_back({name, reduce(image, options.grid, name)});
}

}  // namespace

std::vector<FrameOfFile> read_frame_files(const std::vector<std::string>& files,
                                          const FrameFileOptions& options) {
  std::vector<FrameOfFile> frames;
  for (const std::string& name : files) add_file(name, options, frames);
  return frames;
}

}  // namespace awbcal
