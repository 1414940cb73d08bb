// SPDX-License-Identifier: GPL-2.0-only
#include "stream/audio_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <utility>

#include "audio_fakes.h"
#include "literal_audio.h"
#include "native_buffer_limit.h"
#include "runtime/log.h"
#include "runtime/status_page.h"
#include "support/addresses.h"
#include "support/allocation_probe.h"
#include "support/temp_dir.h"

namespace zelk {
namespace {

class CQuietHook : public CIdleHook {
 public:
  bool OnBlockReceived(uint32_t, uint32_t, AudioBlock) override { return ++records == 0; }
  int records = 0;
};

class CQuietSink : public IPacketSink {
 public:
  int SendPacket(const uint8_t*, size_t length) override {
    ++packets;
    return static_cast<int>(length);
  }
  void WaitToSend(int32_t) override {}
  int packets = 0;
};

// A full card's audio with every stage on, and the pacer after every so many packets: 32 of them have a block.
class CAudioRounds {
 public:
  explicit CAudioRounds(uint32_t packetsAPass) : apart(packetsAPass) {
    EXPECT_TRUE(rings.Create(8, 4) && sender.Create(rings) && receiver.Create(rings));
    rings.ResetDetectors(SDtmfSettings());
    controls.hook = &hook;
    echo.Configure(0, 32);
    controls.echoSwitch[0] = true;
  }

  void Carry(uint32_t first, uint32_t count) {
    for (uint32_t sequence = first; sequence < first + count; ++sequence) {
      for (unsigned i = 0; i < 4; ++i)
        packet[2 + i] = static_cast<uint8_t>(sequence >> (8 * i));
      for (size_t i = 8; i < packet.size(); ++i)
        packet[i] = static_cast<uint8_t>(sequence * i);
      receiver.OnPacket(packet.data(), packet.size());
      if (sequence % apart == 0)
        pacer.Pass(stop);
      if (sequence % 100 == 0)
        controls.Flush(sequence % 256);
    }
  }

  CQuietHook hook;
  CQuietSink sink;
  CFakeNotice notice;

 private:
  const uint32_t apart;
  SAudioControls controls;
  CCardRings rings;
  CEchoBank echo;
  CStopFlag stop;
  CPacketSender sender{controls, sink, stop};
  CAudioReceiver receiver{controls, notice, echo, sender, stop};
  CAudioPacer pacer{controls, rings};
  Packet packet = literal::MakePacket(0, 5, 8 + 5 * 256);
};

// After the first blocks have gone round.
TEST(AudioSession, NothingIsAllocatedOnTheWayOfAPacketOrABlock) {
  CAudioRounds audio(32);
  audio.Carry(1, 200);
  const uint64_t before = support::AllocationCount();
  audio.Carry(201, 1600);
  EXPECT_EQ(support::AllocationCount(), before);
  EXPECT_EQ(audio.sink.packets, 1800);
  EXPECT_GT(audio.hook.records, 256 * 50);
  EXPECT_TRUE(audio.notice.lines.empty());
}

// Nor where the status page is kept, and blocks are lost for it to count.
TEST(AudioSession, NothingIsAllocatedForTheStatusPage) {
  const CTempDir folder;
  StatusPage().Open(folder.Path("z.status"));
  ASSERT_NE(StatusPage().Get(), nullptr);
  {
    CAudioRounds audio(256);
    audio.Carry(1, 200);
    const uint64_t before = support::AllocationCount();
    audio.Carry(201, 1600);
    EXPECT_EQ(support::AllocationCount(), before);
  }
  EXPECT_GT(StatusPage().Position(0, 9)->lostReceived, 0U);
  EXPECT_GT(StatusPage().Position(0, 9)->lostSent, 0U);
  StatusPage().Leave();
}

// Opens the audio of a card some times with the process's log going to a file of its own, which it gives.
class AudioSessionBuffers : public testing::Test {
 protected:
  ~AudioSessionBuffers() override { bufferLimit.limit = 0; }

  void Open(uint32_t times) {
    // Lines of before go to the file, and the file goes.
    Log().Start(path);
    Log().Stop();
    std::filesystem::remove(path);
    Log().Start(path);
    for (uint32_t i = 0; i < times; ++i) {
      CAudioSession session(controls, notice);
      ASSERT_TRUE(session.Create(local, local, 1, 2, SDtmfSettings()));
      receiveBuffer = session.ReceiveBuffer();
      sendBuffer = session.SendBuffer();
    }
    Log().Stop();
    std::ifstream file(path, std::ios::binary);
    log.assign(std::istreambuf_iterator<char>(file), {});
    file.close();
    std::filesystem::remove(path);
  }
  // What the system grants of 4 MB.
  static std::pair<int, int> Granted() {
    CSocket socket;
    EXPECT_TRUE(socket.OpenUdp() && socket.SetReceiveBuffer(4194304) && socket.SetSendBuffer(4194304));
    return {socket.ReceiveBuffer(), socket.SendBuffer()};
  }
  static std::string Line(const char* which, int granted, const char* limit) {
    return std::string("  G :Audio socket ") + which + " buffer of " + std::to_string(granted) +
           " bytes, 4194304 wanted, see " + limit + "\r\n";
  }

  const std::string path = testing::TempDir() + "buffers_" + std::to_string(std::random_device{}()) + ".log";
  std::shared_ptr<SAudioControls> controls = std::make_shared<SAudioControls>();
  CFakeNotice notice;
  const SIpv4Address local = Address("127.0.0.1");
  int receiveBuffer = 0;
  int sendBuffer = 0;
  std::string log;
};

TEST_F(AudioSessionBuffers, AreAskedForWith4Megabytes) {
  Open(1);
  if (kBufferLimitWorks) {
    EXPECT_EQ(bufferLimit.receiveAsked, 4194304);
    EXPECT_EQ(bufferLimit.sendAsked, 4194304);
  }
  EXPECT_EQ(std::pair(receiveBuffer, sendBuffer), Granted());
  EXPECT_GT(receiveBuffer, 0);
  EXPECT_EQ(log.empty(), receiveBuffer == 4194304 && sendBuffer == 4194304) << log;
}

TEST_F(AudioSessionBuffers, OfLessThanWasAskedForAreOneLineEachForACard) {
  if (!kBufferLimitWorks)
    GTEST_SKIP() << "this system has no limit of socket buffers";
  bufferLimit.limit = 212992;
  Open(3);
  EXPECT_EQ(receiveBuffer, 212992);
  EXPECT_EQ(sendBuffer, 212992);
  EXPECT_NE(log.find(Line("receive", 212992, "net.core.rmem_max")), std::string::npos) << log;
  EXPECT_NE(log.find(Line("send", 212992, "net.core.wmem_max")), std::string::npos) << log;
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << log;
}

TEST(AudioSession, WithoutASocketOrWithAWrongTrunkCountItIsNotCreated) {
  CFakeNotice notice;
  const SIpv4Address local = Address("127.0.0.1");
  const SIpv4Address foreign = Address("192.0.2.1");
  const auto create = [&](SIpv4Address address, uint32_t trunks) {
    return CAudioSession(std::make_shared<SAudioControls>(), notice).Create(address, local, trunks, 2, SDtmfSettings());
  };
  EXPECT_TRUE(create(local, 1));
  EXPECT_FALSE(create(foreign, 1));
  EXPECT_FALSE(create(local, 0));
  EXPECT_FALSE(create(local, 9));
}

TEST(AudioSession, EachHasAPortThatTheSystemChose) {
  CFakeNotice notice;
  const SIpv4Address local = Address("127.0.0.1");
  CAudioSession first(std::make_shared<SAudioControls>(), notice);
  CAudioSession second(std::make_shared<SAudioControls>(), notice);
  ASSERT_TRUE(first.Create(local, local, 1, 2, SDtmfSettings()));
  ASSERT_TRUE(second.Create(local, local, 1, 2, SDtmfSettings()));
  EXPECT_GE(first.LocalPort(), 1024);
  EXPECT_NE(first.LocalPort(), second.LocalPort());
}

}  // namespace
}  // namespace zelk
