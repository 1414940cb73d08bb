// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <vector>

#include "call_fixture.h"
#include "support/libpri_surroundings.h"

namespace zelk::test {

inline constexpr uint8_t kRelease = 0x4D;
inline constexpr uint8_t kReleaseComplete = 0x5A;
inline constexpr uint8_t kStatus = 0x7D;
inline constexpr uint8_t kDisconnect = 0x45;
inline constexpr uint32_t kDefaultTimeoutMs = 5000;
inline constexpr int64_t kT305Ms = 30000;
inline constexpr int64_t kT308Ms = 4000;
inline constexpr int64_t kT313Ms = 4000;

// A message of ours as it stands in its frame: 4 bytes of layer 2, then the discriminator and a reference of two bytes.
struct SMessage {
  std::array<uint8_t, 2> reference{};
  uint8_t type = 0;
};

// A trunk with calls that the library clears, on a clock that the test moves; the other side's layer 3 says what the
// test wants.
class CClearingFixture : public CTrunkFixture {
 protected:
  static void SetUpTestSuite() { InstallPriMessageHook(); }

  void SetUp() override {
    if (!support::CanMoveLibpriClock()) {
      GTEST_SKIP() << "libpri's clock cannot be moved on this system";
    }
  }
  void TearDown() override { Config().clearedCallTimeoutS = 5; }

  void Elapse(int64_t ms) {
    constexpr int64_t kStepMs = 500;
    for (int64_t passed = 0; passed < ms; passed += kStepMs) {
      support::MoveLibpriClock(kStepMs);
      nowMs += static_cast<uint32_t>(kStepMs);
      trunk.RunTimers(nowMs);
    }
  }

  // Our messages that have not been carried to the other side.
  std::vector<SMessage> Sent() const {
    std::vector<SMessage> messages;
    for (const std::vector<uint8_t>& frame : trunk.us.written) {
      if (frame.size() > 9 && frame[4] == 0x08 && frame[5] == 2) {
        messages.push_back({{frame[6], frame[7]}, frame[8]});
      }
    }
    return messages;
  }
  size_t CountSent(uint8_t type) const {
    const std::vector<SMessage> messages = Sent();
    return static_cast<size_t>(std::count_if(messages.begin(), messages.end(),
                                             [type](const SMessage& message) { return message.type == type; }));
  }

  // A message of the other side in an unnumbered frame, which layer 2 takes whatever the sequence.
  void SendToUs(const SMessage& about, uint8_t type, const std::vector<uint8_t>& elements) {
    std::vector<uint8_t> frame{
        0x02, 0x01, 0x03, 0x08, 2, static_cast<uint8_t>(about.reference[0] ^ 0x80), about.reference[1], type};
    frame.insert(frame.end(), elements.begin(), elements.end());
    frame.insert(frame.end(), {0, 0});
    trunk.them.written.push_back(std::move(frame));
    trunk.ToUs();
  }

  // Begins the clearing and tells what we sent; the other side's layer 3 learns of it.
  SMessage HangUp(int32_t channel) {
    EXPECT_TRUE(Hangup(Channel(channel)));
    const std::vector<SMessage> sent = Sent();
    EXPECT_EQ(sent.size(), 1U);
    trunk.Run();
    return sent.empty() ? SMessage{} : sent.front();
  }
  void ForgetAtPeer() { trunk.peer->DestroyCall(trunk.PeerEvent(kPriHangupRequest).call); }

  // A connected call that ends by an acknowledgement alone.
  void StickConnected(int32_t channel) {
    Connect(channel);
    const SMessage disconnect = HangUp(channel);
    ForgetAtPeer();
    SendToUs(disconnect, kReleaseComplete, {0x08, 0x02, 0x81, 0xE5});
    ASSERT_EQ(application.Take(), std::vector<SPosted>{});
    ASSERT_EQ(Info(channel, "CHANNELSTATE"), "INUSE");
  }

  void ExpectReleasedLate(int32_t channel, int32_t cause) {
    EXPECT_EQ(Info(channel, "CHANNELSTATE"), "INUSE");
    Elapse(kDefaultTimeoutMs - 500);
    EXPECT_EQ(application.Take(), std::vector<SPosted>{});
    Elapse(1500);
    EXPECT_EQ(application.Take(), (std::vector<SPosted>{{channel, EVENT_DISCONNECTED, cause}}));
    EXPECT_EQ(Info(channel, "CHANNELSTATE"), "READY");
    EXPECT_EQ(Info(channel, "CALLTYPE"), "");
    EXPECT_FALSE(View(channel).connected);
    Connect(channel);
  }

  uint32_t nowMs = 1000;
};

}  // namespace zelk::test
