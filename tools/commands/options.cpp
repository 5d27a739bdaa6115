#include "commands/options.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>

#include "inspect/errors.h"

namespace awbcal {

namespace {

std::vector<std::string> split_at_commas(const std::string& text) {
  std::vector<std::string> parts;
  size_t begin = 0;
  for (size_t comma; (comma = text.find(',', begin)) != std::string::npos; begin = comma + 1) {
    parts.push_back(text.substr(begin, comma - begin));
  }
  parts.push_back(text.substr(begin));
  return parts;
}

uint32_t fuse_word(const std::string& text) {
  const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
  const char* begin = text.data() + (is_hex ? 2 : 0);
  const char* end = text.data() + text.size();
  uint32_t word = 0;
  const auto [stop, error] = std::from_chars(begin, end, word, is_hex ? 16 : 10);
  if (error != std::errc() || stop != end) {
    throw InputError(fmt::format("--fuse: not a 32-bit word: \"{}\"", text));
  }
  return word;
}

}  // namespace

std::optional<Golden> parse_golden(const std::string& text) {
  if (text.empty()) return std::nullopt;
  float values[2] = {};
  const std::vector<std::string> parts = split_at_commas(text);
  for (size_t i = 0; i < parts.size(); ++i) {
    const char* end = parts[i].data() + parts[i].size();
    float value = 0;
    const auto [stop, error] = std::from_chars(parts[i].data(), end, value);
    const bool is_good =
        parts.size() == 2 && error == std::errc() && stop == end && std::isfinite(value) && value > 0;
    if (!is_good)
      throw InputError(
          fmt::format("--golden: R/G and B/G above 0 are wanted, as 0.7539,0.5625: \"{}\"", text));
    values[i] = value;
  }
  return Golden{values[0], values[1]};
}

void parse_fuse(const std::string& text, Modules& modules) {
  const size_t equals = text.find('=');
  std::optional<calib::Camera> camera;
  if (equals != std::string::npos) {
    camera = camera_of_name(text.substr(0, equals));
    if (!camera) throw InputError(fmt::format("--fuse: there is no such camera: \"{}\"", text));
  }
  const std::vector<std::string> parts =
      split_at_commas(text.substr(equals == std::string::npos ? 0 : equals + 1));
  calib::FuseWords words{};
  if (parts.size() != words.size())
    throw InputError(fmt::format("--fuse: {} words where 4 are: \"{}\"", parts.size(), text));
  for (size_t i = 0; i < words.size(); ++i) words[i] = fuse_word(parts[i]);
  for (const calib::Camera each : kCameras) {
    if (!camera || camera == each) modules[each] = words;
  }
}

}  // namespace awbcal
