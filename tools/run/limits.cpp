#include "run/limits.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <vector>

#include "inspect/errors.h"

namespace awbcal {

namespace {

constexpr std::string_view kTitle = "camera,light,golden_rg,golden_bg,threshold";
constexpr size_t kFields = 5;

std::vector<std::string_view> split(std::string_view line, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const size_t end = line.find(separator);
    parts.push_back(line.substr(0, end));
    if (end == std::string_view::npos) return parts;
    line.remove_prefix(end + 1);
  }
}

template <class Number>
bool read(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

std::optional<RecordKind> kind_of_light(std::string_view light) {
  if (light == "normal") return RecordKind::awb;
  return light == "a_light" ? std::optional(RecordKind::a_light_awb) : std::nullopt;
}

bool add_line(Limits& limits, std::string_view line) {
  const std::vector<std::string_view> fields = split(line, ',');
  if (fields.size() != kFields) return false;
  const auto camera = camera_of_name(std::string(fields[0]));
  const auto kind = kind_of_light(fields[1]);
  Limit limit{};
  if (!camera || !kind || !read(fields[2], limit.golden.rg) || !read(fields[3], limit.golden.bg))
    return false;
  const auto is_ratio = [](float value) { return std::isfinite(value) && value > 0; };
  if (!is_ratio(limit.golden.rg) || !is_ratio(limit.golden.bg) || !read(fields[4], limit.threshold) ||
      limits.find(camera, *kind) != nullptr)
    return false;
  limits.set(*camera, *kind, limit);
  return true;
}

}  // namespace

const Limit* Limits::find(std::optional<calib::Camera> camera, RecordKind kind) const {
  const auto own = camera ? own_.find({*camera, kind}) : own_.end();
  if (own != own_.end()) return &own->second;
  return common_ ? &*common_ : nullptr;
}

Limits parse_limits(const std::string& name, std::string_view text) {
  Limits limits;
  size_t number = 0;
  for (std::string_view line : split(text, '\n')) {
    ++number;
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (number == 1 ? line == kTitle : line.empty() || add_line(limits, line)) continue;
    throw InputError(number == 1
                         ? fmt::format("{}: does not begin with the line {}", name, kTitle)
                         : fmt::format("{}, line {}: not a camera (main, front, sub), a light (normal, "
                                       "a_light), two positive ratios and a whole percentage, or the "
                                       "second for this camera and light",
                                       name, number));
  }
  if (limits.empty()) throw InputError(fmt::format("{}: no limit in it", name));
  return limits;
}

}  // namespace awbcal
