// SPDX-License-Identifier: GPL-2.0-only
#include "call/call_type.h"

#include "zelk/ZelkApi.h"

namespace zelk {

namespace {

struct SRedirection {
  int32_t reason;  // of the redirecting number
  const char* type;
  uint32_t code;
};

constexpr SRedirection kRedirections[] = {
    {0, "Voice RedirectUnknown", ZELK_CALL_REDIRECT_UNKNOWN},
    {1, "Voice RedirectBusy", ZELK_CALL_REDIRECT_BUSY},
    {2, "Voice RedirectNoReply", ZELK_CALL_REDIRECT_NO_REPLY},
    {3, "Voice RedirectDeflected", ZELK_CALL_REDIRECT_DEFLECTED},
    {9, "Voice RedirectOutOfOrder", ZELK_CALL_REDIRECT_OUT_OF_ORDER},
    {10, "Voice RedirectForwarded", ZELK_CALL_REDIRECT_FORWARDED},
    {15, "Voice RedirectUnconditional", ZELK_CALL_REDIRECT_UNCONDITIONAL},
};

}  // namespace

const char* RedirectCallType(int32_t reason) {
  for (const SRedirection& entry : kRedirections) {
    if (entry.reason == reason) {
      return entry.type;
    }
  }
  return kCallTypeVoice;
}

uint32_t CallTypeCode(std::string_view type) {
  for (const SRedirection& entry : kRedirections) {
    if (entry.type == type) {
      return entry.code;
    }
  }
  return ZELK_CALL_VOICE;
}

}  // namespace zelk
