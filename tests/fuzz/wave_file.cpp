// SPDX-License-Identifier: GPL-2.0-only

// A WAV file: the walk over its chunks, its loading, and its playing into a queue of each format. An input is a byte
// that chooses the queue's format and how chunks are searched, and the file.

#include "formats/wave_file.h"

#include <algorithm>
#include <cstring>

#include "formats/wave_header.h"
#include "fuzz/scratch_file.h"
#include "fuzz/target.h"
#include "platform/riff_walk.h"
#include "playback/file_player.h"
#include "runtime/e1.h"
#include "support/wav_bytes.h"

namespace zelk::fuzz {
namespace {

class COwner : public IWaveOwner {
 public:
  void SilenceTransmit() override {}
  int32_t LogChannel() const override { return 0; }
};

SWaveFormat QueueFormat(uint8_t choice) {
  static constexpr uint16_t kTags[] = {6, 7, 1, 1};
  SWaveFormat format;
  format.formatTag = kTags[choice % 4];
  format.bitsPerSample = choice % 4 == 3 ? 16 : 8;
  return format;
}

// Through the file chunk by chunk, as far as it goes.
void Walk(const char* path, size_t fileSize, uint32_t id) {
  CRiffWalk walk;
  Require(walk.Open(path), "a file can be opened");
  SRiffChunk parent;
  if (!walk.DescendRiff(FourCc("WAVE"), parent)) {
    return;
  }
  SRiffChunk chunk;
  uint32_t lastOffset = 0;
  for (size_t turns = 0; walk.DescendChunk(id, parent, chunk); ++turns) {
    Require(chunk.id == id, "the chunk is the one that was searched");
    Require(chunk.dataOffset > lastOffset && chunk.dataOffset <= fileSize, "the walk goes forward, inside the file");
    Require(turns <= fileSize, "the walk ends");
    lastOffset = chunk.dataOffset;
    const uint64_t left = walk.BytesLeft();
    uint8_t bytes[64];
    const size_t got = walk.Read(bytes, std::min<size_t>(sizeof bytes, chunk.size));
    Require(got <= left && walk.BytesLeft() == left - got, "a read gives what is there and moves on by it");
    Require(walk.Ascend(chunk), "a chunk can be left");
  }
}

void Load(const char* path, const Bytes& content) {
  CWaveFile file;
  if (!file.Load(path)) {
    Require(!file.ErrorText().empty(), "a failure says why");
    return;
  }
  bool outOfMemory = false;
  const std::unique_ptr<uint8_t[]> samples = file.ReadSamples(outOfMemory);
  Require(!outOfMemory, "a claimed size is no reason to run out of memory");
  if (!samples) {
    return;
  }
  Require(file.DataSize() <= content.size(), "no more samples than the file holds");
  const uint8_t* const first = samples.get();
  const bool isFound = std::search(content.begin(), content.end(), first, first + file.DataSize()) != content.end();
  Require(isFound || file.DataSize() == 0, "the samples are the file's");
}

void Play(const char* path, const SWaveFormat& format) {
  COwner owner;
  CWave wave(owner);
  wave.Open();
  wave.SetFormat(format);
  uint32_t error = 99;
  const bool isQueued = PlayFile(wave, path, error);
  Require(error == kErrorNone || error == kErrorFileOpen || error == kErrorFileRead || error == kErrorBadFormat,
          "a file is played, or cannot be opened or read, or has a format that is not played");
  Require(isQueued == (error == kErrorNone), "the code says whether it was queued");
  uint8_t block[kBlockBytes];
  for (int i = 0; i < 3 && isQueued; ++i) {
    wave.FillBlock(block, sizeof block);
    wave.QueryPlayMark();
  }
}

// What a recording becomes can be loaded, whatever it holds.
void Convert(const char* path, const Bytes& content, uint32_t type) {
  const uint32_t result = ConvertRawToWaveFile(path, type);
  Require(result == (type == 1 || type == 2 ? kErrorNone : kErrorBadFormat), "a recording is A-law or mu-law");
  CWaveFile file;
  const bool isLoaded = file.Load(path);
  if (result == kErrorNone && content.size() >= 44) {
    Require(isLoaded && file.DataSize() == content.size() - 44, "the header fits the recording");
  }
}

void Run(const uint8_t* bytes, size_t length) {
  static CScratchFile scratch(".wav");
  CInput input(bytes, length);
  const uint8_t choice = input.Byte();
  const Bytes content = input.Rest();
  const char* path = scratch.Write(content);
  static constexpr uint32_t kIds[] = {FourCc("fmt "), FourCc("data"), FourCc("LIST"), FourCc("RIFF")};
  Walk(path, content.size(), kIds[choice / 4 % 4]);
  Load(path, content);
  Play(path, QueueFormat(choice));
  Convert(path, content, choice / 16 % 4);
}

std::vector<Bytes> Seeds() {
  const Bytes samples(50, 0x35);
  const Bytes list = wav::Chunk("LIST", Text("INFOISFT"));
  const auto seed = [](uint8_t choice, const Bytes& file) { return Join({{choice}, file}); };
  return {seed(0x10, wav::File(6, 8, samples)),
          seed(0x27, wav::File(7, 8, samples)),
          seed(0x08, wav::File(1, 8, samples)),
          seed(0x01, wav::File(1, 16, samples)),
          seed(0x0B, wav::Riff({list, wav::Chunk("fmt ", Join({wav::Record(6, 8), {0, 0}})), list, list,
                                wav::Chunk("data", Bytes(7, 0x55))})),
          seed(0x00, wav::Riff({wav::Chunk("fmt ", wav::Record(6, 8)), wav::Chunk("data", samples, 0xFFFFFFFF)})),
          seed(0x00, wav::Riff({wav::Chunk("fmt ", wav::Record(6, 8), 0x7FFFFFFF), wav::Chunk("data", samples)})),
          seed(0x04, wav::Riff({wav::Chunk("fmt ", {6, 0, 1, 0}), wav::Chunk("data", {})}))};
}

const SRegistered kRegistered({"wave_file", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz
