// SPDX-License-Identifier: GPL-2.0-only
#include <array>
#include <asio.hpp>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "support/adapters.h"
#include "system_fixture.h"

namespace {

using asio::ip::tcp;
using asio::ip::udp;
using cardsim::Bytes;
using namespace std::chrono_literals;

constexpr uint16_t kPort = 5854;

Bytes Reply(size_t length, uint8_t version = 1, const std::string& head = "ZELK R") {
  Bytes datagram(head.begin(), head.end());
  datagram.push_back(version);
  datagram.resize(length, 0);
  return datagram;
}

// A card in whose place only the sockets are: answers every probe of every adapter from its own address, takes control
// connections, answers them with bad information and tells from where they came.
class CBareCard {
 public:
  // heardAt: the broadcast address whose probes are heard; any by default.
  explicit CBareCard(const std::string& address, const std::string& heardAt = "0.0.0.0")
      : acceptor(io, {asio::ip::make_address_v4(address), kPort}) {
    Open(probes, asio::ip::make_address_v4(heardAt));
    Open(replies, asio::ip::make_address_v4(address));
    TakeProbe();
    Accept();
    thread = std::thread([this] { io.run(); });
  }
  ~CBareCard() {
    io.stop();
    thread.join();
  }

  std::vector<std::string> ProbesFrom() {
    const std::lock_guard guard(lock);
    return probesFrom;
  }
  std::vector<std::string> ConnectionsFrom() {
    const std::lock_guard guard(lock);
    return connectionsFrom;
  }

 private:
  static void Open(udp::socket& socket, const asio::ip::address_v4& address) {
    socket.open(udp::v4());
    socket.set_option(udp::socket::reuse_address(true));
    socket.bind({address, kPort});
  }
  void TakeProbe() {
    probes.async_receive_from(asio::buffer(buffer), from, [this](const asio::error_code& error, size_t bytes) {
      if (error) {
        return;
      }
      if (bytes == 6 && std::string(buffer.begin(), buffer.begin() + 6) == "ZELK D") {
        {
          const std::lock_guard guard(lock);
          probesFrom.push_back(from.address().to_string());
        }
        asio::error_code ignored;
        replies.send_to(asio::buffer(Reply(15)), {from.address(), kPort}, 0, ignored);
      }
      TakeProbe();
    });
  }
  void Accept() {
    acceptor.async_accept([this](const asio::error_code& error, tcp::socket socket) {
      if (error) {
        return;
      }
      {
        const std::lock_guard guard(lock);
        connectionsFrom.push_back(socket.remote_endpoint().address().to_string());
      }
      Bytes bad{0xFF, 0x01};
      bad.resize(24, 'x');
      asio::error_code ignored;
      asio::write(socket, asio::buffer(bad), ignored);
      connections.push_back(std::move(socket));
      Accept();
    });
  }

  asio::io_context io;
  udp::socket probes{io};
  udp::socket replies{io};
  tcp::acceptor acceptor;
  std::vector<tcp::socket> connections;
  std::array<uint8_t, 1500> buffer{};
  udp::endpoint from;
  std::thread thread;
  std::mutex lock;
  std::vector<std::string> probesFrom;       // guarded by lock
  std::vector<std::string> connectionsFrom;  // guarded by lock
};

class DiscoverySystem : public CSystemTest {
 protected:
  // A simulated card in the network of an adapter.
  std::unique_ptr<cardsim::CSimulator> CardAt(const std::string& address, const std::string& broadcast,
                                              uint32_t serial) {
    cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({1}, address);
    config.broadcast = broadcast;
    config.cards[0].identity.serial = serial;
    auto card = std::make_unique<cardsim::CSimulator>(config);
    card->Start();
    return card;
  }

  uint32_t SerialOf(int32_t channel) { return app->zelk.GetChannelInfo(channel, ZELK_INFO_SERIALNO); }
};

TEST_F(DiscoverySystem, numbers_cards_by_adapter_with_loopback_last) {
  ZELK_NEEDS_OWN_NETWORK();
  support::MakeAdapter("a0", {"10.1.1.1/24", "10.1.1.9/24"});
  support::MakeAdapter("a1", {"10.2.2.1/24", "10.2.2.9/24"});
  const auto loopback = CardAt("127.0.1.1", "127.255.255.255", 300);
  const auto second = CardAt("10.2.2.9", "10.2.2.255", 200);
  const auto first = CardAt("10.1.1.9", "10.1.1.255", 100);
  app = std::make_unique<support::CApplication>();
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_EQ(app->zelk.GetChannelCount(), 90);
  EXPECT_EQ(SerialOf(0), 100U);
  EXPECT_EQ(SerialOf(30), 200U);
  EXPECT_EQ(SerialOf(60), 300U);
  app.reset();
}

// A card on another adapter takes calls and is reopened when announced.
TEST_F(DiscoverySystem, a_card_on_another_adapter_takes_calls_and_is_reopened) {
  ZELK_NEEDS_OWN_NETWORK();
  support::MakeAdapter("a0", {"10.1.1.1/24", "10.1.1.9/24"});
  sim = CardAt("10.1.1.9", "10.1.1.255", 100);
  app = std::make_unique<support::CApplication>();
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  OpenAll();
  for (int connections = 1; connections <= 2; ++connections) {
    ASSERT_TRUE(Card().WaitUp(kSlow)) << app->zelk.LogText();
    EXPECT_EQ(Card().Seen().Connections(), connections);
    app->Forget();
    const cardsim::Call call = Card().PlaceCall({.timeslot = 1});
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon)) << app->zelk.LogText();
    app->zelk.Answer(0);
    ASSERT_TRUE(call->WaitState(cardsim::ESimCallState::kConnected, kSoon));
    app->zelk.Hangup(0);
    ASSERT_TRUE(call->WaitEnded(kSoon));
    Card().Restart();
    ASSERT_TRUE(Card().Seen().WaitConnections(connections + 1, kSoon)) << app->zelk.LogText();
  }
}

// A card that is heard on two adapters belongs to the first and is counted once.
TEST_F(DiscoverySystem, a_card_heard_on_two_adapters_belongs_to_the_first) {
  ZELK_NEEDS_OWN_NETWORK();
  support::MakeAdapter("a0", {"10.1.1.1/24", "10.1.1.9/24"});
  support::MakeAdapter("a1", {"10.2.2.1/24"});
  CBareCard card("10.1.1.9");
  app = std::make_unique<support::CApplication>();
  ASSERT_TRUE(app->zelk.Init());
  const std::vector<std::string> probes = card.ProbesFrom();
  EXPECT_EQ(probes, (std::vector<std::string>{"10.1.1.1", "10.1.1.1", "10.1.1.1", "10.2.2.1", "10.2.2.1", "10.2.2.1",
                                              "127.0.0.1", "127.0.0.1", "127.0.0.1"}));
  EXPECT_EQ(card.ConnectionsFrom(), std::vector<std::string>{"10.1.1.1"});
  EXPECT_EQ(app->zelk.GetChannelCount(), 0) << "the bare card gives no information";
}

TEST_F(DiscoverySystem, an_adapter_whose_port_is_taken_is_passed_over) {
  ZELK_NEEDS_OWN_NETWORK();
  support::MakeAdapter("a0", {"10.1.1.1/24", "10.1.1.9/24"});
  support::MakeAdapter("a1", {"10.2.2.1/24"});
  asio::io_context io;
  const udp::socket taken(io, {asio::ip::make_address_v4("10.1.1.1"), kPort});
  CBareCard card("10.1.1.9", "10.2.2.255");
  app = std::make_unique<support::CApplication>();
  ASSERT_TRUE(app->zelk.Init());
  EXPECT_EQ(card.ConnectionsFrom(), std::vector<std::string>{"10.2.2.1"});
}

TEST_F(DiscoverySystem, without_any_adapter_there_are_no_channels) {
  ZELK_NEEDS_OWN_NETWORK();
  support::ChangeNetwork("ip link set lo down");
  app = std::make_unique<support::CApplication>();
  EXPECT_TRUE(app->zelk.Init());
  EXPECT_EQ(app->zelk.GetChannelCount(), 0);
}

// A reply that is short, of another version or foreign makes no card.
TEST_F(DiscoverySystem, a_short_or_foreign_reply_makes_no_card) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1, 1, 1, 1, 1}));
  sim->Start();
  Card(0).SetDiscoveryReply(Reply(14));
  Card(1).SetDiscoveryReply(Reply(15, 2));
  Card(2).SetDiscoveryReply(Reply(64, 1, "ZELK B"));
  Card(3).SetDiscoveryReply(Bytes());
  Card(4).SetDiscoveryReply(Reply(1500));
  app = std::make_unique<support::CApplication>();
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_EQ(app->zelk.GetChannelCount(), 30);
  EXPECT_EQ(SerialOf(0), Card(4).Serial());
}

TEST_F(DiscoverySystem, a_card_that_answers_all_three_probes_is_opened_once) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  EXPECT_EQ(app->zelk.GetChannelCount(), 30);
  EXPECT_EQ(Card().Seen().Connections(), 1);
}

// A card that does not answer probes is not added by its announcement.
TEST_F(DiscoverySystem, a_card_is_not_added_by_its_announcement) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1, 1}));
  sim->Start();
  Card(1).SetAnswerProbes(false);
  app = std::make_unique<support::CApplication>();
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  EXPECT_EQ(app->zelk.GetChannelCount(), 30);
  Card(1).Announce();
  // Announcements are taken in turn: when the known card's has had its effect, the other's has been passed over.
  Card(0).Announce();
  ASSERT_TRUE(app->zelk.WaitLog("Card reopen has Succeeded"));
  EXPECT_EQ(Card(1).Seen().Connections(), 0);
  EXPECT_EQ(app->zelk.LogText().find("Broadcast from Card serial no " + std::to_string(Card(1).Serial())),
            std::string::npos);
}

}  // namespace
