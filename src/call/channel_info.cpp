#include "call/channel_info.h"

#include <array>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

#include "call/channel_table.h"
#include "zelk/ZelkApi.h"

namespace zelk {

namespace {

constexpr const char* kRedirectUnknown = "Voice RedirectUnknown";
constexpr const char* kRedirectBusy = "Voice RedirectBusy";
constexpr const char* kRedirectNoReply = "Voice RedirectNoReply";
constexpr const char* kRedirectDeflected = "Voice RedirectDeflected";
constexpr const char* kRedirectOutOfOrder = "Voice RedirectOutOfOrder";
constexpr const char* kRedirectForwarded = "Voice RedirectForwarded";
constexpr const char* kRedirectUnconditional = "Voice RedirectUnconditional";

const char* ChannelState(const CDevice& device) {
  switch (device.linkState) {
    case -1:
      return "DOWN";
    case 1:
      return device.callHandle != nullptr ? "INUSE" : "READY";
    default:
      return "UNKNOWN";
  }
}

struct SInfoKey {
  std::string_view key;
  std::string (*text)(CDevice& device, int32_t channelCount);
};

// Each is called with the information lock held.
constexpr SInfoKey kInfoKeys[] = {
    {"CLI", [](CDevice& device, int32_t) ZELK_NO_THREAD_SAFETY_ANALYSIS { return device.cli; }},
    {"DLI", [](CDevice& device, int32_t) ZELK_NO_THREAD_SAFETY_ANALYSIS { return device.dli; }},
    {"RLI", [](CDevice& device, int32_t) ZELK_NO_THREAD_SAFETY_ANALYSIS { return device.rli; }},
    {"CALLTYPE", [](CDevice& device, int32_t) ZELK_NO_THREAD_SAFETY_ANALYSIS { return std::string(device.callType); }},
    {"INPUTTYPE",
     [](CDevice& device, int32_t) ZELK_NO_THREAD_SAFETY_ANALYSIS { return std::string(device.inputType); }},
    {"OPENTYPE", [](CDevice& device, int32_t) { return std::string(device.wave.FormatName()); }},
    // One more than the timeslot: applications have always seen it so.
    {"CHANNEL", [](CDevice& device, int32_t) { return std::to_string(device.timeslot + 1); }},
    {"DIRECTION",
     [](CDevice& device, int32_t) { return std::string(device.direction >= 1 ? "INCOMING" : "OUTGOING"); }},
    {"CLITYPE", [](CDevice&, int32_t) { return std::string("DIGITAL"); }},
    {"PHYSICALPORTS",
     [](CDevice&, int32_t count) { return std::to_string(count / static_cast<int32_t>(kChannelsPerTrunk)); }},
    {"SERIALNO", [](CDevice& device, int32_t) { return device.serialText; }},
    {"FEATUREFLAGS", [](CDevice& device, int32_t) { return std::to_string(device.featureFlags); }},
    {"FIRMWAREVER", [](CDevice& device, int32_t) { return std::to_string(device.firmwareVersion); }},
    {"FIRMWAREDATE", [](CDevice& device, int32_t) { return device.firmwareDate; }},
    {"BURNDATE", [](CDevice& device, int32_t) { return device.burnDate; }},
    {"CHANNELSTATE", [](CDevice& device, int32_t) { return std::string(ChannelState(device)); }},
};

std::string InfoText(CDevice& device, std::string_view key, int32_t channelCount) {
  for (const SInfoKey& entry : kInfoKeys) {
    if (entry.key == key) {
      return entry.text(device, channelCount);
    }
  }
  return {};
}

struct STextCode {
  std::string_view text;
  uint32_t code;
};

uint32_t CodeOf(std::string_view text, const STextCode* codes, size_t count, uint32_t otherwise) {
  for (size_t entry = 0; entry < count; ++entry) {
    if (codes[entry].text == text) {
      return codes[entry].code;
    }
  }
  return otherwise;
}

constexpr STextCode kChannelStates[] = {
    {"INUSE", ZELK_CHANNEL_INUSE}, {"READY", ZELK_CHANNEL_READY}, {"DOWN", ZELK_CHANNEL_DOWN}};

constexpr STextCode kCallTypes[] = {
    {kRedirectBusy, ZELK_CALL_REDIRECT_BUSY},
    {kRedirectNoReply, ZELK_CALL_REDIRECT_NO_REPLY},
    {kRedirectUnconditional, ZELK_CALL_REDIRECT_UNCONDITIONAL},
    {kRedirectDeflected, ZELK_CALL_REDIRECT_DEFLECTED},
    {kRedirectOutOfOrder, ZELK_CALL_REDIRECT_OUT_OF_ORDER},
    {kRedirectForwarded, ZELK_CALL_REDIRECT_FORWARDED},
    {kRedirectUnknown, ZELK_CALL_REDIRECT_UNKNOWN},
};

}  // namespace

const char* GetInfo(CDevice& device, const char* key, int32_t channelCount) {
  CScopedLock held(device.infoLock);
  device.infoResult = InfoText(device, key, channelCount);
  return device.infoResult.c_str();
}

bool SetInfo(CDevice& device, const char* key, const char* value) {
  const std::string_view name(key);
  if (name == "DIALCLI") {
    CScopedLock held(device.infoLock);
    device.dialCli = value;
    return true;
  }
  if (name == "ALLOWINCOMING") {
    device.allowIncoming = std::strtol(value, nullptr, 10) != 0;
  }
  return false;
}

const char* InfoString(CDevice& device, uint32_t code, int32_t channelCount) {
  switch (code) {
    case ZELK_INFO_SERIALNO:
      return GetInfo(device, "SERIALNO", channelCount);
    case ZELK_INFO_CLI:
      return GetInfo(device, "CLI", channelCount);
    case ZELK_INFO_DLI:
      return GetInfo(device, "DLI", channelCount);
    case ZELK_INFO_RLI:
      return GetInfo(device, "RLI", channelCount);
    case ZELK_INFO_DIRECTION:
      return GetInfo(device, "DIRECTION", channelCount);
    case ZELK_INFO_CHANNELSTATE:
      return GetInfo(device, "CHANNELSTATE", channelCount);
    case ZELK_INFO_CALLTYPE:
      return GetInfo(device, "CALLTYPE", channelCount);
    case ZELK_INFO_LINETYPE:
      return "PRI";
    case ZELK_INFO_OPENTYPE:
      return GetInfo(device, "OPENTYPE", channelCount);
    case ZELK_INFO_FIRMWAREVER:
      return GetInfo(device, "FIRMWAREVER", channelCount);
    case ZELK_INFO_FIRMWAREDATE:
      return GetInfo(device, "FIRMWAREDATE", channelCount);
    case ZELK_INFO_BURNDATE:
      return GetInfo(device, "BURNDATE", channelCount);
    default:
      return nullptr;
  }
}

uint32_t InfoNumber(CDevice& device, uint32_t code, int32_t channelCount) {
  const auto text = [&](std::string_view key) {
    CScopedLock held(device.infoLock);
    return InfoText(device, key, channelCount);
  };
  switch (code) {
    case ZELK_INFO_SERIALNO:
      return static_cast<uint32_t>(std::strtoull(text("SERIALNO").c_str(), nullptr, 10));
    case ZELK_INFO_DIRECTION:
      return text("DIRECTION") == "INCOMING" ? 'I' : 'O';
    case ZELK_INFO_CHANNELSTATE:
      return CodeOf(text("CHANNELSTATE"), kChannelStates, std::size(kChannelStates), ZELK_CHANNEL_UNKNOWN);
    case ZELK_INFO_CALLTYPE:
      return CodeOf(text("CALLTYPE"), kCallTypes, std::size(kCallTypes), ZELK_CALL_VOICE);
    case ZELK_INFO_LINETYPE:
      return 1;
    case ZELK_INFO_OPENTYPE:
      return text("OPENTYPE") == "MULAW" ? ZELK_FORMAT_MULAW : ZELK_FORMAT_ALAW;
    case ZELK_INFO_TRUNK:
      return static_cast<uint32_t>(device.trunkIndex);
    case ZELK_INFO_TIMESLOT:
      return device.timeslot;
    default:
      return 0;
  }
}

uint32_t SetInfoNumber(CDevice& device, int32_t code, int32_t value) {
  if (code != ZELK_SET_ALLOWINCOMING) {
    return 0;
  }
  SetInfo(device, "ALLOWINCOMING", value != 0 ? "1" : "0");
  return 1;
}

const char* RedirectCallType(int32_t reason) {
  switch (reason) {
    case 0:
      return kRedirectUnknown;
    case 1:
      return kRedirectBusy;
    case 2:
      return kRedirectNoReply;
    case 3:
      return kRedirectDeflected;
    case 9:
      return kRedirectOutOfOrder;
    case 10:
      return kRedirectForwarded;
    case 15:
      return kRedirectUnconditional;
    default:
      return kCallTypeVoice;
  }
}

}  // namespace zelk
