// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <memory>

#include "card/card.h"
#include "recording_handlers.h"
#include "support/addresses.h"
#include "support/fake_card.h"

namespace zelk {

inline const SIpv4Address kLocal = Address("127.0.0.1");
inline const bool kIsHookInstalled = (InstallPriMessageHook(), true);

// A card object and the fake card it opens.
class Card : public testing::Test {
 protected:
  CFakeCard& Fake(CFakeCard::SOptions options = {}) {
    fake = std::make_unique<CFakeCard>(std::move(options));
    EXPECT_TRUE(fake->IsReady());
    return *fake;
  }
  CFakeCard& FakeNetwork() {
    CFakeCard::SOptions options;
    options.playsNetwork = true;
    return Fake(options);
  }
  bool Open() { return card.Open(fake->Address(), 5854, kLocal); }
  bool OpenWithHandlers() {
    const bool isOpen = Open();
    card.SetHandlers(&handlers);
    return isOpen;
  }

  // A side that is up before the other loses what it sends.
  void AwaitDchannels() {
    EXPECT_TRUE(handlers.WaitFor(DchannelUp(0)));
    EXPECT_TRUE(handlers.WaitFor(DchannelUp(1)));
    EXPECT_TRUE(fake->WaitForNetworkEvent(kPriDchannelUp, 2));
  }

  std::unique_ptr<CFakeCard> fake;
  CRecordingHandlers handlers;
  CCard card{3};
};

// False when it takes longer than anything here may; the action is let finish all the same.
inline bool ComesBack(const std::function<void()>& action, const std::function<void()>& release) {
  std::future<void> isDone = std::async(std::launch::async, action);
  const bool comesBack = isDone.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  release();
  return comesBack;
}

}  // namespace zelk
