// SPDX-License-Identifier: GPL-2.0-only

// The capture of a trunk's D-channel, and what a reader finds in it. An input is what happens to the file:
//
//   operations, a byte each with their arguments:
//     even  a frame: received (1 bit of the operation), length (2), that many bytes
//     odd   the file is closed and opened again

#include "card/capture_file.h"

#include <cstdio>
#include <fstream>
#include <random>

#include "card/control_parser.h"
#include "fuzz/target.h"
#include "platform/module.h"
#include "runtime/paths.h"

namespace zelk::fuzz {
namespace {

constexpr size_t kMaxOperations = 64;
constexpr size_t kHeadChars = sizeof "O 2013-05-09 14:03:07 0000 " - 1;

struct SFrame {
  char direction;
  Bytes bytes;
  bool operator==(const SFrame&) const = default;
};

// The capture of a card that nobody has, beside the program; it goes with the program.
class CCapture {
 public:
  CCapture() : serialNumber(std::random_device()()) {
    std::string module;
    Require(ModulePath(module), "a program knows its path");
    path = CapturePath(DerivePaths(module, kPathSeparator).directory, kPathSeparator, serialNumber, 1);
  }
  ~CCapture() { Remove(); }
  CCapture(const CCapture&) = delete;
  CCapture& operator=(const CCapture&) = delete;

  void Open() { file.Open(serialNumber, 1); }
  void Write(const SFrame& frame) { file.Write(frame.direction, frame.bytes.data(), frame.bytes.size()); }
  void Close() { file.Close(); }
  void Remove() { std::remove(path.c_str()); }
  std::string Content() const {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

 private:
  const uint32_t serialNumber;
  std::string path;
  CCaptureFile file;
};

// A line as its readers take it apart: a direction, a time of nineteen characters, an offset, bytes of two digits.
SFrame Decode(const std::string& line) {
  Require(line.size() >= kHeadChars && (line.size() - kHeadChars) % 3 == 0, "a line is a head and bytes of three");
  Require(line.substr(1, 1) == " " && line.substr(kHeadChars - 6, 6) == " 0000 ", "the head ends in the offset");
  SFrame frame{line[0], {}};
  for (size_t at = kHeadChars; at < line.size(); at += 3) {
    const std::string digits = line.substr(at, 2);
    Require(digits.find_first_not_of("0123456789ABCDEF") == std::string::npos && line[at + 2] == ' ',
            "digits, a blank");
    frame.bytes.push_back(static_cast<uint8_t>(std::stoi(digits, nullptr, 16)));
  }
  return frame;
}

std::vector<SFrame> DecodeAll(const std::string& content) {
  std::vector<SFrame> frames;
  for (size_t at = 0; at < content.size();) {
    const size_t end = content.find("\r\n", at);
    Require(end != std::string::npos, "every line ends");
    frames.push_back(Decode(content.substr(at, end - at)));
    at = end + 2;
  }
  return frames;
}

void Run(const uint8_t* bytes, size_t length) {
  static CCapture capture;
  CInput input(bytes, length);
  std::vector<SFrame> written;
  capture.Remove();
  capture.Open();
  for (size_t i = 0; i < kMaxOperations && !input.IsEmpty(); ++i) {
    const uint8_t operation = input.Byte();
    if (operation % 2 != 0) {
      capture.Close();
      capture.Write({'O', {1, 2, 3}});  // goes nowhere
      capture.Open();
      continue;
    }
    written.push_back({(operation & 2U) != 0 ? 'I' : 'O', input.Take(input.Number(2) % kFrameLimit)});
    capture.Write(written.back());
  }
  capture.Close();
  Require(DecodeAll(capture.Content()) == written, "a reader finds the frames that were written, in their order");
}

Bytes Frame(uint8_t operation, const Bytes& frame) {
  return Join({{operation, static_cast<uint8_t>(frame.size()), static_cast<uint8_t>(frame.size() >> 8)}, frame});
}

std::vector<Bytes> Seeds() {
  const Bytes sabme = {0x00, 0x01, 0x7F};
  const Bytes setup = {0x02, 0x01, 0x00, 0x00, 0x08, 0x02, 0x00, 0x05, 0x05, 0x0D, 0x0A};
  return {Join({Frame(0, sabme), Frame(2, {0x00, 0x01, 0x73})}),
          Join({Frame(2, setup), {1}, Frame(0, setup)}),
          Join({Frame(0, Bytes(299, 0xFF)), Frame(2, {}), {1, 1}}),
          {1}};
}

const SRegistered kRegistered({"capture_file", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz
