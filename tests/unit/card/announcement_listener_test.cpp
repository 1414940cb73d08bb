// SPDX-License-Identifier: GPL-2.0-only
#include "card/announcement_listener.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/clock.h"
#include "platform/socket.h"
#include "recording_handlers.h"
#include "runtime/config.h"
#include "runtime/log.h"
#include "support/addresses.h"
#include "support/allocation_probe.h"
#include "support/eventually.h"
#include "support/fake_card.h"
#include "support/system_address.h"

namespace zelk {
namespace {

// Sends a card's announcement from its address to the listener.
void Announce(const std::string& address, uint32_t serialNumber, size_t length = 22) {
  Message datagram{'Z', 'E', 'L', 'K', ' ', 'B', 1};
  datagram.resize(18);
  for (int shift = 0; shift < 32; shift += 8) {
    datagram.push_back(static_cast<uint8_t>(serialNumber >> shift));
  }
  datagram.resize(length);
  const int sender = socket(AF_INET, SOCK_DGRAM, 0);
  const sockaddr_in from = SystemAddress(address, 0);
  const sockaddr_in to = SystemAddress("127.0.0.1", 5854);
  ASSERT_EQ(bind(sender, reinterpret_cast<const sockaddr*>(&from), sizeof from), 0);
  ASSERT_EQ(sendto(sender, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to),
            static_cast<ssize_t>(datagram.size()));
  CloseSocket(sender);
}

class AnnouncementListener : public testing::Test {
 protected:
  void SetUp() override {
    logPath = (std::filesystem::temp_directory_path() / "zelk-listener-test.log").string();
    ASSERT_TRUE(Log().Start(logPath));
    Log().Stop();
    std::filesystem::remove(logPath);
    ASSERT_TRUE(card.Open(fake->Address(), 5854, Address("127.0.0.1")));
    card.SetHandlers(&handlers);
    ASSERT_TRUE(listener.Start({&card}, {{Address("127.0.0.2"), Address("127.0.0.1")}}));
  }
  void TearDown() override {
    listener.Stop();
    card.Close();
    Config().level = 2;
    std::filesystem::remove(logPath);
  }
  // The listener may not have its port yet: announcements are repeated until something happens.
  template <class Condition>
  bool AnnounceUntil(Condition condition, const std::string& address, uint32_t serialNumber) {
    const auto announced = [&] {
      Announce(address, serialNumber);
      return support::Eventually(condition, std::chrono::milliseconds(500));
    };
    return condition() || support::Eventually(announced, std::chrono::seconds(15));
  }
  std::string LogText() {
    EXPECT_TRUE(Log().Start(logPath));
    Log().Stop();
    std::ifstream file(logPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  std::string logPath;
  std::unique_ptr<CFakeCard> fake = std::make_unique<CFakeCard>();
  CRecordingHandlers handlers;
  CCard card{0};
  CAnnouncementListener listener;
};

TEST_F(AnnouncementListener, ReopensAnOpenCardAndLogsTwoLines) {
  ASSERT_TRUE(AnnounceUntil([&] { return handlers.Count(CardUp()) > 0; }, "127.0.0.2", 4711));
  listener.Stop();
  EXPECT_GE(handlers.Count(Reopening()), 1U);
  EXPECT_TRUE(card.ControllersRunning());
  EXPECT_GE(fake->Connections(), 2);
  const std::string text = LogText();
  EXPECT_NE(text.find("  G :Broadcast from Card serial no 4711\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("  G :Card reopen has Succeeded\r\n"), std::string::npos) << text;
}

TEST_F(AnnouncementListener, ReachesACardAtItsNewAddress) {
  fake.reset();
  CFakeCard::SOptions options;
  options.address = "127.0.0.3";
  CFakeCard moved(options);
  ASSERT_TRUE(
      AnnounceUntil([&] { return moved.Connections() > 0 && handlers.Count(CardUp()) > 0; }, "127.0.0.3", 4711));
  listener.Stop();
  EXPECT_TRUE(card.ControllersRunning());
  card.Close();
}

TEST_F(AnnouncementListener, AFailedReopenIsLoggedAndTheNextFindsTheCard) {
  ASSERT_TRUE(
      AnnounceUntil([&] { return handlers.Count(Reopening()) > 0 && !card.ControllersRunning(); }, "127.0.0.77", 4711));
  EXPECT_TRUE(support::Eventually([&] { return card.SerialNumber() == 4711; }));
  ASSERT_TRUE(AnnounceUntil([&] { return card.ControllersRunning(); }, "127.0.0.2", 4711));
  listener.Stop();
  const std::string text = LogText();
  EXPECT_NE(text.find("  G :Card reopen has failed\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("  G :Card reopen has Succeeded\r\n"), std::string::npos) << text;
}

TEST_F(AnnouncementListener, AnUnknownSerialNumberIsIgnored) {
  Announce("127.0.0.2", 4712);
  Announce("127.0.0.2", 0);
  // One that is known, after them, shows that they were taken.
  ASSERT_TRUE(AnnounceUntil([&] { return handlers.Count(CardUp()) > 0; }, "127.0.0.2", 4711));
  listener.Stop();
  const std::string text = LogText();
  EXPECT_EQ(text.find("serial no 4712"), std::string::npos) << text;
  EXPECT_EQ(text.find("serial no 0"), std::string::npos) << text;
}

TEST_F(AnnouncementListener, LogsNothingAtLevelThree) {
  Config().level = 3;
  ASSERT_TRUE(AnnounceUntil([&] { return handlers.Count(CardUp()) > 0; }, "127.0.0.2", 4711));
  listener.Stop();
  const std::string text = LogText();
  EXPECT_EQ(text.find("Broadcast from"), std::string::npos) << text;
  EXPECT_EQ(text.find("Card reopen"), std::string::npos) << text;
}

// The memory that fails is the listener's own, from what follows the handlers' call to the next announcement's lines
// and addresses. Each failure costs one re-open at the most; the listener goes on.
TEST_F(AnnouncementListener, WithoutMemoryAReopenIsLostAndTheNextOneIsDone) {
  std::atomic<uint32_t> n{0};
  handlers.SetOnReopening([&](const CStopFlag&) { support::FailAllocation(++n); });
  constexpr uint32_t kFailures = 8;
  // With the n-th allocation after the handlers' call failing, the card is closed; the failure may also come after
  // the open, in the next announcement.
  ASSERT_TRUE(AnnounceUntil([&] { return n >= kFailures; }, "127.0.0.2", 4711));
  handlers.SetOnReopening([](const CStopFlag&) { support::FailAllocation(0); });
  const size_t opened = handlers.Count(CardUp());
  ASSERT_TRUE(AnnounceUntil([&] { return handlers.Count(CardUp()) > opened; }, "127.0.0.2", 4711));
  listener.Stop();
  EXPECT_TRUE(card.ControllersRunning());
}

// Held in the application's callback for longer than the stop waits, the listener touches no card when it comes back.
TEST_F(AnnouncementListener, AThreadThatComesBackAfterItsStopReopensNothing) {
  CEvent isInside;
  CEvent mayReturn;
  CEvent isBack;
  handlers.SetOnReopening([&](const CStopFlag& caller) {
    isInside.Set();
    mayReturn.Wait();
    EXPECT_TRUE(caller.IsSet());
    isBack.Set();
  });
  ASSERT_TRUE(AnnounceUntil([&] { return isInside.WaitFor(0); }, "127.0.0.2", 4711));
  listener.Stop();
  {
    CSocket next;
    ASSERT_TRUE(next.OpenUdp());
    EXPECT_TRUE(next.Bind({kAnyAddress, kCardPort})) << "the port is free for the next listener";
  }
  card.Close();
  ASSERT_TRUE(card.Open(fake->Address(), 5854, Address("127.0.0.1")));
  const int connections = fake->Connections();
  mayReturn.Set();
  isBack.Wait();
  // Its last act.
  EXPECT_TRUE(support::Eventually([&] { return LogText().find("Card reopen has failed\r\n") != std::string::npos; }));
  EXPECT_EQ(fake->Connections(), connections);
  EXPECT_TRUE(card.ControllersRunning());
}

TEST_F(AnnouncementListener, StopCutsAReopenShort) {
  fake->Hang(true);
  ASSERT_TRUE(AnnounceUntil([&] { return fake->Count({0xFF, 0x01}) > 1; }, "127.0.0.2", 4711));
  const uint32_t start = TickMs();
  listener.Stop();
  EXPECT_LT(TickMs() - start, 1500U);
  EXPECT_EQ(card.SerialNumber(), 4711U);
  EXPECT_FALSE(card.ControllersRunning());
}

TEST_F(AnnouncementListener, CanBeStoppedTwiceAndStartedAgain) {
  listener.Stop();
  listener.Stop();
  ASSERT_TRUE(listener.Start({&card}, {{Address("127.0.0.2"), Address("127.0.0.1")}}));
  EXPECT_TRUE(AnnounceUntil([&] { return handlers.Count(CardUp()) > 0; }, "127.0.0.2", 4711));
}

}  // namespace
}  // namespace zelk
