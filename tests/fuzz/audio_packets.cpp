// SPDX-License-Identifier: GPL-2.0-only

// The audio packets of a card, with the pacer's passes between them. An input is the card's set-up and what happens:
//
//   trunks - 1 (3 bits), blocks (2 bits); then operations, a byte each with their arguments:
//     0 a datagram: length (2), that many bytes         1 the next packet: step (1), hint (1), length (2), fill (1)
//     2 a packet far off: sequence (4), hint (1)        3 a pass of the pacer
//     4 a position flushed (1)                          5 cancellers of a trunk made, its switch set (1)

#include <algorithm>
#include <array>

#include "fuzz/target.h"
#include "stream/audio_pacer.h"
#include "stream/audio_receiver.h"

namespace zelk::fuzz {
namespace {

constexpr size_t kMaxOperations = 64;
constexpr int kMaxCancellerSets = 2;

// The receive and the pacer thread's work in one thread, with the application and the network around it.
class CCardAudio : private IMediaHook, private IAudioNotice, private IPacketSink {
 public:
  CCardAudio(uint32_t cardTrunks, uint32_t blocks)
      : trunks(cardTrunks),
        sender(controls, *this, stop),
        receiver(controls, *this, echo, sender, stop),
        pacer(controls, rings) {
    Require(rings.Create(trunks, blocks) && sender.Create(rings) && receiver.Create(rings), "there is memory");
    rings.ResetDetectors(SDtmfSettings());
    controls.hook = this;
  }

  // In memory of the datagram's size, so that a read past its end is seen.
  void Arrive(Bytes datagram) { receiver.OnPacket(datagram.data(), datagram.size()); }

  void Packet(uint32_t sequence, uint8_t hint, size_t length, uint8_t fill) {
    Bytes packet(length);
    for (size_t i = kAudioHeaderBytes; i < length; ++i) {
      packet[i] = static_cast<uint8_t>(fill + i * (fill & 7U));
    }
    WriteAudioHeader(packet.data(), sequence);
    packet[6] = hint;
    lastSequence = sequence;
    Arrive(std::move(packet));
  }
  void Step(uint8_t step, uint8_t hint, size_t length, uint8_t fill) {
    Packet(lastSequence + static_cast<uint32_t>(static_cast<int8_t>(step)), hint,
           kMinAudioPacketBytes + length % (kMaxAudioPacketBytes - kMinAudioPacketBytes + 1), fill);
  }
  void Pass() { pacer.Pass(stop); }
  void Flush(uint8_t position) { controls.Flush(position); }
  void Echo(uint8_t choice) {
    if (cancellerSets < kMaxCancellerSets) {
      ++cancellerSets;
      echo.Configure(choice % kMaxTrunks, choice / 16);
    }
    controls.echoSwitch[choice % kMaxTrunks] = (choice & 8U) == 0;
  }

 private:
  void FillBlock(uint32_t trunk, uint32_t timeslot, SBlockFill& fill) override {
    RequirePosition(trunk, timeslot);
    std::fill_n(fill.data, kBlockBytes, static_cast<uint8_t>(fill.data[0] ^ timeslot));
    fill.KeepQueued();
  }
  bool EndsPlay(uint32_t trunk, uint32_t timeslot) override {
    RequirePosition(trunk, timeslot);
    return timeslot % 2 != 0;
  }
  void OnMarkSent(uint32_t trunk, uint32_t timeslot) override { RequirePosition(trunk, timeslot); }
  bool OnBlockReceived(uint32_t trunk, uint32_t timeslot, AudioBlock block) override {
    RequirePosition(trunk, timeslot);
    std::fill(block.begin(), block.end(), static_cast<uint8_t>(block[0] ^ timeslot));
    return true;
  }
  void OnDigit(uint32_t trunk, uint32_t timeslot, char digit) override {
    RequirePosition(trunk, timeslot);
    Require(std::string("0123456789ABCD*#").find(digit) != std::string::npos, "a digit is one of sixteen");
  }
  void RequirePosition(uint32_t trunk, uint32_t timeslot) const {
    Require(trunk < trunks && timeslot < kTimeslotsPerTrunk, "sound is that of a position of the card");
  }
  void OnAudioNotice(const char* text) override { Require(std::string(text).size() < kMaxNoticeChars, "a line ends"); }
  int SendPacket(const uint8_t* packet, size_t length) override {
    SAudioHeader header;
    Require(ReadAudioHeader(Bytes(packet, packet + length).data(), length, header), "a reply is an audio packet");
    Require(header.sequence == repliesSent++, "replies count up");
    return static_cast<int>(length);
  }
  void WaitToSend(int32_t) override {}

  const uint32_t trunks;
  uint32_t lastSequence = 0;
  uint32_t repliesSent = 0;
  int cancellerSets = 0;
  SAudioControls controls;
  CCardRings rings;
  CEchoBank echo;
  CStopFlag stop;
  CPacketSender sender;
  CAudioReceiver receiver;
  CAudioPacer pacer;
};

void Operate(CCardAudio& audio, CInput& input) {
  switch (input.Byte() % 6) {
    case 0:
      return audio.Arrive(input.Take(input.Number(2) % (kAudioBufferBytes + 1)));
    case 1: {
      const uint8_t step = input.Byte();
      const uint8_t hint = input.Byte();
      const size_t length = input.Number(2);
      return audio.Step(step, hint, length, input.Byte());
    }
    case 2: {
      const uint32_t sequence = input.Number(4);
      return audio.Packet(sequence, input.Byte(), kMinAudioPacketBytes, 0x55);
    }
    case 3:
      return audio.Pass();
    case 4:
      return audio.Flush(input.Byte());
    default:
      return audio.Echo(input.Byte());
  }
}

void Run(const uint8_t* bytes, size_t length) {
  static constexpr uint32_t kBlocks[] = {2, 0, 1, 4};
  CInput input(bytes, length);
  const uint8_t choice = input.Byte();
  CCardAudio audio(choice % kMaxTrunks + 1, kBlocks[choice / 8 % 4]);
  for (size_t i = 0; i < kMaxOperations && !input.IsEmpty(); ++i) {
    Operate(audio, input);
  }
}

Bytes Steps(const std::vector<uint8_t>& steps, uint8_t hint, uint16_t length) {
  Bytes all;
  for (size_t i = 0; i < steps.size(); ++i) {
    const auto fill = static_cast<uint8_t>(i * 37);
    all = Join({all, {1, steps[i], hint, static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8), fill}});
    if (i % 8 == 7) {
      all.push_back(3);
    }
  }
  return all;
}

Bytes Datagram(size_t length) {
  Bytes packet(length);
  WriteAudioHeader(packet.data(), 1);
  return Join({{0, static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8)}, packet});
}

std::vector<Bytes> Seeds() {
  const std::vector<uint8_t> inStep(40, 1);
  return {Join({{0x18}, Steps(inStep, 6, 576)}),
          Join({{0x07, 5, 0x20}, Steps(inStep, 4, 864)}),
          Join({{0x00}, Steps({1, 2, 0xFF, 2, 1, 3, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 9, 0)}),
          Join({{0x01, 5, 0x11, 5, 0x01}, Steps(inStep, 0, 100), {4, 7}, Steps(inStep, 255, 200)}),
          Join({{0x18}, Datagram(584), Datagram(1448), {2, 0xFE, 0xFF, 0xFF, 0xFF, 8}, Steps({1, 1, 1, 1}, 0, 1)}),
          Join({{0x08}, Datagram(583), Datagram(1449), Datagram(20)})};
}

const SRegistered kRegistered({"audio_packets", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz
