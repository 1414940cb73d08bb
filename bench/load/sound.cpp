// SPDX-License-Identifier: GPL-2.0-only
#include "load/sound.h"

#include <array>
#include <cstring>

#include "cardsim/audio/signals.h"
#include "load/numbered.h"

namespace load {

namespace {

constexpr uint8_t kSilence = 0xD5;
constexpr size_t kLoopFrames = 32000;  // 4 s, after which the voices begin again
constexpr size_t kStep = 7919;         // frames between one timeslot's voice and the next one's

class CIdleLines : public ILineSound {
 public:
  explicit CIdleLines(size_t packetBytes) : bytes(packetBytes) {}
  void Write(uint64_t, uint8_t* samples) override { std::memset(samples, kSilence, bytes); }

 private:
  const size_t bytes;
};

class CVoiceLines : public ILineSound {
 public:
  CVoiceLines(const std::vector<uint8_t>& loopRows, size_t bytes) : rows(loopRows), packetBytes(bytes) {}
  void Write(uint64_t packet, uint8_t* samples) override {
    std::memcpy(samples, &rows[packet * packetBytes % rows.size()], packetBytes);
  }

 private:
  const std::vector<uint8_t>& rows;
  const size_t packetBytes;
};

class CNumberedLines : public ILineSound {
 public:
  CNumberedLines(uint32_t trunks, uint16_t channel)
      : positions(trunks * kTimeslots), frames(FramesOf(trunks)), firstChannel(channel), blocks(positions) {
    for (auto& block : blocks) {
      block.fill(kSilence);
    }
  }

  void Write(uint64_t packet, uint8_t* samples) override {
    const size_t at = packet * frames % kBlockBytes;
    if (at == 0) {
      Renew(static_cast<uint32_t>(packet * frames / kBlockBytes));
    }
    for (size_t frame = 0; frame < frames; ++frame) {
      for (size_t position = 0; position < positions; ++position) {
        *samples++ = blocks[position][at + frame];
      }
    }
  }

 private:
  void Renew(uint32_t number) {
    for (size_t position = 0; position < positions; ++position) {
      const int channel = ChannelOf(position);
      if (channel >= 0) {
        WriteBlock({EDirection::kToLibrary, static_cast<uint16_t>(firstChannel + channel), number},
                   blocks[position].data());
      }
    }
  }

  const size_t positions;
  const size_t frames;
  const uint16_t firstChannel;
  std::vector<std::array<uint8_t, kBlockBytes>> blocks;
};

}  // namespace

size_t FramesOf(uint32_t trunks) {
  constexpr size_t kFrames[] = {40, 20, 10, 10, 8, 5, 5, 5};
  return kFrames[trunks - 1];
}

int ChannelOf(size_t position) {
  const auto timeslot = static_cast<int>(position % kTimeslots);
  if (timeslot % 16 == 0) {
    return -1;
  }
  return static_cast<int>(position / kTimeslots) * 30 + timeslot - (timeslot < 16 ? 1 : 2);
}

std::unique_ptr<ILineSound> MakeIdleLines(uint32_t trunks) {
  return std::make_unique<CIdleLines>(FramesOf(trunks) * trunks * kTimeslots);
}

CVoices::CVoices(uint32_t cardTrunks) : trunks(cardTrunks), rows(kLoopFrames * cardTrunks * kTimeslots) {
  const cardsim::Bytes voice = cardsim::RenderSpeech(-18, kLoopFrames / 8, 1);
  const size_t positions = trunks * kTimeslots;
  for (size_t frame = 0; frame < kLoopFrames; ++frame) {
    for (size_t position = 0; position < positions; ++position) {
      rows[frame * positions + position] = voice[(frame + position * kStep) % voice.size()];
    }
  }
}

std::unique_ptr<ILineSound> CVoices::Lines() const {
  return std::make_unique<CVoiceLines>(rows, FramesOf(trunks) * trunks * kTimeslots);
}

std::unique_ptr<ILineSound> MakeNumberedLines(uint32_t trunks, uint16_t firstChannel) {
  return std::make_unique<CNumberedLines>(trunks, firstChannel);
}

}  // namespace load
