// table.cpp - column widths, padding, joining.
#include "host/table.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace vex::host {
namespace {

void TrimRight(std::string& line) { line.erase(line.find_last_not_of(' ') + 1); }

size_t Widest(const std::vector<std::string>& lines) {
  size_t width = 0;
  for (const std::string& line : lines) width = std::max(width, line.size());
  return width;
}

}  // namespace

Table::Table(std::string title, std::vector<std::string> head, std::vector<Align> align)
    : title_(std::move(title)), align_(std::move(align)) {
  rows_.push_back(std::move(head));
}

void Table::Row(std::vector<std::string> cells) {
  cells.resize(align_.size());
  rows_.push_back(std::move(cells));
}

std::vector<std::string> Table::Lines() const {
  std::vector<size_t> width(align_.size(), 0);
  for (const auto& row : rows_)
    for (size_t i = 0; i < row.size(); ++i) width[i] = std::max(width[i], row[i].size());
  std::vector<std::string> lines;
  if (!title_.empty()) lines.push_back(title_);
  for (const auto& row : rows_) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i)
      line += align_[i] == Align::kLeft ? fmt::format("  {:<{}}", row[i], width[i])
                                        : fmt::format("  {:>{}}", row[i], width[i]);
    TrimRight(line);
    lines.push_back(std::move(line));
  }
  return lines;
}

std::vector<std::string> SideBySide(const std::vector<std::string>& left,
                                    const std::vector<std::string>& right, size_t gap) {
  const size_t column = Widest(left) + gap;
  std::vector<std::string> lines;
  for (size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
    std::string line = i < left.size() ? left[i] : std::string{};
    if (i < right.size()) line = fmt::format("{:<{}}{}", line, column, right[i]);
    TrimRight(line);
    lines.push_back(std::move(line));
  }
  return lines;
}

std::string JoinLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + '\n';
  return text;
}

std::string Percent(uint64_t part, uint64_t whole) {
  if (whole == 0) return "-";
  return fmt::format("{:.1f}%", 100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

}  // namespace vex::host
