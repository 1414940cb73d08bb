// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dsp/echo_canceller.h"
#include "formats/g711.h"

// The flow of audio in its plainest form: one byte at a time, one channel after the other, every rule where the packet
// meets it. Written apart from the library's and shares nothing with it but the echo canceller and G.711; the tests
// compare the two event by event.
namespace literal {

using Packet = std::vector<uint8_t>;

inline Packet MakePacket(uint32_t sequence, uint8_t hint, size_t length) {
  Packet packet(length);
  packet[0] = 0xFF;
  packet[1] = 0x55;
  for (unsigned i = 0; i < 4; ++i)
    packet[2 + i] = static_cast<uint8_t>(sequence >> (8 * i));
  packet[6] = hint;
  return packet;
}

inline uint32_t SequenceOf(const Packet& packet) {
  return static_cast<uint32_t>(packet[2]) | static_cast<uint32_t>(packet[3]) << 8 |
         static_cast<uint32_t>(packet[4]) << 16 | static_cast<uint32_t>(packet[5]) << 24;
}

// The order of packets.
class CSequence {
 public:
  std::function<void(const Packet&)> send;
  std::function<void(const Packet&)> process;
  std::function<void(const std::string&)> log;

  void Arrive(const Packet& arrived) {
    Packet packet = arrived;
    for (;;) {
      Turn(packet);
      if (!heldDue)
        return;
      heldDue = false;
      packet = *held;
      held.reset();
    }
  }

 private:
  void Turn(const Packet& packet) {
    const uint32_t s = SequenceOf(packet);
    const uint32_t e = last + 1U;
    const uint32_t afterE = e + 1U;
    if (held && s == e)
      heldDue = true;
    else
      held.reset();
    if (s == e && !first) {
      send(packet);
      Processed(packet, s);
    } else if (s == e) {
      Resync(packet, s);
    } else if (s == afterE) {
      held = packet;
    } else if (s > afterE) {
      log("Packet loss?, so sequence reset, expected " + std::to_string(e) + " got " + std::to_string(s) +
          ", processed.");
      Resync(packet, s);
    } else {
      log("Old/Duplicate Packet -> " + std::to_string(s) + ", ignored.");
      if (++old == 10) {
        log("Too many Old/Duplicate Packets, so sequence reset to " + std::to_string(s) + ", processed.");
        Resync(packet, s);
      }
    }
  }

  void Resync(const Packet& packet, uint32_t s) {
    if (packet[6] >= 5)
      for (int i = 0; i < packet[6] - 4; ++i)
        send(packet);
    first = false;
    Processed(packet, s);
  }

  void Processed(const Packet& packet, uint32_t s) {
    last = s;
    old = 0;
    process(packet);
  }

  uint32_t last = 0;
  bool first = true;
  int old = 0;
  std::optional<Packet> held;
  bool heldDue = false;
};

struct CBlock {
  std::array<uint8_t, 160> bytes{};
};

// A card's audio after the sequence rules, driven by hand: Arrive for a packet, Pass for a pacer pass.
class CCard {
 public:
  // What the application side does; the events are for the test to keep.
  std::function<void(unsigned position, uint8_t* block)> play;
  std::function<bool(unsigned position)> queryMark;
  std::function<void(const std::string&)> event;
  std::function<void(const Packet&)> sent;

  CCard(unsigned trunkCount, unsigned blocks) : trunks(trunkCount), channels(trunkCount * 32) {
    for (Channel& channel : channels) {
      for (unsigned i = 0; i < blocks; ++i) {
        channel.own.push_back(std::make_unique<CBlock>());
        channel.transmitFree.push_back(channel.own.back().get());
        channel.own.push_back(std::make_unique<CBlock>());
        channel.receiveFree.push_back(channel.own.back().get());
      }
      channel.transmitBlock = &idle;
      channel.receiveBlock = &channel.scratch;
    }
    idle.bytes.fill(0x54);
    sequence.send = [this](const Packet& packet) { Send(packet.size()); };
    sequence.process = [this](const Packet& packet) { Process(packet); };
    sequence.log = [this](const std::string& text) { event("log " + text); };
  }

  void Arrive(const Packet& packet) { sequence.Arrive(packet); }

  void Pass() {
    for (unsigned c = 0; c < channels.size(); ++c) {
      Channel& channel = channels[c];
      while (!channel.transmitFree.empty()) {
        CBlock* block = channel.transmitFree.front();
        channel.transmitFree.pop_front();
        channel.underFill = block;
        play(c, block->bytes.data());
        channel.underFill = nullptr;
        channel.transmitReady.push_back({block, queryMark(c)});
      }
      while (!channel.receiveReady.empty()) {
        CBlock* block = channel.receiveReady.front();
        channel.receiveReady.pop_front();
        event("record " + std::to_string(c) + " " + std::string(block->bytes.begin(), block->bytes.end()));
        channel.receiveFree.push_back(block);
      }
    }
  }

  // Everything that the channel's transmit blocks hold becomes the idle byte, wherever they are.
  void Flush(unsigned position) {
    Channel& channel = channels[position];
    for (CBlock* block : channel.transmitFree)
      block->bytes.fill(0x54);
    for (const Ready& ready : channel.transmitReady)
      ready.block->bytes.fill(0x54);
    if (channel.transmitBlock != &idle)
      channel.transmitBlock->bytes.fill(0x54);
    if (channel.underFill != nullptr)
      channel.underFill->bytes.fill(0x54);
  }

  void EchoOn(unsigned trunk, int tailMs) {
    for (unsigned s = 0; s < 32; ++s)
      channels[trunk * 32 + s].echo = zelk::CEchoCanceller::Create(tailMs);
  }
  void EchoSwitch(unsigned trunk, bool on) { echoSwitch[trunk] = on; }

 private:
  struct Ready {
    CBlock* block;
    bool mark;
  };
  struct Channel {
    std::vector<std::unique_ptr<CBlock>> own;
    std::deque<CBlock*> transmitFree;
    std::deque<Ready> transmitReady;
    std::deque<CBlock*> receiveFree;
    std::deque<CBlock*> receiveReady;
    CBlock scratch;
    CBlock* underFill = nullptr;  // in the application's hands
    CBlock* transmitBlock = nullptr;
    unsigned transmitAt = 0;
    CBlock* receiveBlock = nullptr;
    unsigned receiveAt = 0;
    std::unique_ptr<zelk::CEchoCanceller> echo;
  };

  void Send(size_t length) {
    transmit.assign(length, 0);
    transmit[0] = 0xFF;
    transmit[1] = 0x55;
    for (unsigned i = 0; i < 4; ++i)
      transmit[2 + i] = static_cast<uint8_t>(counter >> (8 * i));
    ++counter;
    const size_t frames = (length - 8) / trunks / 32;
    for (unsigned t = 0; t < trunks; ++t)
      for (unsigned s = 0; s < 32; ++s)
        for (size_t f = 0; f < frames; ++f) {
          Channel& channel = channels[t * 32 + s];
          if (channel.transmitAt >= 160)
            NextTransmitBlock(channel, t * 32 + s);
          transmit[8 + f * trunks * 32 + t * 32 + s] = channel.transmitBlock->bytes[channel.transmitAt++];
        }
    sent(transmit);
    if (sentPackets.size() < 256)
      sentPackets.push_back(transmit);
  }

  void NextTransmitBlock(Channel& channel, unsigned position) {
    if (channel.transmitBlock != &idle)
      channel.transmitFree.push_back(channel.transmitBlock);
    channel.transmitBlock = &idle;
    if (!channel.transmitReady.empty()) {
      const Ready ready = channel.transmitReady.front();
      channel.transmitReady.pop_front();
      if (ready.mark)
        event("mark " + std::to_string(position));
      channel.transmitBlock = ready.block;
    }
    channel.transmitAt = 0;
  }

  void Process(const Packet& packet) {
    Packet reference = transmit;
    if (!sentPackets.empty()) {
      reference = sentPackets.front();
      sentPackets.pop_front();
    }
    const size_t frames = (packet.size() - 8) / trunks / 32;
    for (unsigned t = 0; t < trunks; ++t)
      for (unsigned s = 0; s < 32; ++s)
        for (size_t f = 0; f < frames; ++f) {
          Channel& channel = channels[t * 32 + s];
          if (channel.receiveAt >= 160) {
            if (channel.receiveBlock != &channel.scratch)
              channel.receiveReady.push_back(channel.receiveBlock);
            channel.receiveBlock = &channel.scratch;
            if (!channel.receiveFree.empty()) {
              channel.receiveBlock = channel.receiveFree.front();
              channel.receiveFree.pop_front();
            }
            channel.receiveAt = 0;
          }
          const size_t at = 8 + f * trunks * 32 + t * 32 + s;
          uint8_t byte = packet[at];
          if (echoSwitch[t]) {
            const uint8_t sentByte = at < reference.size() ? reference[at] : 0x54;
            byte = zelk::LinearToALaw(channel.echo->Update(zelk::ALawToLinear(sentByte), zelk::ALawToLinear(byte)));
          }
          channel.receiveBlock->bytes[channel.receiveAt++] = byte;
        }
  }

  unsigned trunks;
  std::vector<Channel> channels;
  CBlock idle;
  CSequence sequence;
  Packet transmit;
  uint32_t counter = 0;
  std::deque<Packet> sentPackets;
  std::array<bool, 8> echoSwitch{};
};

}  // namespace literal
