#include "page/page.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>

#include "inspect/digest.h"
#include "page/assets.h"
#include "text/printable.h"
#include "text/utc.h"
#include "text/version.h"

namespace awbcal {

namespace {

constexpr int kShades = 8;

/// A text of ours, with its line ends.
std::string html_text(std::string_view text) {
  std::string result;
  for (const char each : text) {
    switch (each) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += each;
    }
  }
  return result;
}

std::string escaped(std::string_view text) {
  return html_text(printable(text));
}

/// As a content security policy names what may run: "'sha256-...'", the digest in base 64.
std::string source_hash(std::string_view content) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::string digest = sha256_of({reinterpret_cast<const uint8_t*>(content.data()), content.size()});
  std::string text;
  // Three digits of hexadecimal are two of these; the 64 of a digest leave one over.
  for (size_t i = 0; i < digest.size(); i += 3) {
    const std::string part = digest.substr(i, 3);
    const auto bits = static_cast<size_t>(std::stoul(part, nullptr, 16)) << (4 * (3 - part.size()));
    text += {kDigits[bits >> 6], part.size() > 1 ? kDigits[bits & 63] : '='};
  }
  return fmt::format("'sha256-{}'", text);
}

const char* class_of(Style style) {
  return style == Style::good ? "good" : style == Style::bad ? "bad" : "";
}

std::string cell_html(const Cell& cell, bool is_number) {
  std::string classes = class_of(cell.style);
  if (is_number) classes += classes.empty() ? "number" : " number";
  return fmt::format("<td{}>{}</td>", classes.empty() ? "" : fmt::format(" class=\"{}\"", classes),
                     escaped(cell.text));
}

std::string table_html(const Table& table, const std::string& attributes) {
  std::string html = fmt::format("<div class=\"scroll\"><table{}>\n", attributes);
  const std::vector<std::string>& titles = table.titles();
  if (std::ranges::any_of(titles, [](const std::string& title) { return !title.empty(); })) {
    html += "<thead><tr>";
    for (size_t i = 0; i < titles.size(); ++i)
      html += fmt::format("<th scope=\"col\"{}>{}</th>", table.is_number(i) ? " class=\"number\"" : "",
                          escaped(titles[i]));
    html += "</tr></thead>\n";
  }
  html += "<tbody>\n";
  for (const std::vector<Cell>& row : table.rows()) {
    html += "<tr>";
    for (size_t i = 0; i < row.size(); ++i) html += cell_html(row[i], table.is_number(i));
    html += "</tr>\n";
  }
  return html + "</tbody></table></div>\n";
}

const char* kind_name(ChartKind kind) {
  constexpr std::array kNames = {"ratios", "histogram", "days", "pareto", "change"};
  return kNames.at(static_cast<size_t>(kind));
}

/// The scale from the least to the greatest number.
struct Scale {
  float least;
  float greatest;

  int shade(float value) const {
    if (!(greatest > least) || std::isnan(value)) return 0;
    return std::clamp(static_cast<int>(kShades * ((value - least) / (greatest - least))), 0, kShades - 1);
  }
};

Scale scale_of(const std::vector<HeatMap>& maps) {
  Scale scale{.least = INFINITY, .greatest = -INFINITY};
  for (const HeatMap& map : maps) {
    for (const float value : map.values) {
      if (!std::isfinite(value)) continue;
      scale = {.least = std::min(scale.least, value), .greatest = std::max(scale.greatest, value)};
    }
  }
  return scale;
}

std::string map_html(const HeatMap& map, const Scale& scale) {
  std::string html = fmt::format("<table class=\"map\"><caption>{}</caption><tbody>\n", escaped(map.caption));
  for (size_t i = 0; i < map.values.size(); ++i) {
    if (i % map.columns == 0) html += "<tr>";
    html += fmt::format("<td class=\"s{}\">{:.2f}</td>", scale.shade(map.values[i]), map.values[i]);
    if (i % map.columns == map.columns - 1) html += "</tr>\n";
  }
  return html + "</tbody></table>\n";
}

}  // namespace

Page::Page(std::string_view title) : title_(title) {
  body_ = fmt::format("<h1>{}</h1>\n", escaped(title));
}

void Page::result(std::string_view text, Style style) {
  body_ += fmt::format("<p class=\"result {}\">{}</p>\n", class_of(style), escaped(text));
}

void Page::heading(std::string_view text) {
  body_ += fmt::format("<h2>{}</h2>\n", escaped(text));
}

void Page::subheading(std::string_view text) {
  body_ += fmt::format("<h3>{}</h3>\n", escaped(text));
}

void Page::paragraph(std::string_view text) {
  body_ += fmt::format("<p>{}</p>\n", escaped(text));
}

void Page::list(const std::vector<std::string>& lines) {
  body_ += "<ul>\n";
  for (const std::string& line : lines) body_ += fmt::format("<li>{}</li>\n", escaped(line));
  body_ += "</ul>\n";
}

void Page::table(const Table& table) {
  body_ += table_html(table, "");
}

void Page::chart(const Chart& chart) {
  const char* kind = kind_name(chart.kind);
  const bool is_square = chart.kind == ChartKind::ratios;
  body_ += fmt::format(
      "<figure data-chart=\"{}\"><figcaption>{}</figcaption>\n"
      "<div class=\"canvas{}\"><canvas role=\"img\" aria-label=\"{}; the numbers stand below\"></canvas></div>\n"
      "<details open><summary>Numbers</summary>\n",
      kind, escaped(chart.caption), is_square ? " square" : "", escaped(chart.caption));
  for (const ChartTable& each : chart.tables) {
    const std::string step = each.step ? fmt::format(" data-step=\"{}\"", *each.step) : "";
    body_ += table_html(each.table, fmt::format(" data-role=\"{}\"{}", each.role, step));
  }
  body_ += "</details></figure>\n";
}

void Page::heat_maps(const std::vector<HeatMap>& maps) {
  const Scale scale = scale_of(maps);
  body_ += "<div class=\"maps\">\n";
  for (const HeatMap& map : maps) body_ += map_html(map, scale);
  body_ += "</div>\n";
  paragraph(
      fmt::format("Colours from {:.4f}, the lightest on paper, to {:.4f}.", scale.least, scale.greatest));
}

std::string Page::html() const {
  return fmt::format(
      "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
      // Whatever text comes into the page, no other script runs, and nothing is fetched.
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src {} {}; style-src {}\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<title>{}</title>\n<style>{}</style></head>\n<body>\n{}"
      "<footer><p>Made by awbcal {} at {}.</p>\n"
      "<details><summary>The charts are drawn by Chart.js; its licence</summary><pre>{}</pre></details></footer>\n"
      "<script>{}</script>\n<script>{}</script>\n</body></html>\n",
      source_hash(kChartJs), source_hash(kPageScript), source_hash(kPageStyle), escaped(title_), kPageStyle,
      body_, escaped(version_text()), utc_text(std::time(nullptr)), html_text(kChartJsLicence), kChartJs,
      kPageScript);
}

}  // namespace awbcal
