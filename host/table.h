// table.h - aligned text tables for reports: rows of cells in, lines out. No locale, no terminal codes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vex::host {

class Table {
 public:
  enum class Align : char { kLeft, kRight };
  Table(std::string title, std::vector<std::string> head, std::vector<Align> align);

  void Row(std::vector<std::string> cells);
  bool empty() const { return rows_.size() == 1; }
  // Title, head, rows; columns two blanks apart, no blanks at the ends of lines.
  std::vector<std::string> Lines() const;

 private:
  std::string title_;
  std::vector<Align> align_;
  std::vector<std::vector<std::string>> rows_;  // the first one is the head
};

// Both texts next to each other, the right one starting `gap` columns behind the widest line of the left one.
std::vector<std::string> SideBySide(const std::vector<std::string>& left,
                                    const std::vector<std::string>& right, size_t gap = 4);
std::string JoinLines(const std::vector<std::string>& lines);  // each ends with a newline

std::string Percent(uint64_t part, uint64_t whole);  // "12.5%", "-" when there is no whole

}  // namespace vex::host
