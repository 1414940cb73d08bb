// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>
#include <sndfile.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>

#include "common/wire.h"
#include "trace/core/sound_track.h"
#include "trace/program/commands.h"
#include "trace/program/run.h"

namespace trace {
namespace {

constexpr std::size_t kFrameBytes = tool::kTimeslots;
constexpr std::uint64_t kMostMissing = 1'000'000;  // packets; more than half an hour

// Job: collects the sound of one call, from its first message to its end. Until it is answered it may get another
// timeslot, so the whole trunk is kept; from then on one timeslot alone.
class CCallSound : public ITraceSink {
 public:
  explicit CCallSound(std::uint64_t callNumber) : number(callNumber) {}

  void OnControl(const SConnection& connection, const SControl&) override {
    trunks[connection.card] = connection.trunks;
  }
  void OnCallBegins(const SCall& begun) override { Take(begun, true); }
  void OnCallMessage(const SCall& changed, const SSignal&) override {
    Take(changed, false);
    if (isRunning && !isNarrow && changed.number == number && changed.connected != 0 && changed.timeslot >= 0) {
      Narrow();
    }
  }
  void OnCallEnds(const SCall& ended) override {
    Take(ended, false);
    if (ended.number == number) {
      isRunning = false;
    }
  }
  void OnAudio(const SAudio& audio) override {
    if (!isRunning || audio.card != call->card || trunks[call->card] == 0) {
      return;
    }
    const bool isToLibrary = audio.direction == EDirection::kToLibrary;
    const std::int64_t place = (isToLibrary ? fromLine : toLine).Add(audio.sequence, SliceOf(audio.samples));
    if (isToLibrary) {
      lastFromLine = place;
    } else if (!offset && !fromLine.IsEmpty()) {
      offset = lastFromLine - place;  // a reply stands beside the packet that it answers
    }
  }

  // The call, narrowed to its timeslot; null when the capture has no such call, or its timeslot is not told.
  const SCall* Finish() {
    if (!call || call->timeslot < 0 || call->timeslot >= tool::kTimeslots) {
      return nullptr;
    }
    if (!isNarrow) {
      Narrow();
    }
    return &*call;
  }
  bool HasCall() const { return call.has_value(); }
  const CSoundTrack& FromLine() const { return fromLine; }
  const CSoundTrack& ToLine() const { return toLine; }

  // Both tracks beside each other, a code of each in turn.
  Bytes Stereo() const {
    const std::int64_t first = fromLine.First();
    const std::int64_t last = fromLine.Last();
    const std::int64_t shift = offset.value_or(0);
    const Bytes left = fromLine.Samples(first, last, packetBytes);
    const Bytes right = toLine.Samples(first - shift, last - shift, packetBytes);
    Bytes both;
    for (std::size_t i = 0; i < left.size(); ++i) {
      both.push_back(left[i]);
      both.push_back(i < right.size() ? right[i] : tool::kSilence);
    }
    return both;
  }

 private:
  void Take(const SCall& changed, bool isBegin) {
    if (changed.number == number) {
      isRunning = isRunning || isBegin;
      call = changed;
    }
  }

  // The samples of the call's trunk, or of its timeslot.
  Bytes SliceOf(ByteView samples) {
    const std::size_t step = static_cast<std::size_t>(trunks[call->card]) * kFrameBytes;
    Bytes slice;
    std::size_t at = static_cast<std::size_t>(call->trunk) * kFrameBytes;
    packetBytes = samples.size() / step;
    for (; at + kFrameBytes <= samples.size(); at += step) {
      const ByteView frame = samples.subspan(at, kFrameBytes);
      if (isNarrow) {
        slice.push_back(frame[static_cast<std::size_t>(call->timeslot)]);
      } else {
        slice.insert(slice.end(), frame.begin(), frame.end());
      }
    }
    return slice;
  }

  void Narrow() {
    isNarrow = call->timeslot < tool::kTimeslots;
    if (isNarrow) {
      fromLine.Narrow(kFrameBytes, static_cast<std::size_t>(call->timeslot));
      toLine.Narrow(kFrameBytes, static_cast<std::size_t>(call->timeslot));
    }
  }

  const std::uint64_t number;
  std::optional<SCall> call;
  std::map<std::uint32_t, int> trunks;  // by card
  CSoundTrack fromLine;
  CSoundTrack toLine;
  std::int64_t lastFromLine = 0;
  std::optional<std::int64_t> offset;  // from places of replies to places of packets
  std::size_t packetBytes = 0;         // of a timeslot
  bool isRunning = false;
  bool isNarrow = false;
};

void WriteStereo(const std::string& path, const Bytes& codes) {
  struct SClose {
    void operator()(SNDFILE* file) const { sf_close(file); }
  };
  SF_INFO info{};
  info.samplerate = tool::kSampleRate;
  info.channels = 2;
  info.format = SF_FORMAT_WAV | SF_FORMAT_ALAW;
  std::unique_ptr<SNDFILE, SClose> file(sf_open(path.c_str(), SFM_WRITE, &info));
  const auto count = static_cast<sf_count_t>(codes.size());
  if (file == nullptr || sf_write_raw(file.get(), codes.data(), count) != count || sf_close(file.release()) != 0) {
    throw CTraceError(EExit::kBadOutput, path + ": cannot be written");
  }
}

void TellMissing(const char* way, const CSoundTrack& track) {
  if (track.Missing() > 0) {
    fmt::print(stderr, "zelk-trace: {} packets of the sound {} the line are missing, silence stands for them\n",
               track.Missing(), way);
  }
}

}  // namespace

EExit RunAudio(const SAudioOptions& options) {
  CCallSound sound(options.call);
  const EExit result = Analyse(options.input, sound);
  const EExit failed = result == EExit::kBadInput ? result : EExit::kNothingFound;
  if (!sound.HasCall()) {
    throw CTraceError(failed, fmt::format("{}: has no call {}", options.input.file, options.call));
  }
  if (sound.Finish() == nullptr) {
    throw CTraceError(failed, fmt::format("{}: call {} never got a timeslot", options.input.file, options.call));
  }
  if (sound.FromLine().IsEmpty()) {
    throw CTraceError(failed, fmt::format("{}: has no sound of call {}", options.input.file, options.call));
  }
  if (sound.FromLine().Missing() > kMostMissing) {
    throw CTraceError(EExit::kBadInput, fmt::format("{}: the numbers of the audio packets of call {} make no sense",
                                                    options.input.file, options.call));
  }
  TellMissing("from", sound.FromLine());
  TellMissing("to", sound.ToLine());
  WriteStereo(options.output, sound.Stereo());
  return result;
}

}  // namespace trace
