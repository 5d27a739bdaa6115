#include "run/frames.h"
#include "inspect/errors.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <string_view>

namespace awbcal {

namespace {

constexpr std::array<const char*, 3> kColumnNames = {"rg_sum", "bg_sum", "count"};
constexpr std::string_view kHeader = "rg_sum,bg_sum,count";

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::vector<std::string_view> split(std::string_view line) {
  std::vector<std::string_view> fields;
  for (size_t comma = line.find(','); comma != std::string_view::npos; comma = line.find(',')) {
    fields.push_back(trimmed(line.substr(0, comma)));
    line.remove_prefix(comma + 1);
  }
  fields.push_back(trimmed(line));
  return fields;
}

int32_t parse_number(std::string_view text, const char* column) {
  int32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error == std::errc::result_out_of_range) {
    throw InputError(fmt::format("{} does not fit into 32 bits: {}", column, text));
  }
  if (error != std::errc() || end != text.data() + text.size()) {
    throw InputError(fmt::format("{} is not a whole number: \"{}\"", column, text));
  }
  return value;
}

Frame parse_frame(std::string_view line) {
  const std::vector<std::string_view> fields = split(line);
  if (fields.size() != kColumnNames.size()) {
    throw InputError(fmt::format("expected 3 fields ({}), found {}", kHeader, fields.size()));
  }
  std::array<int32_t, 3> numbers{};
  for (size_t i = 0; i < numbers.size(); ++i) numbers[i] = parse_number(fields[i], kColumnNames[i]);
  if (numbers[2] < 0) throw InputError(fmt::format("count is negative: {}", numbers[2]));
  return {numbers[0], numbers[1], numbers[2]};
}

}  // namespace

std::vector<Frame> parse_frames(std::istream& stream, const std::string& name) {
  std::vector<Frame> frames;
  std::string text;
  for (size_t number = 1; std::getline(stream, text); ++number) {
    const std::string_view line = trimmed(text);
    if (line.empty() || line.starts_with('#') || (frames.empty() && line == kHeader)) continue;
    try {
      frames.push_back(parse_frame(line));
    } catch (const InputError& error) {
      throw InputError(fmt::format("{}:{}: {}", name, number, error.what()));
    }
  }
  if (stream.bad()) throw InputError(fmt::format("{}: cannot be read", name));
  if (frames.empty()) throw InputError(fmt::format("{}: contains no frame", name));
  return frames;
}

std::vector<Frame> read_frames(const std::filesystem::path& file) {
  if (std::filesystem::is_directory(file)) throw InputError(fmt::format("{}: is a folder", file.string()));
  std::ifstream stream(file);
  if (!stream) throw InputError(fmt::format("{}: {}", file.string(), std::strerror(errno)));
  return parse_frames(stream, file.string());
}

}  // namespace awbcal
