// SPDX-License-Identifier: GPL-2.0-only
#include "call/call_type.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace zelk {
namespace {

TEST(CallType, RedirectReasonsMapToCallTypes) {
  const std::map<int32_t, std::string> types = {{0, "Voice RedirectUnknown"},       {1, "Voice RedirectBusy"},
                                                {2, "Voice RedirectNoReply"},       {3, "Voice RedirectDeflected"},
                                                {9, "Voice RedirectOutOfOrder"},    {10, "Voice RedirectForwarded"},
                                                {15, "Voice RedirectUnconditional"}};
  for (int32_t reason = -2; reason < 40; ++reason) {
    const auto type = types.find(reason);
    EXPECT_EQ(RedirectCallType(reason), type != types.end() ? type->second : "Voice") << reason;
  }
}

TEST(CallType, OtherTextsReadAsVoice) {
  EXPECT_EQ(CallTypeCode("Voice RedirectUnknown"), 7U);
  for (const char* type : {"", "Voice", "voice redirectbusy", "Voice RedirectBusy "}) {
    EXPECT_EQ(CallTypeCode(type), 0U) << type;
  }
}

}  // namespace
}  // namespace zelk
