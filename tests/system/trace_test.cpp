// SPDX-License-Identifier: GPL-2.0-only
#include <mutex>
#include <span>

#include "common/q931_decode.h"
#include "trace_fixture.h"

// zelk-trace on a capture of the real network between the library and the simulated cards.
namespace {

using cardsim::Bytes;
using cardsim::Call;
using cardsim::EDirection;

// Sends a pattern without end and keeps what was sent.
class CKeptSource : public cardsim::IAudioSource {
 public:
  std::size_t Read(std::span<std::uint8_t> out) override {
    const std::lock_guard guard(lock);
    for (std::uint8_t& sample : out) {
      sample = pattern[sent.size() % pattern.size()];
      sent.push_back(sample);
    }
    return out.size();
  }
  Bytes Sent() {
    const std::lock_guard guard(lock);
    return sent;
  }

 private:
  const Bytes pattern = cardsim::RenderTestPattern(80'000, 1);
  std::mutex lock;
  Bytes sent;
};

class Trace : public CCaptureTest {
 protected:
  // One side of a call's file against what the simulator kept of it. The file is of the time from the SETUP's packet to
  // the last message's, the simulator's record of the time in which the exchange had the call: they begin and end some
  // packets apart. `anchor` stands once in both; from there all that both have must be equal.
  static void ExpectSameSound(const Bytes& file, const Bytes& kept, const Bytes& anchor) {
    const long long inFile = cardsim::FindBytes(file, anchor);
    const long long inKept = cardsim::FindBytes(kept, anchor);
    ASSERT_GE(inFile, 0);
    ASSERT_GE(inKept, 0);
    const long long before = std::min(inFile, inKept);
    const long long after =
        std::min(static_cast<long long>(file.size()) - inFile, static_cast<long long>(kept.size()) - inKept);
    const Bytes common(file.begin() + (inFile - before), file.begin() + (inFile + after));
    const Bytes expected(kept.begin() + (inKept - before), kept.begin() + (inKept + after));
    const auto differs = std::mismatch(common.begin(), common.end(), expected.begin()).first;
    EXPECT_EQ(differs - common.begin(), static_cast<long long>(common.size())) << "the first sample that differs";
    EXPECT_GT(static_cast<double>(common.size()), 0.95 * static_cast<double>(std::max(file.size(), kept.size())));
  }
  // The codes of one side of a stereo A-law file.
  static Bytes SideOf(const std::string& path, size_t side) {
    const std::string text = TextOf(path);
    const size_t data = text.find("data");
    Bytes codes;
    for (size_t at = data + 8 + side; data != std::string::npos && at < text.size(); at += 2) {
      codes.push_back(static_cast<uint8_t>(text[at]));
    }
    return codes;
  }
  // TCP may say something twice on a loaded machine; that is all that may be remarked.
  void ExpectNothingMissing() const {
    for (const std::string& remark : Lines(TextOf(Path("errors")))) {
      EXPECT_NE(remark.find("TCP segments came"), std::string::npos) << remark;
    }
  }
  // Every UA is a response with F, sent by a side that has this name or by the other one.
  static void ExpectRoles(const std::string& summary, const std::string& library) {
    EXPECT_NE(summary.find(library), std::string::npos) << summary;
    EXPECT_NE(summary.find("U F, func=UA"), std::string::npos) << summary;
    EXPECT_EQ(summary.find("U P, func=UA"), std::string::npos) << summary;
  }
};

TEST_F(Trace, tells_the_calls_that_the_exchange_had) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({2}));
  std::vector<Call> calls;
  for (int i = 0; i < 6; ++i) {
    const int timeslot = i + 1;
    const int32_t channel = ChannelOf(i % 2, timeslot);
    calls.push_back(i % 3 == 2 ? Offer(timeslot, i % 2) : ConnectIncoming(timeslot, i % 2));
    if (i % 3 == 0) {
      calls.back()->Hangup(17 + i);
    } else if (i % 3 == 1) {
      app->zelk.Hangup(channel);
    } else {
      app->zelk.Reject(channel);
    }
    ASSERT_TRUE(calls.back()->WaitEnded(kSoon));
  }
  calls.push_back(ConnectOutgoing(10));
  app->zelk.Hangup(10);
  ASSERT_TRUE(calls.back()->WaitEnded(kSoon));
  FinishCapture(calls.size());

  Names expected;
  std::transform(calls.begin(), calls.end(), std::back_inserter(expected),
                 [](const Call& call) { return CallText(cardsim::RecordOf(*call)); });
  EXPECT_EQ(CallTexts(), expected);
  ExpectNothingMissing();
  EXPECT_EQ(Lines(TraceOf("calls --number '040*' " + Capture())).size(), 1U);
  EXPECT_EQ(Lines(TraceOf("calls --cause 21 " + Capture())).size(), 2U);
  TraceOf("calls --cause 99 " + Capture(), 1);
}

TEST_F(Trace, export_is_the_same_signalling_to_tshark) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({2}));
  for (int trunk = 0; trunk < 2; ++trunk) {
    const Call call = ConnectIncoming(3, trunk);
    call->Hangup(31);
    ASSERT_TRUE(call->WaitEnded(kSoon));
  }
  FinishCapture(2);
  TraceOf("export " + Capture() + " -o " + Path("d.pcapng"));
  const std::string tshark = "tshark -r " + Path("d.pcapng");
  Names told[2];
  for (const std::string& line :
       Lines(Run(tshark + " -Y q931 -T fields -E separator=' ' -e frame.interface_name -e frame.p2p_dir "
                          "-e q931.call_ref -e q931.call_ref_flag -e q931.message_type -e q931.cause_value"))) {
    told[line.at(line.find('-') + 1) - '1'].push_back(line.substr(line.find(' ') + 1));
  }
  Names expected[2];
  for (const cardsim::SFrameRecord& frame : Card().Seen().Frames()) {
    const tool::SQ931Message message = frame.Decode().message;
    if (message.valid) {
      char head[64];
      std::snprintf(head, sizeof head, "%d %04x %d 0x%02x", frame.direction == EDirection::kToLibrary ? 1 : 0,
                    static_cast<unsigned>(message.callReference), message.fromDestination ? 1 : 0,
                    unsigned{message.type});
      expected[frame.trunk].push_back(head + (" " + (message.Cause() < 0 ? "" : std::to_string(message.Cause()))));
    }
  }
  EXPECT_EQ(told[0], expected[0]);
  EXPECT_EQ(told[1], expected[1]);
  EXPECT_EQ(Lines(Run(tshark + " -Y '_ws.malformed'")), Names());
  ExpectRoles(Run(tshark), "Local User");
  TraceOf("export --anonymise " + Capture() + " -o " + Path("a.pcapng"));
  EXPECT_EQ(Lines(Run("tshark -r " + Path("a.pcapng") +
                      " -Y 'q931.message_type==5' -T fields -e q931.called_party_number.digits")),
            (Names{"001", "001"}));
}

TEST_F(Trace, export_tells_a_library_that_is_the_network) {
  ASSERT_NO_FATAL_FAILURE(StartCapture());
  ASSERT_NO_FATAL_FAILURE(StartAsNetwork(1));
  const Call call = ConnectIncoming(3);
  call->Hangup(16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  FinishCapture(1);
  TraceOf("export " + Capture() + " -o " + Path("d.pcapng"));
  ExpectRoles(Run("tshark -r " + Path("d.pcapng")), "Local Network");
}

TEST_F(Trace, the_dissector_shows_the_same_signalling_on_the_plain_capture) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({2}));
  for (int trunk = 0; trunk < 2; ++trunk) {
    const Call call = ConnectIncoming(3, trunk);
    call->Hangup(31);
    ASSERT_TRUE(call->WaitEnded(kSoon));
  }
  FinishCapture(2);
  const std::string tshark = "tshark -X lua_script:" ZELK_WIRESHARK_PATH "/zelk.lua -r " + Capture();
  for (const EDirection direction : {EDirection::kToLibrary, EDirection::kFromLibrary}) {
    const bool isToLibrary = direction == EDirection::kToLibrary;
    // A segment may carry several messages, with a comma between them.
    std::string told = Run(tshark + " -Y 'q931 && tcp." + (isToLibrary ? "src" : "dst") +
                           "port == 5854' -T fields -e q931.message_type");
    std::replace(told.begin(), told.end(), ',', '\n');
    Names expected;
    for (const cardsim::SFrameRecord& frame : Card().Seen().Frames()) {
      const tool::SQ931Message message = frame.Decode().message;
      if (message.valid && frame.direction == direction) {
        char type[8];
        std::snprintf(type, sizeof type, "0x%02x", unsigned{message.type});
        expected.push_back(type);
      }
    }
    EXPECT_EQ(Lines(told), expected);
  }
  EXPECT_EQ(Lines(Run(tshark + " -Y '_ws.malformed || zelk.skipped || _ws.lua.error'")), Names());
  EXPECT_FALSE(Lines(Run(tshark + " -Y 'zelkaudio.reply_time > 0'")).empty());
}

TEST_F(Trace, board_shows_what_stands_on_every_channel) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({2}));
  const Call connected = ConnectIncoming(3, 1);
  const Call ringing = Offer(20, 1);
  const Call ended = ConnectIncoming(5, 0);
  ended->Hangup(17);
  ASSERT_TRUE(ended->WaitEnded(kSoon));
  FinishCapture(1);
  const std::string board = TraceOf("board --once " + Capture());
  EXPECT_NE(board.find("  ..............................\n"), std::string::npos) << board;
  EXPECT_NE(board.find("  ..C...............i...........\n"), std::string::npos) << board;
  const std::string json = TraceOf("board --json " + Capture());
  EXPECT_NE(json.find("\"17\": 1"), std::string::npos) << json;
  const std::string metrics = TraceOf("board --metrics " + Capture());
  EXPECT_NE(metrics.find("\nzelk_trunk_channels_connected{card=\"100001\",trunk=\"2\"} 1\n"), std::string::npos)
      << metrics;
}

TEST_F(Trace, audio_is_what_both_ends_sent_sample_for_sample) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({1}));
  const Bytes sound = cardsim::RenderTestPattern(8000, 1);
  const Call call = ConnectIncoming(4);
  const int32_t channel = ChannelOf(0, 4);
  const Bytes played = cardsim::RenderTestPattern(4000, 2);
  call->Play(cardsim::MakeBytesSource(sound));
  ASSERT_TRUE(app->zelk.PlayBuffer(channel, played.data(), static_cast<uint32_t>(played.size())));
  ASSERT_TRUE(call->Heard()->WaitContains(played, kSlow));
  ASSERT_TRUE(call->WaitPlayed(kSlow));
  call->Hangup(16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  const Bytes recorded = call->Recorded();
  FinishCapture(1);

  TraceOf("audio --call 1 -o " + Path("call.wav") + " " + Capture());
  const Bytes left = SideOf(Path("call.wav"), 0);
  const Bytes right = SideOf(Path("call.wav"), 1);
  EXPECT_GE(cardsim::FindBytes(left, sound), 0);
  EXPECT_GE(cardsim::FindBytes(right, recorded), 0);
  EXPECT_EQ(left.size(), right.size());
  EXPECT_NE(TraceOf("ladder --call 1 " + Capture()).find("-- SETUP --"), std::string::npos);
  TraceOf("audio --call 2 -o " + Path("none.wav") + " " + Capture(), 1);
}

// Both directions of a call, all of it that both have.
TEST_F(Trace, audio_is_the_recordings_of_the_simulator_sample_for_sample) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({1}));
  Card().Audio().SetWaitForReplies(true);
  const auto source = std::make_shared<CKeptSource>();
  cardsim::SCallRequest request{.timeslot = 4};
  request.farEnd.play = source;
  request.farEnd.playFrom = request.farEnd.recordFrom = cardsim::EAudioFrom::kSetup;
  const int32_t channel = ChannelOf(0, 4);
  const Bytes played = cardsim::RenderTestPattern(40'000, 2);
  const Call call = Card().PlaceCall(request);
  ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_INCOMING_CALL, kSoon));
  ASSERT_TRUE(app->zelk.Answer(channel));
  ASSERT_TRUE(call->WaitState(cardsim::ESimCallState::kConnected, kSoon));
  ASSERT_TRUE(app->zelk.PlayBuffer(channel, played.data(), static_cast<uint32_t>(played.size())));
  ASSERT_TRUE(call->Heard()->WaitContains(played, kSlow));
  call->Hangup(16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  FinishCapture(1);

  TraceOf("audio --call 1 -o " + Path("call.wav") + " " + Capture());
  EXPECT_EQ(TextOf(Path("errors")).find("silence stands for"), std::string::npos) << TextOf(Path("errors"));
  const Bytes sent = source->Sent();
  {
    SCOPED_TRACE("from the line");
    ExpectSameSound(SideOf(Path("call.wav"), 0), sent, Bytes(sent.begin() + 8000, sent.begin() + 8800));
  }
  {
    SCOPED_TRACE("to the line");
    ExpectSameSound(SideOf(Path("call.wav"), 1), call->Recorded(), Bytes(played.begin(), played.begin() + 800));
  }
}

}  // namespace
