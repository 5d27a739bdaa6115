// Tables and hexdumps for people.
#ifndef TEXT_TABLES_H
#define TEXT_TABLES_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "text/printable.h"
#include "text/terminal.h"

namespace awbcal {

struct Cell {
  std::string text;
  Style style = Style::plain;

  Cell(const std::string& content, Style look = Style::plain) : text(printable(content)), style(look) {}
  Cell(const char* content) : text(content) {}
};

/// Columns as wide as their widest cell; the last one is wrapped at the terminal's width. A title that begins
/// with '>' makes a column of numbers, set to the right.
class Table {
 public:
  explicit Table(std::vector<std::string> titles);

  void row(std::vector<Cell> cells) { rows_.push_back(std::move(cells)); }
  void print(Terminal& terminal, size_t indent = 4) const;

  const std::vector<std::string>& titles() const { return titles_; }
  bool is_number(size_t column) const { return is_number_[column]; }
  const std::vector<std::vector<Cell>>& rows() const { return rows_; }

 private:
  std::vector<size_t> column_widths() const;
  void print_row(Terminal& terminal, const std::vector<Cell>& cells, const std::vector<size_t>& widths,
                 size_t indent) const;

  std::vector<std::string> titles_;
  std::vector<bool> is_number_;
  std::vector<std::vector<Cell>> rows_;
};

/// Sixteen bytes a line, as `hexdump -C` shows them; the first byte is at `address`.
void print_hexdump(Terminal& terminal, std::span<const uint8_t> bytes, uint64_t address);

}  // namespace awbcal

#endif
