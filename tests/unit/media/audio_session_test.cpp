#include "media/audio_session.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "audio_fakes.h"
#include "literal_audio.h"
#include "support/allocation_probe.h"

namespace zelk {
namespace {

class CQuietHook : public IMediaHook {
 public:
  void OnMedia(uint16_t, uint16_t, EMediaCode code, void* data, uint32_t length) override {
    if (code == MEDIA_PLAY)
      std::memset(data, 0xD5, length);
    if (code == MEDIA_RECORD)
      ++records;
  }
  int records = 0;
};

class CQuietLink : public IAudioLink {
 public:
  int SendPacket(const uint8_t*, size_t length) override {
    ++packets;
    return static_cast<int>(length);
  }
  void WaitToSend(int32_t) override {}
  int packets = 0;
};

// A second of a full card's audio with every stage on, after the first blocks have gone round.
TEST(AudioSession, NothingIsAllocatedOnTheWayOfAPacketOrABlock) {
  SAudioControls controls;
  CQuietHook hook;
  CQuietLink link;
  CFakeNotice notice;
  CCardRings rings;
  CEchoBank echo;
  CPacketSender sender(controls, link);
  CAudioReceiver receiver(controls, notice, echo, sender);
  CAudioPacer pacer(controls, rings);
  CStopFlag stop;
  ASSERT_TRUE(rings.Create(8, 4) && sender.Create(rings) && receiver.Create(rings));
  rings.ResetDetectors(SDtmfSettings());
  controls.hook = &hook;
  echo.Configure(0, 32);
  controls.echoSwitch[0] = true;
  Packet packet = literal::MakePacket(0, 5, 8 + 5 * 256);
  const auto carry = [&](uint32_t first, uint32_t count) {
    for (uint32_t sequence = first; sequence < first + count; ++sequence) {
      for (unsigned i = 0; i < 4; ++i)
        packet[2 + i] = static_cast<uint8_t>(sequence >> (8 * i));
      for (size_t i = 8; i < packet.size(); ++i)
        packet[i] = static_cast<uint8_t>(sequence * i);
      receiver.TakePacket(packet.data(), packet.size());
      if (sequence % 32 == 0)
        pacer.Pass(stop);
      if (sequence % 100 == 0)
        controls.Flush(sequence % 256);
    }
  };
  carry(1, 200);
  const uint64_t before = support::AllocationCount();
  carry(201, 1600);
  EXPECT_EQ(support::AllocationCount(), before);
  EXPECT_EQ(link.packets, 1800);
  EXPECT_GT(hook.records, 256 * 50);
  EXPECT_TRUE(notice.lines.empty());
}

TEST(AudioSession, WithoutASocketOrWithAWrongTrunkCountItIsNotCreated) {
  CFakeNotice notice;
  uint32_t local = 0;
  ASSERT_TRUE(ParseIpv4("127.0.0.1", local));
  uint32_t foreign = 0;
  ASSERT_TRUE(ParseIpv4("192.0.2.1", foreign));
  const auto create = [&](uint32_t address, uint32_t trunks) {
    return CAudioSession(std::make_shared<SAudioControls>(), notice).Create(address, local, trunks, 2, SDtmfSettings());
  };
  EXPECT_TRUE(create(local, 1));
  EXPECT_FALSE(create(foreign, 1));
  EXPECT_FALSE(create(local, 0));
  EXPECT_FALSE(create(local, 9));
}

}  // namespace
}  // namespace zelk
