// SPDX-License-Identifier: GPL-2.0-only
#include "call/channel_info.h"

#include <cstdlib>
#include <string>
#include <string_view>

#include "call/channel_table.h"
#include "zelk/ZelkApi.h"

namespace zelk {

namespace {

using TextReader = const char* (*)(CDevice& device, int32_t channelCount);
using NumberReader = uint32_t (*)(const CDevice& device);

constexpr uint32_t kNoCode = 0;
constexpr TextReader kNoText = nullptr;
constexpr NumberReader kNoNumber = nullptr;
constexpr uint32_t kPriLine = 1;

bool IsIncoming(const CDevice& device) {
  return device.Call().View().direction >= 1;
}

// One piece of information. Its readers are its kind: text, number or both, by its code; a key reads the text.
struct SInformation {
  uint32_t code;         // of the public interface, kNoCode when it has none
  std::string_view key;  // empty when it has none
  TextReader text;
  NumberReader number;
};

constexpr SInformation kInformation[] = {
    {ZELK_INFO_SERIALNO, "SERIALNO", [](CDevice& device, int32_t) { return device.KeepInfo(device.SerialText()); },
     [](const CDevice& device) {
       return static_cast<uint32_t>(std::strtoull(device.SerialText().c_str(), nullptr, 10));
     }},
    {ZELK_INFO_CLI, "CLI", [](CDevice& device, int32_t) { return device.KeepInfo(device.Cli()); }, kNoNumber},
    {ZELK_INFO_DLI, "DLI", [](CDevice& device, int32_t) { return device.KeepInfo(device.Dli()); }, kNoNumber},
    {ZELK_INFO_RLI, "RLI", [](CDevice& device, int32_t) { return device.KeepInfo(device.Rli()); }, kNoNumber},
    {ZELK_INFO_DIRECTION, "DIRECTION",
     [](CDevice& device, int32_t) { return device.KeepInfo(IsIncoming(device) ? "INCOMING" : "OUTGOING"); },
     [](const CDevice& device) -> uint32_t { return IsIncoming(device) ? 'I' : 'O'; }},
    {ZELK_INFO_CHANNELSTATE, "CHANNELSTATE",
     [](CDevice& device, int32_t) { return device.KeepInfo(ChannelState(device.Call().View()).text); },
     [](const CDevice& device) { return ChannelState(device.Call().View()).code; }},
    {ZELK_INFO_CALLTYPE, "CALLTYPE", [](CDevice& device, int32_t) { return device.KeepInfo(device.CallType()); },
     [](const CDevice& device) { return CallTypeCode(device.CallType()); }},
    // A constant, which leaves the text of the last request alone.
    {ZELK_INFO_LINETYPE, "", [](CDevice&, int32_t) { return "PRI"; }, [](const CDevice&) { return kPriLine; }},
    {ZELK_INFO_OPENTYPE, "OPENTYPE",
     [](CDevice& device, int32_t) { return device.KeepInfo(device.Wave().FormatName()); },
     [](const CDevice& device) -> uint32_t {
       return std::string_view(device.Wave().FormatName()) == "MULAW" ? ZELK_FORMAT_MULAW : ZELK_FORMAT_ALAW;
     }},
    {ZELK_INFO_FIRMWAREVER, "FIRMWAREVER",
     [](CDevice& device, int32_t) { return device.KeepInfo(std::to_string(device.FirmwareVersion())); }, kNoNumber},
    {ZELK_INFO_FIRMWAREDATE, "FIRMWAREDATE",
     [](CDevice& device, int32_t) { return device.KeepInfo(device.FirmwareDate()); }, kNoNumber},
    {ZELK_INFO_BURNDATE, "BURNDATE", [](CDevice& device, int32_t) { return device.KeepInfo(device.BurnDate()); },
     kNoNumber},
    {ZELK_INFO_TRUNK, "", kNoText, [](const CDevice& device) { return static_cast<uint32_t>(device.TrunkIndex()); }},
    {ZELK_INFO_TIMESLOT, "", kNoText, [](const CDevice& device) { return device.Timeslot(); }},
    {kNoCode, "INPUTTYPE", [](CDevice& device, int32_t) { return device.KeepInfo(device.InputType()); }, kNoNumber},
    // One more than the timeslot: applications have always seen it so.
    {kNoCode, "CHANNEL",
     [](CDevice& device, int32_t) { return device.KeepInfo(std::to_string(device.Timeslot() + 1)); }, kNoNumber},
    {kNoCode, "CLITYPE", [](CDevice& device, int32_t) { return device.KeepInfo("DIGITAL"); }, kNoNumber},
    {kNoCode, "PHYSICALPORTS",
     [](CDevice& device, int32_t count) {
       return device.KeepInfo(std::to_string(count / static_cast<int32_t>(kChannelsPerTrunk)));
     },
     kNoNumber},
    {kNoCode, "FEATUREFLAGS",
     [](CDevice& device, int32_t) { return device.KeepInfo(std::to_string(device.FeatureFlags())); }, kNoNumber},
};

const SInformation* FindByKey(std::string_view key) {
  for (const SInformation& entry : kInformation) {
    if (!key.empty() && entry.key == key) {
      return &entry;
    }
  }
  return nullptr;
}

const SInformation* FindByCode(uint32_t code) {
  for (const SInformation& entry : kInformation) {
    if (code != kNoCode && entry.code == code) {
      return &entry;
    }
  }
  return nullptr;
}

}  // namespace

const char* GetInfo(CDevice& device, const char* key, int32_t channelCount) {
  const SInformation* entry = FindByKey(key);
  return entry != nullptr ? entry->text(device, channelCount) : device.KeepInfo("");
}

bool SetInfo(CDevice& device, const char* key, const char* value) {
  const std::string_view name(key);
  if (name == "DIALCLI") {
    device.SetDialCli(value);
    return true;
  }
  if (name == "ALLOWINCOMING") {
    device.AllowIncoming(std::strtol(value, nullptr, 10) != 0);
  }
  return false;
}

const char* InfoString(CDevice& device, uint32_t code, int32_t channelCount) {
  const SInformation* entry = FindByCode(code);
  return entry != nullptr && entry->text != kNoText ? entry->text(device, channelCount) : nullptr;
}

uint32_t InfoNumber(const CDevice& device, uint32_t code) {
  const SInformation* entry = FindByCode(code);
  return entry != nullptr && entry->number != kNoNumber ? entry->number(device) : 0;
}

uint32_t SetInfoNumber(CDevice& device, int32_t code, int32_t value) {
  if (code != ZELK_SET_ALLOWINCOMING) {
    return 0;
  }
  SetInfo(device, "ALLOWINCOMING", value != 0 ? "1" : "0");
  return 1;
}

SChannelState ChannelState(const SCallView& call) {
  switch (call.linkState) {
    case -1:
      return {"DOWN", ZELK_CHANNEL_DOWN};
    case 1:
      return call.callHandle != nullptr ? SChannelState{"INUSE", ZELK_CHANNEL_INUSE}
                                        : SChannelState{"READY", ZELK_CHANNEL_READY};
    default:
      return {"UNKNOWN", ZELK_CHANNEL_UNKNOWN};
  }
}

}  // namespace zelk
