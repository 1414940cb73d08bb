// SPDX-License-Identifier: GPL-2.0-only

// A settings file, read as a start and the open of a card read it. An input is a trunk and the file's text:
//
//   serial number (4 bytes), trunk (1), the text

#include "platform/ini_file.h"

#include <cstring>

#include "fuzz/scratch_file.h"
#include "fuzz/target.h"
#include "platform/ini_text.h"
#include "runtime/config.h"
#include "runtime/log.h"
#include "runtime/scan_float.h"

namespace zelk::fuzz {
namespace {

constexpr const char* kNumbers[] = {"AudioBuffers", "NumberType", "SwitchType", "ClientType", "EchoTail", "Crc4"};

// What is used keeps within its range, whatever is written.
void CheckGeneral(CConfig& config) {
  Require(config.AudioBlocks() <= 4096, "a card has at most 4096 blocks a channel");
  const int32_t tail = config.EchoTail(config.echoTailMs);
  Require(tail >= kMinEchoTailMs && tail <= kMaxEchoTailMs, "a tail is one that a canceller can have");
}

// Through the file comes what stands in the text.
void CheckLookUps(const char* path, std::string_view text, const std::string& section) {
  for (const char* key : kNumbers) {
    const std::optional<std::string_view> value = FindProfileValue(text, section, key);
    const int32_t expected = value.has_value() && !value->empty() ? ProfileNumber(*value) : -77;
    Require(ReadIniFileInt(path, section.c_str(), key, -77) == expected, "a number of the file is that of its text");
    const std::string cut(value.value_or("none").substr(0, 9));
    Require(ReadIniFileString(path, section.c_str(), key, "none", 10) == cut,
            "a value of the file is that of its text");
  }
}

// Of one threshold of five: what begins with a number, else the default.
void CheckThreshold(const CConfig& config, std::string_view text) {
  const std::optional<std::string_view> value = FindProfileValue(text, "Dtmf", "TotalEnergy");
  float expected = SDtmfSettings().totalEnergy;
  ScanFloat(std::string(value.value_or("").substr(0, 99)), expected);
  const float read = config.Dtmf().totalEnergy;
  Require(std::memcmp(&read, &expected, sizeof read) == 0, "a threshold of the file is that of its text");
}

void CheckTrunk(const CConfig& config, std::string_view text, uint32_t serialNumber, uint32_t trunk) {
  const std::string section = std::to_string(serialNumber) + "-" + std::to_string(trunk);
  const std::optional<std::string_view> value = FindProfileValue(text, section, "SwitchType");
  const bool isSet = value.has_value() && !value->empty();
  Require(
      config.ReadTrunk(serialNumber, trunk).switchType == (isSet ? ProfileNumber(*value) : config.switchType.load()),
      "a trunk's own value counts, else the general one");
  config.ReadTrunkCrc4(serialNumber, trunk);
}

// The log keeps its lines until somebody takes them.
void DropLog() {
  static int runs = 0;
  if (++runs % 256 == 0) {
    Log().Start("/dev/null");
    Log().Stop();
  }
}

void Run(const uint8_t* bytes, size_t length) {
  static CScratchFile scratch(".ini");
  CInput input(bytes, length);
  const uint32_t serialNumber = input.Number(4);
  const uint32_t trunk = input.Byte();
  const Bytes file = input.Rest();
  const char* path = scratch.Write(file);
  const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
  CConfig config;
  config.Read(path);
  CheckGeneral(config);
  CheckThreshold(config, text);
  CheckLookUps(path, text, "General");
  CheckTrunk(config, text, serialNumber, trunk);
  DropLog();
}

std::vector<Bytes> Seeds() {
  const Bytes trunk = {0x87, 0x87, 1, 0, 2};  // the second of the card 100231
  const auto file = [&](const std::string& text) { return Join({trunk, Text(text)}); };
  return {
      file("[Debug]\nLevel=2\nFlushImmediate=1\n[General]\nAudioBuffers=32\nNumberType=33\nClientType=1000\n"),
      file("[General]\r\nAudioBuffers=-1\r\nEchoTail=4097\r\nHdlcLog=1\r\n[100231-2]\r\nSwitchType=10\r\nCrc4=2\r\n"),
      file("[Dtmf]\nNormalTwist=6.3\nReverseTwist=1e39\nRowPeak=nan\nColPeak=-.5\nTotalEnergy=x\n"),
      file("\xEF\xBB\xBF[general]\nswitchtype=\"5\"\nAudioBuffers=\n[100231-2]\nSwitchType=\n"),
      file("[General\nAudioBuffers=5\n;[General]\n[ General ]\nEchoTail=99999999999\n"),
      trunk};
}

const SRegistered kRegistered({"ini_file", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz
