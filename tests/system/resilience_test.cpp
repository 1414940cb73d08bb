// SPDX-License-Identifier: GPL-2.0-only
#include <atomic>
#include <thread>

#include "system_fixture.h"

// What one card's misfortunes may cost the others, the machine and the application.
namespace {

using cardsim::Bytes;
using cardsim::Call;
using cardsim::ESimCallState;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class Resilience : public CSystemTest {
 protected:
  // Processor time of the library's process (the idle simulator may be in it) over a span of time, as a share of a
  // core.
  double CpuShare(std::chrono::milliseconds span) {
    const double before = app->zelk.CpuSeconds();
    const auto begin = Clock::now();
    support::LetPass(span);  // what the library costs in it is what is measured
    const double wall = std::chrono::duration<double>(Clock::now() - begin).count();
    return (app->zelk.CpuSeconds() - before) / wall;
  }

  // Loses the card: by silence, which the library notices after a second, or by a reset.
  void Lose(size_t card, bool bySilence) {
    if (bySilence || !app->zelk.SeesResets()) {
      Card(card).SetControlSilent(true);
    } else {
      Card(card).SetListening(false);
      Card(card).ResetControl();
    }
  }
  void Announce(size_t card) {
    Card(card).SetControlSilent(false);
    Card(card).Restart();
  }
};

// Where `heard` stands in `sent`, or -1: a piece of sound without a byte lost, doubled or changed.
long PlaceOf(const Bytes& heard, const Bytes& sent) {
  return support::FindSound(sent, heard);
}

// One card is lost and comes back again and again while a call on the other carries sound both ways.
class KeptCall : public Resilience {
 protected:
  static constexpr size_t kSound = size_t{8000} * 60;
  static constexpr int32_t kChannel = 30;
  static constexpr size_t kLost = 0;
  static constexpr size_t kKept = 1;

  void StartCall();
  void LoseAndReopen(size_t times);
  void ExpectWhole();

  const Bytes toLibrary = cardsim::RenderTestPattern(kSound, 1);
  const Bytes fromLibrary = cardsim::RenderTestPattern(kSound, 2);
  Call call;
};

void KeptCall::StartCall() {
  OpenAll();
  call = Card(kKept).PlaceCall({.timeslot = 1});
  ASSERT_TRUE(app->WaitEvent(kChannel, ZELK_EVENT_INCOMING_CALL, kSoon));
  app->zelk.Answer(kChannel);
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
  ASSERT_TRUE(app->WaitEvent(kChannel, ZELK_EVENT_CONNECTED, kSoon));
  call->PlayBytes(toLibrary);
  ASSERT_TRUE(app->zelk.PlayBuffer(kChannel, fromLibrary.data(), static_cast<uint32_t>(fromLibrary.size())));
  app->Forget();
  app->Record(kChannel);
  ASSERT_TRUE(app->WaitRecorded(kChannel, 8000, kSoon));
  ASSERT_TRUE(call->Heard()->WaitContains(cardsim::ByteView(fromLibrary).first(8000), kSlow));
  // From here on both directions carry the patterns.
  app->Record(kChannel);
  call->Heard()->Clear();
}

void KeptCall::LoseAndReopen(size_t times) {
  for (size_t round = 1; round <= times; ++round) {
    Lose(kLost, round % 2 == 0);
    ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSlow, 2 * round - 1)) << app->zelk.LogText();
    Announce(kLost);
    ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSlow, 2 * round)) << app->zelk.LogText();
    ASSERT_EQ(app->Text(29, ZELK_INFO_CHANNELSTATE), "READY");
  }
}

void KeptCall::ExpectWhole() {
  const std::vector<uint8_t> recorded = app->Recorded(kChannel);
  const Bytes heard = call->Recorded();
  EXPECT_GT(recorded.size(), size_t{8000} * 5);
  EXPECT_GT(heard.size(), size_t{8000} * 5);
  EXPECT_GE(PlaceOf(recorded, toLibrary), 0) << recorded.size() << " bytes recorded";
  EXPECT_GE(PlaceOf(heard, fromLibrary), 0) << heard.size() << " bytes heard";
  EXPECT_EQ(app->zelk.GetChannelInfo(kChannel, ZELK_INFO_CHANNELSTATE), static_cast<uint32_t>(ZELK_CHANNEL_INUSE));
  EXPECT_TRUE(app->Events(kChannel).empty());
  EXPECT_EQ(Card(kKept).Seen().Connections(), 1);
  const cardsim::SAudioStatistics seen = Card(kKept).Audio().Statistics();
  EXPECT_EQ(seen.missing, 0U);
  EXPECT_EQ(seen.sequenceGaps, 0U);
}

TEST_F(KeptCall, loses_no_sample_while_another_card_is_lost_and_reopened) {
  // Room for stalls of a busy machine: they are not the other card's doing.
  ASSERT_NO_FATAL_FAILURE(Start({1, 1}, "[General]\nAudioBuffers=150\n"));
  ASSERT_NO_FATAL_FAILURE(StartCall());
  ASSERT_NO_FATAL_FAILURE(LoseAndReopen(10));
  Lose(kLost, true);
  ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSlow, 21));
  ExpectWhole();
}

// A closed control connection costs next to nothing and the shut-down is in time.
TEST_F(Resilience, a_closed_control_connection_costs_next_to_nothing) {
  for (const bool isHalfClosed : {false, true}) {
    ASSERT_NO_FATAL_FAILURE(Start({1}));
    Card().SetListening(false);
    Card().Audio().SetPacing(false);
    const double before = CpuShare(2s);
    if (isHalfClosed) {
      Card().HalfCloseControl();
    } else {
      Card().DropControl();
    }
    const double after = CpuShare(3s);
    std::printf("processor: %.2f %% of a core with the connection, %.2f %% after its end\n", before * 100, after * 100);
    EXPECT_LT(after, before + 0.03) << "more than 3 % of a core";
    const auto begin = Clock::now();
    app->zelk.Shutdown();
    EXPECT_LT(Clock::now() - begin, 3s);
    EXPECT_EQ(app->zelk.LogText().find("is down"), std::string::npos);
    app.reset();
    sim.reset();
  }
}

// Calls every export again and again, with channels of both cards, and keeps to what the interface allows.
class CEveryExport {
 public:
  CEveryExport(support::CZelkLibrary& library, unsigned seed) : zelk(library), state(seed) {}

  void RunUntil(const std::atomic<bool>& stop) {
    while (!stop) {
      Step();
      ++calls;
    }
  }

  std::atomic<uint64_t> calls{0};

 private:
  uint32_t Random(uint32_t below) {
    state = state * 1664525U + 1013904223U;
    return (state >> 8) % below;
  }

  void Step() {
    const int32_t channel = static_cast<int32_t>(Random(64)) - 2;
    const uint32_t kind = Random(24);
    if (kind < 9) {
      UseInformation(kind, channel);
    } else if (kind < 15) {
      UseCalls(kind, channel);
    } else {
      UseSound(kind, channel);
    }
  }

  void UseInformation(uint32_t kind, int32_t channel) {
    switch (kind) {
      case 0:
        ASSERT_TRUE(zelk.Init());
        break;  // already initialised: reads the configuration, restarts the log
      case 1:
        EXPECT_EQ(zelk.GetChannelCount(), 60);
        break;
      case 2:
        zelk.OpenChannel(channel);
        break;
      case 3:
        Random(8) == 0 ? zelk.CloseChannel(channel) : void(zelk.OpenChannel(channel));
        break;
      case 4:
        zelk.GetLastError(channel);
        break;
      case 5:
        zelk.GetChannelInfo(channel, Random(0x30));
        break;
      case 6:
        zelk.GetChannelInfoString(channel, Random(0x30));
        break;
      case 7:
        zelk.SetChannelInfo(channel, static_cast<int32_t>(Random(0x30)), 1);
        break;
      default:
        zelk.SetChannelInfoString(channel, 1, "text");
        break;
    }
  }

  void UseCalls(uint32_t kind, int32_t channel) {
    switch (kind) {
      case 9:
        zelk.Reject(channel);
        break;
      case 10:
        zelk.Answer(channel);
        break;
      case 11:
        zelk.Hangup(channel);
        break;
      case 12:
        zelk.Dial(channel, "0401234", "0305678");
        break;
      case 13:
        EXPECT_FALSE(zelk.Transfer(channel));
        break;
      default:
        EXPECT_NE(zelk.DisconnectReasonToString(static_cast<int32_t>(Random(128))), nullptr);
        break;
    }
  }

  void UseSound(uint32_t kind, int32_t channel) {
    switch (kind) {
      case 15:
        zelk.PlayBuffer(channel, sound.data(), static_cast<uint32_t>(Random(3000)));
        break;
      case 16:
        zelk.PlayFile(channel, "/no/such/file.wav");
        break;
      case 17:
        zelk.PlayTimeLeft(channel);
        break;
      case 18:
        zelk.StopPlay(channel);
        break;
      case 19:
        EXPECT_EQ(zelk.ConvertRawToWaveFile("/no/such/file", 1), static_cast<uint32_t>(ZELK_ERROR_FILE_OPEN));
        break;
      case 20:
        zelk.SetEventCallback(OnEvent);
        break;
      case 21:
        zelk.SetPlayCallback(Random(2) == 0 ? OnAudio : nullptr);
        break;
      case 22:
        zelk.SetRecordCallback(Random(2) == 0 ? OnRecord : nullptr);
        break;
      default:
        std::this_thread::yield();
        break;
    }
  }

  static void ZELK_CALL OnEvent(int32_t, uint32_t, int32_t) {}
  static void ZELK_CALL OnAudio(uint32_t, uint8_t*, uint32_t) {}
  static void ZELK_CALL OnRecord(uint32_t, const uint8_t*, uint32_t) {}

  support::CZelkLibrary& zelk;
  uint32_t state;
  const std::vector<uint8_t> sound = std::vector<uint8_t>(3000, 0x55);
};

class EveryExportUsed : public Resilience {
 protected:
  // Lost by a reset and announced at once, or by silence and announced once the library has closed its end.
  void LoseAndAnnounce(size_t card) {
    const int connections = Card(card).Seen().Connections();
    if (card == 0) {
      Card(card).ResetControl();
    } else {
      Card(card).SetControlSilent(true);
      EXPECT_TRUE(Card(card).Seen().WaitConnected(false, kSlow)) << app->zelk.LogText();
      Card(card).SetControlSilent(false);
    }
    Card(card).Announce();
    EXPECT_TRUE(Card(card).Seen().WaitConnections(connections + 1, kSlow)) << app->zelk.LogText();
    EXPECT_TRUE(Card(card).WaitUp(kSlow)) << app->zelk.LogText();
    for (int timeslot : {1, 2, 17}) {
      Card(card).PlaceCall({.timeslot = timeslot});
    }
  }

  static void JoinAll(std::vector<std::thread>& threads) {
    for (std::thread& thread : threads) {
      thread.join();
    }
    threads.clear();
  }
};

TEST_F(EveryExportUsed, from_four_threads_while_cards_are_lost_and_reopened) {
  constexpr int kRounds = 3;
  ASSERT_NO_FATAL_FAILURE(Start({1, 1}, "[Debug]\nLevel=0\n[General]\nHdlcLog=1\nEchoCanceller=1\n"));
  std::atomic<bool> stop{false};
  std::vector<std::unique_ptr<CEveryExport>> users;
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < 4; ++i) {
    users.push_back(std::make_unique<CEveryExport>(app->zelk, i));
    threads.emplace_back([&stop, user = users.back().get()] { user->RunUntil(stop); });
  }
  for (int round = 1; round <= kRounds; ++round) {
    LoseAndAnnounce(0);
    LoseAndAnnounce(1);
  }
  stop = true;
  JoinAll(threads);
  for (const auto& user : users) {
    EXPECT_GT(user->calls, 24U);
  }
  // A shut-down is for one thread at a time to begin and harmless for the others.
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] { app->zelk.Shutdown(); });
  }
  JoinAll(threads);
  EXPECT_EQ(app->zelk.GetChannelCount(), 0);
}

}  // namespace
