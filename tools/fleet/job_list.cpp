// SPDX-License-Identifier: GPL-2.0-only
#include "fleet/job_list.h"

#include <unordered_map>

namespace fleet {

namespace {

struct SRow {
  size_t line = 0;  // where it begins, counted from 1
  std::vector<std::string> cells;
};

// Takes a table apart, row by row. A cell in quotes may hold commas, line ends, and quotes twice over.
class CRows {
 public:
  explicit CRows(const std::string& table) : text(table) {}

  bool Next(SRow& row) {
    if (at >= text.size()) {
      return false;
    }
    row = {line, {""}};
    bool isQuoted = false;
    for (; at < text.size(); ++at) {
      const char byte = text[at];
      line += byte == '\n' ? 1 : 0;
      if (byte == '"') {
        const bool isTwice = isQuoted && at + 1 < text.size() && text[at + 1] == '"';
        isQuoted = isTwice || !isQuoted;
        if (isTwice) {
          row.cells.back() += text[++at];
        }
      } else if (!isQuoted && byte == ',') {
        row.cells.emplace_back();
      } else if (!isQuoted && byte == '\n') {
        ++at;
        return true;
      } else if (isQuoted || byte != '\r') {
        row.cells.back() += byte;
      }
    }
    return true;
  }

 private:
  const std::string& text;
  size_t at = 0;
  size_t line = 1;
};

// The list as it grows; an id stands in it once.
class CCollection {
 public:
  template <typename Read>
  void Add(size_t line, Read read) {
    try {
      SJob job = read();
      const auto [first, isNew] = lines.emplace(job.id, line);
      if (!isNew) {
        throw CJobError("\"id\" " + job.id + " stands in line " + std::to_string(first->second) + " already");
      }
      list.jobs.push_back(std::move(job));
    } catch (const CJobError& error) {
      list.faults.push_back("line " + std::to_string(line) + ": " + error.what());
    }
  }

  SJobList list;

 private:
  std::unordered_map<std::string, size_t> lines;
};

SJobList ReadLines(const std::string& text) {
  CCollection all;
  size_t number = 0;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = text.substr(begin, end - begin);
    ++number;
    if (line.find_first_not_of(" \t\r") != std::string::npos) {
      all.Add(number, [&line] { return ParseJob(line); });
    }
    begin = end + 1;
  }
  return std::move(all.list);
}

SJobList ReadTable(const std::string& text) {
  CCollection all;
  CRows rows(text);
  SRow head;
  rows.Next(head);
  SRow row;
  while (rows.Next(row)) {
    if (row.cells.size() > 1 || !row.cells.front().empty()) {
      all.Add(row.line, [&] { return JobOfTexts(head.cells, row.cells); });
    }
  }
  return std::move(all.list);
}

}  // namespace

SJobList ReadJobs(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  return first != std::string::npos && text[first] == '{' ? ReadLines(text) : ReadTable(text);
}

}  // namespace fleet
