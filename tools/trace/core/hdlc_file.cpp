// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/hdlc_file.h"

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <optional>
#include <utility>

#include "common/wire.h"
#include "trace/core/bounded_line.h"
#include "trace/core/trace_error.h"

namespace trace {
namespace {

constexpr char kEnding[] = ".hdlc";
// "O 2013-05-09 14:03:07 0000 "
constexpr std::size_t kHeadChars = 27;
constexpr std::size_t kMostChars = kHeadChars + 3 * tool::kMaxFrameFromLibrary + 2;

std::optional<int> HexDigit(char letter) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  for (int value = 0; value < 16; ++value) {
    if (kDigits[value] == letter) {
      return value;
    }
  }
  return std::nullopt;
}

// Local time, as the library writes it.
std::optional<Time> TimeOf(const std::string& text) {
  std::tm local{};
  if (std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d", &local.tm_year, &local.tm_mon, &local.tm_mday,
                  &local.tm_hour, &local.tm_min, &local.tm_sec) != 6) {
    return std::nullopt;
  }
  local.tm_year -= 1900;
  local.tm_mon -= 1;
  local.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&local);
  return seconds < 0 ? std::nullopt : std::optional(static_cast<Time>(seconds) * kSecond);
}

std::optional<Bytes> BytesOf(const std::string& line) {
  Bytes bytes;
  if ((line.size() - kHeadChars) % 3 != 0 || line.size() > kHeadChars + 3 * tool::kMaxFrameFromLibrary) {
    return std::nullopt;
  }
  for (std::size_t at = kHeadChars; at < line.size(); at += 3) {
    const std::optional<int> high = HexDigit(line[at]);
    const std::optional<int> low = HexDigit(line[at + 1]);
    if (!high || !low || line[at + 2] != ' ') {
      return std::nullopt;
    }
    bytes.push_back(static_cast<std::uint8_t>(*high << 4 | *low));
  }
  return bytes;
}

bool ReadFrame(const std::string& line, SControl& frame) {
  const bool isHead = line.size() >= kHeadChars && (line[0] == 'I' || line[0] == 'O') && line[1] == ' ' &&
                      line.compare(kHeadChars - 6, 6, " 0000 ") == 0;
  const std::optional<Time> time = isHead ? TimeOf(line.substr(2, 19)) : std::nullopt;
  const std::optional<Bytes> bytes = isHead ? BytesOf(line) : std::nullopt;
  if (!time || !bytes) {
    return false;
  }
  frame.kind = EControl::kFrame;
  frame.direction = line[0] == 'O' ? EDirection::kFromLibrary : EDirection::kToLibrary;
  frame.time = *time;
  frame.body = *bytes;
  return true;
}

}  // namespace

bool CHdlcFile::IsOne(const std::string& path) {
  const std::string ending = kEnding;
  return path.size() > ending.size() && path.compare(path.size() - ending.size(), ending.size(), ending) == 0;
}

CHdlcFile::CHdlcFile(const std::string& path, bool isGrowing)
    : name(path), grows(isGrowing), file(path, std::ios::binary) {
  const std::size_t slash = path.find_last_of("/\\");
  const std::string last = slash == std::string::npos ? path : path.substr(slash + 1);
  unsigned number = 0;
  if (std::sscanf(last.c_str(), "zelk-%10u-%1d", &number, &trunk) != 2 || trunk < 1 || trunk > tool::kMaxTrunks) {
    throw CTraceError(EExit::kBadInput, path + ": is not named zelk-SERIAL-TRUNK.hdlc, which tells the trunk");
  }
  serial = number;
  --trunk;
  if (!file) {
    throw CTraceError(EExit::kBadInput, path + ": cannot be opened");
  }
}

bool CHdlcFile::ReadText(std::string& text) {
  return grows ? ReadWhole(text) : ReadLine(file, text, kMostChars);
}

// A line with its end, however often its writer was asked for it.
bool CHdlcFile::ReadWhole(std::string& text) {
  std::error_code error;
  if (std::filesystem::file_size(name, error) < taken && !error) {
    file.seekg(0);
    begun.clear();
    taken = 0;
    line = 0;
  }
  std::string part;
  std::getline(file, part);
  const bool isWhole = file.good();
  file.clear();
  taken += part.size() + (isWhole ? 1 : 0);
  begun += part;
  // Longer than any line: it is none, which its reader says.
  if (!isWhole && begun.size() < kMostChars) {
    return false;
  }
  text = std::exchange(begun, {});
  return true;
}

bool CHdlcFile::Next(SControl& frame) {
  std::string text;
  if (!fault.empty() || !ReadText(text)) {
    return false;
  }
  ++line;
  if (!text.empty() && text.back() == '\r') {
    text.pop_back();
  }
  frame.trunk = trunk;
  frame.packet = line;
  if (!ReadFrame(text, frame)) {
    fault = name + ": line " + std::to_string(line) + " is none of a D-channel; this is what stands before it";
    return false;
  }
  return true;
}

}  // namespace trace
