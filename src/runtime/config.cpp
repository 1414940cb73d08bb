// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/config.h"

#include <algorithm>
#include <cstring>

#include "platform/ini.h"
#include "runtime/format.h"
#include "runtime/log.h"
#include "runtime/scan_float.h"

namespace zelk {

namespace {

constexpr const char* kDebug = "Debug";
constexpr const char* kGeneral = "General";
constexpr const char* kDtmf = "Dtmf";
constexpr size_t kRealCapacity = 100;
constexpr int32_t kMaxAudioBlocks = 4096;

constinit CConfig instance;

// Text that does not begin with a number leaves the value of the read before.
void ReadReal(const std::string& path, const char* key, std::string_view defaultText, std::atomic<float>& value) {
  float parsed = 0.0F;
  if (ScanFloat(ReadProfileString(path, kDtmf, key, defaultText.data(), kRealCapacity), parsed)) {
    value = parsed;
  }
}

std::string TrunkSection(uint32_t serialNumber, uint32_t trunkNumber) {
  std::string section;
  FormatString(section, "%u-%u", serialNumber, trunkNumber);
  return section;
}

}  // namespace

CConfig& Config() {
  return instance;
}

void CConfig::Read(const std::string& path) {
  {
    const CScopedLock hold(pathLock);
    iniPath.fill('\0');
    path.copy(iniPath.data(), path.size() < kMaxPath ? path.size() : 0);
  }
  clampReported = false;
  tailReported = false;
  level = ReadProfileInt(path, kDebug, "Level", 2);
  flushImmediate = ReadProfileInt(path, kDebug, "FlushImmediate", 0) != 0;
  statusPage = ReadProfileInt(path, kDebug, "Status", 0) != 0;
  audioBuffers = ReadProfileInt(path, kGeneral, "AudioBuffers", 32);
  hangupOnAlerting = ReadProfileInt(path, kGeneral, "HangupOnAlerting", 0) != 0;
  numberType = ReadProfileInt(path, kGeneral, "NumberType", kNationalIsdnNumber);
  clientType = ReadProfileInt(path, kGeneral, "ClientType", kUserSide);
  switchType = ReadProfileInt(path, kGeneral, "SwitchType", kEuroIsdnE1);
  echoCanceller = ReadProfileInt(path, kGeneral, "EchoCanceller", 0) != 0;
  echoTailMs = ReadProfileInt(path, kGeneral, "EchoTail", 32);
  hdlcLog = ReadProfileInt(path, kGeneral, "HdlcLog", 0) != 0;
  crc4 = ReadProfileInt(path, kGeneral, "Crc4", 0);
  clearedCallTimeoutS = ReadProfileInt(path, kGeneral, "ClearedCallTimeout", 5);
  ReadDtmf(path);
}

void CConfig::ReadDtmf(const std::string& path) {
  // NormalTwist alone starts from its default again at every read; the other four keep what they had.
  normalTwist = SDtmfSettings().normalTwist;
  ReadReal(path, "NormalTwist", kDefaultNormalTwist, normalTwist);
  ReadReal(path, "ReverseTwist", kDefaultReverseTwist, reverseTwist);
  ReadReal(path, "RowPeak", kDefaultRowPeak, rowPeak);
  ReadReal(path, "ColPeak", kDefaultColumnPeak, columnPeak);
  ReadReal(path, "TotalEnergy", kDefaultTotalEnergy, totalEnergy);
}

SDtmfSettings CConfig::Dtmf() const {
  return {normalTwist, reverseTwist, rowPeak, columnPeak, totalEnergy};
}

uint32_t CConfig::AudioBlocks() {
  const int32_t wanted = audioBuffers;
  const int32_t used = std::clamp(wanted, 0, kMaxAudioBlocks);
  if (used != wanted && !clampReported.exchange(true)) {
    LogFormat(ELogClass::kStatus, kGeneralLine, "AudioBuffers %d is out of range, %d is used", wanted, used);
  }
  return static_cast<uint32_t>(used);
}

int32_t CConfig::EchoTail(int32_t wantedMs) {
  const int32_t used = std::clamp(wantedMs, kMinEchoTailMs, kMaxEchoTailMs);
  if (used != wantedMs && !tailReported.exchange(true)) {
    LogFormat(ELogClass::kStatus, kGeneralLine, "EchoTail %d is out of range, %d is used", wantedMs, used);
  }
  return used;
}

int32_t CConfig::ReadTrunkCrc4(uint32_t serialNumber, uint32_t trunkNumber) const {
  return ReadProfileInt(IniPath(), TrunkSection(serialNumber, trunkNumber).c_str(), "Crc4", crc4);
}

STrunkSettings CConfig::ReadTrunk(uint32_t serialNumber, uint32_t trunkNumber) const {
  const std::string path = IniPath();
  const std::string section = TrunkSection(serialNumber, trunkNumber);
  const auto read = [&](const char* key, int32_t general) {
    return ReadProfileInt(path, section.c_str(), key, general);
  };
  STrunkSettings settings;
  settings.hdlcLog = read("HdlcLog", hdlcLog ? 1 : 0) != 0;
  settings.hangupOnAlerting = read("HangupOnAlerting", hangupOnAlerting ? 1 : 0) != 0;
  settings.numberType = read("NumberType", numberType);
  settings.clientType = read("ClientType", clientType);
  settings.switchType = read("SwitchType", switchType);
  settings.echoTailMs = read("EchoTail", echoTailMs);
  settings.echoCanceller = read("EchoCanceller", echoCanceller ? 1 : 0) != 0;
  return settings;
}

std::string CConfig::IniPath() const {
  const CScopedLock hold(pathLock);
  return iniPath.data();
}

}  // namespace zelk
