// SPDX-License-Identifier: GPL-2.0-only
#include "phone/phone_error.h"

#include <gtest/gtest.h>

#include <set>

namespace phone {
namespace {

TEST(PhoneError, EveryExitCodeHasANameOfItsOwn) {
  std::set<std::string> names;
  for (int code = 0; code <= 8; ++code) {
    names.insert(ExitName(static_cast<EExit>(code)));
  }
  EXPECT_EQ(names.size(), 9U);
}

// Causes by their numbers in ITU-T Q.850.
TEST(PhoneError, NobodyAnsweredIsNotTheSameAsRefused) {
  EXPECT_EQ(ExitOfCause(18), EExit::kNoAnswer);  // no user responding
  EXPECT_EQ(ExitOfCause(19), EExit::kNoAnswer);  // alerted, but no answer
  EXPECT_EQ(ExitOfCause(17), EExit::kRefused);   // user busy
  EXPECT_EQ(ExitOfCause(21), EExit::kRefused);   // call rejected
  EXPECT_EQ(ExitOfCause(-1), EExit::kRefused);
}

}  // namespace
}  // namespace phone
