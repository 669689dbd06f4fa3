#include "table.h"

#include <algorithm>

#include "output.h"

namespace vantor {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

std::string OneLine(const std::string& cell) {
  std::string out;
  out.reserve(cell.size());
  for (size_t i = 0; i < cell.size(); ++i) {
    if (cell[i] == '\r' && i + 1 < cell.size() && cell[i + 1] == '\n') {
      out += CurrentGlyphs().line_break;
      ++i;
    } else if (cell[i] == '\n' || cell[i] == '\r') {
      out += CurrentGlyphs().line_break;
    } else if (cell[i] == '\t') {
      out += ' ';
    } else {
      out += cell[i];
    }
  }
  return EscapeControls(out);
}

}  // namespace

std::string EscapeControls(std::string_view text, bool keep_line_breaks) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (keep_line_breaks && (c == '\n' || c == '\t')) {
      out += text[i];
    } else if (c < 0x20 || c == 0x7F) {
      out += "\\x";
      out += kHexDigits[c >> 4];
      out += kHexDigits[c & 0xF];
    } else if (c == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
               static_cast<unsigned char>(text[i + 1]) <= 0x9F) {
      // U+0080 .. U+009F, the second control range (U+009B starts a terminal command like ESC [).
      const auto low = static_cast<unsigned char>(text[i + 1]);
      out += "\\u00";
      out += kHexDigits[low >> 4];
      out += kHexDigits[low & 0xF];
      ++i;
    } else {
      out += text[i];
    }
  }
  return out;
}

size_t DisplayWidth(const std::string& text) {
  size_t width = 0;
  for (unsigned char c : text) {
    if ((c & 0xC0) != 0x80) ++width;  // count lead bytes only
  }
  return width;
}

Table::Table(std::vector<std::string> headings) : headings_(std::move(headings)) {
  for (auto& heading : headings_) heading = OneLine(heading);  // hit-list titles come from the gateway
}

void Table::AddRow(std::vector<std::string> cells) {
  cells.resize(std::max(cells.size(), headings_.size()));
  for (auto& cell : cells) cell = OneLine(cell);
  rows_.push_back(std::move(cells));
}

void Table::Print(std::ostream& out, bool bold_headings) const {
  size_t columns = headings_.size();
  for (const auto& row : rows_) columns = std::max(columns, row.size());
  std::vector<size_t> widths(columns, 0);
  for (size_t c = 0; c < headings_.size(); ++c) widths[c] = DisplayWidth(headings_[c]);
  for (const auto& row : rows_) {
    for (size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], DisplayWidth(row[c]));
  }
  auto line_of = [&](const std::vector<std::string>& cells) {
    std::string line;
    for (size_t c = 0; c < columns; ++c) {
      const std::string cell = c < cells.size() ? cells[c] : std::string();
      if (c > 0) line += "  ";
      line += cell;
      if (c + 1 < columns) line.append(widths[c] - DisplayWidth(cell), ' ');
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    return line;
  };
  if (bold_headings) {
    out << "\x1b[1m" << line_of(headings_) << "\x1b[0m\n";
  } else {
    out << line_of(headings_) << '\n';
  }
  std::vector<std::string> rule;
  for (size_t c = 0; c < columns; ++c) {
    std::string dashes;
    for (size_t i = 0; i < widths[c]; ++i) dashes += CurrentGlyphs().rule;
    rule.push_back(dashes);
  }
  out << line_of(rule) << '\n';
  for (const auto& row : rows_) out << line_of(row) << '\n';
}

}  // namespace vantor
