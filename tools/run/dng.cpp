#include "run/dng.h"

#include <fmt/format.h>
#include <libraw/libraw.h>

#include <cstring>
#include <memory>

#include "run/bounded_process.h"

namespace awbcal {

namespace {

constexpr unsigned kMostMegabytes = 1024;

std::string pattern_of(LibRaw& raw) {
  std::string pattern;
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 2; ++x) pattern += "rgbg"[raw.COLOR(y, x) & 3];
  }
  return pattern;
}

/// The reader's own words are of its file handling; what matters here is that these bytes are no such image.
void check_result(int result, const std::string& name) {
  if (result == LIBRAW_UNSUFFICIENT_MEMORY) throw InputError(fmt::format("{}: too large an image", name));
  if (result != LIBRAW_SUCCESS) {
    const bool is_image = result != LIBRAW_FILE_UNSUPPORTED;
    throw InputError(fmt::format("{}: {}", name, is_image ? "a damaged or truncated DNG" : "not a DNG"));
  }
}

// ---- an image or a message, from the process that reads it ------------------------------------------------

struct Reply {
  uint8_t is_image;  ///< else the rest is a message
  char pattern[4];
  uint64_t width;
  uint64_t height;
  double black;
  double white;
};

Bytes reply_of(const Reply& head, const void* rest, size_t size) {
  Bytes bytes(sizeof head + size);
  std::memcpy(bytes.data(), &head, sizeof head);
  if (size > 0) std::memcpy(bytes.data() + sizeof head, rest, size);
  return bytes;
}

Bytes decoded(const Bytes& bytes, const std::string& name) {
  try {
    const BayerImage image = decode_dng(bytes, name, kMostMegabytes);
    Reply head{.is_image = 1,
               .pattern = {},
               .width = image.width,
               .height = image.height,
               .black = image.black,
               .white = image.white};
    std::memcpy(head.pattern, image.pattern.data(), sizeof head.pattern);
    return reply_of(head, image.samples.data(), image.samples.size() * sizeof(uint16_t));
  } catch (const InputError& error) {
    return reply_of({}, error.what(), std::strlen(error.what()));
  }
}

/// A process that was led astray by what it read may say anything.
BayerImage image_of(const Bytes& reply, const std::string& name) {
  Reply head{};
  if (reply.size() >= sizeof head) std::memcpy(&head, reply.data(), sizeof head);
  const bool is_sane =
      reply.size() >= sizeof head &&
      (head.is_image == 0 || (head.width <= kLongestSide && head.height <= kLongestSide &&
                              reply.size() - sizeof head == head.width * head.height * sizeof(uint16_t)));
  if (!is_sane) throw InputError(fmt::format("{}: a damaged or truncated DNG", name));
  const uint8_t* rest = reply.data() + sizeof head;
  const size_t size = reply.size() - sizeof head;
  if (head.is_image == 0) throw InputError(std::string(rest, rest + size));
  BayerImage image{.width = head.width,
                   .height = head.height,
                   .pattern = {head.pattern, sizeof head.pattern},
                   .black = head.black,
                   .white = head.white,
                   .samples = std::vector<uint16_t>(size / sizeof(uint16_t))};
  std::memcpy(image.samples.data(), rest, size);
  return image;
}

}  // namespace

BayerImage read_dng(const Bytes& bytes, const std::string& name) {
  using End = BoundedReply::End;
  const BoundedReply reply = run_bounded([&] { return decoded(bytes, name); });
  switch (reply.end) {
    case End::replied:
      return image_of(reply.bytes, name);
    case End::out_of_memory:
      throw InputError(fmt::format("{}: too large an image", name));
    case End::out_of_time:
      throw InputError(fmt::format("{}: the DNG reader did not come to an end with it", name));
    case End::crashed:
      break;
  }
  throw InputError(fmt::format("{}: the DNG reader crashed on it: {}", name, reply.signal));
}

BayerImage decode_dng(const Bytes& bytes, const std::string& name, unsigned most_megabytes) {
  const auto raw = std::make_unique<LibRaw>();
  raw->imgdata.params.max_raw_memory_mb = most_megabytes;
  check_result(raw->open_buffer(const_cast<uint8_t*>(bytes.data()), bytes.size()), name);
  check_result(raw->unpack(), name);
  const libraw_image_sizes_t& sizes = raw->imgdata.sizes;
  const ushort* samples = raw->imgdata.rawdata.raw_image;
  if (samples == nullptr) throw InputError(fmt::format("{}: contains no Bayer image", name));
  BayerImage image{sizes.width & ~1U,
                   sizes.height & ~1U,
                   pattern_of(*raw),
                   static_cast<double>(raw->imgdata.color.black),
                   static_cast<double>(raw->imgdata.color.maximum),
                   {}};
  if (!is_bayer_pattern(image.pattern)) throw InputError(fmt::format("{}: contains no Bayer pattern", name));
  const size_t pitch = sizes.raw_pitch / sizeof(ushort);
  for (size_t y = 0; y < image.height; ++y) {
    const ushort* row = samples + (y + sizes.top_margin) * pitch + sizes.left_margin;
    image.samples.insert(image.samples.end(), row, row + image.width);
  }
  return image;
}

}  // namespace awbcal
