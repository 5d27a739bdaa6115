#include "text/tables.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace awbcal {

Table::Table(std::vector<std::string> titles) : titles_(std::move(titles)) {
  for (std::string& title : titles_) {
    is_number_.push_back(title.starts_with('>'));
    if (is_number_.back()) title.erase(0, 1);
  }
}

std::vector<size_t> Table::column_widths() const {
  std::vector<size_t> widths;
  for (size_t column = 0; column < titles_.size(); ++column) {
    size_t width = titles_[column].size();
    for (const auto& cells : rows_) width = std::max(width, cells.at(column).text.size());
    widths.push_back(width);
  }
  return widths;
}

void Table::print(Terminal& terminal, size_t indent) const {
  const std::vector<size_t> widths = column_widths();
  const bool has_titles =
      std::any_of(titles_.begin(), titles_.end(), [](const std::string& title) { return !title.empty(); });
  if (has_titles) {
    std::vector<Cell> cells;
    for (const std::string& title : titles_) cells.emplace_back(title, Style::quiet);
    print_row(terminal, cells, widths, indent);
  }
  for (const auto& cells : rows_) print_row(terminal, cells, widths, indent);
}

void Table::print_row(Terminal& terminal, const std::vector<Cell>& cells, const std::vector<size_t>& widths,
                      size_t indent) const {
  std::string line(indent, ' ');
  size_t used = indent;
  for (size_t i = 0; i + 1 < cells.size(); ++i) {
    const std::string gap(widths[i] - cells[i].text.size(), ' ');
    const std::string text = terminal.styled(cells[i].text, cells[i].style);
    line += is_number_[i] ? gap + text : text + gap;
    line += "  ";
    used += widths[i] + 2;
  }
  const Cell& last = cells.back();
  if (is_number_[cells.size() - 1]) line += std::string(widths.back() - last.text.size(), ' ');
  for (const std::string& part : wrap(last.text, terminal.width() - std::min(used, terminal.width() - 1))) {
    const std::string text = line + terminal.styled(part, last.style);
    terminal.line(text.substr(0, text.find_last_not_of(' ') + 1));
    line.assign(used, ' ');
  }
}

void print_hexdump(Terminal& terminal, std::span<const uint8_t> bytes, uint64_t address) {
  constexpr size_t kPerLine = 16;
  while (!bytes.empty()) {
    const auto row = bytes.first(std::min(kPerLine, bytes.size()));
    std::string hex;
    std::string text;
    for (const uint8_t byte : row) {
      hex += fmt::format("{:02x} ", byte);
      text += std::isprint(byte) != 0 ? static_cast<char>(byte) : '.';
    }
    terminal.line(fmt::format("    {:06x}  {:<48} |{}|", address, hex, text));
    bytes = bytes.subspan(row.size());
    address += row.size();
  }
}

}  // namespace awbcal
