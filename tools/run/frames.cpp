#include "run/frames.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "inspect/errors.h"
#include "inspect/files.h"

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

std::vector<FrameLine> parse_frames(std::string_view text, const std::string& name) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  std::vector<FrameLine> frames;
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = trimmed(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.empty() || line.starts_with('#') || (frames.empty() && line == kHeader)) continue;
    try {
      frames.push_back({parse_frame(line), number});
    } catch (const InputError& error) {
      throw InputError(fmt::format("{}:{}: {}", name, number, error.what()));
    }
  }
  if (frames.empty()) throw InputError(fmt::format("{}: contains no frame", name));
  return frames;
}

std::vector<FrameLine> read_frames(const std::filesystem::path& file) {
  return parse_frames(text_of(bytes_of_file(file, kLargestFrames)), file.string());
}

}  // namespace awbcal
