// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/mutex.h"
#include "runtime/q931_types.h"

namespace zelk {

// What a missing key of section "Dtmf" counts as: texts, as in the file, with one decimal place.
constexpr std::string_view kDefaultNormalTwist = "7.0";
constexpr std::string_view kDefaultReverseTwist = "7.0";
constexpr std::string_view kDefaultRowPeak = "6.3";
constexpr std::string_view kDefaultColumnPeak = "6.3";
constexpr std::string_view kDefaultTotalEnergy = "40.0";

// The value of such a text. Both numbers of the quotient are exact, so it is rounded as a literal is.
constexpr float ValueOf(std::string_view text) {
  int tenths = 0;
  for (const char digit : text) {
    tenths = digit == '.' ? tenths : tenths * 10 + (digit - '0');
  }
  return static_cast<float>(tenths) / 10.0F;
}

// Thresholds of the digit detector, as ratios of energies. Twist and peaks of 7.0 and 6.3 are 8.5 and 8.0 dB: with what
// each tone leaks into the other's filter all twists of 6 dB are heard and none of 10 dB (the administrations of ITU-T
// Q.24 want 4 to 10 dB). Two tones and nothing else have a total of at most half the block's 102 samples, so 40 of 51
// asks for four fifths of the block's energy to be theirs.
struct SDtmfSettings {
  float normalTwist = ValueOf(kDefaultNormalTwist);    // how far the row's tone may be above the column's
  float reverseTwist = ValueOf(kDefaultReverseTwist);  // how far the column's may be above the row's
  float rowPeak = ValueOf(kDefaultRowPeak);            // how far the row's tone must be above the other rows
  float columnPeak = ValueOf(kDefaultColumnPeak);      // the same of the column
  float totalEnergy = ValueOf(kDefaultTotalEnergy);    // both tones' energies over the block's
};
static_assert(SDtmfSettings().normalTwist == 7.0F && SDtmfSettings().rowPeak == 6.3F);

// Those of a detector that was given none, which no card's detector is.
constexpr SDtmfSettings kUnsetDtmf{6.3F, 2.5F, 6.3F, 6.3F, 42.0F};

// What one trunk's section says, each missing key taken from the general values.
struct STrunkSettings {
  bool hdlcLog = false;
  bool hangupOnAlerting = false;
  int32_t numberType = kNationalIsdnNumber;
  int32_t clientType = kUserSide;  // as written in the file, before the special values are mapped
  int32_t switchType = kEuroIsdnE1;
  int32_t echoTailMs = 32;
  bool echoCanceller = false;
};

constexpr int32_t kMinEchoTailMs = 32;
constexpr int32_t kMaxEchoTailMs = 1024;

// The values of the ini file beside the library: the general ones read at every ZELK_Init, the trunks' at every card
// open. One instance a process (Config()).
// Thread: Read by the initialising thread; everything else by any (values are single atomics: a reader during a second
// ZELK_Init sees old or new values key by key). Reads of the file block on the disk.
// Nothing fails: what is missing or malformed gives the default, a malformed integer 0.
class CConfig {
 public:
  // Reads the general values from the file, in the documented order. A missing file gives the defaults.
  void Read(const std::string& iniPath);

  std::atomic<int32_t> level{2};
  std::atomic<bool> flushImmediate{false};
  std::atomic<bool> statusPage{false};
  std::atomic<int32_t> audioBuffers{32};
  std::atomic<bool> hangupOnAlerting{false};
  std::atomic<int32_t> numberType{kNationalIsdnNumber};
  std::atomic<int32_t> clientType{kUserSide};
  std::atomic<int32_t> switchType{kEuroIsdnE1};
  std::atomic<bool> echoCanceller{false};
  std::atomic<int32_t> echoTailMs{32};
  std::atomic<bool> hdlcLog{false};
  std::atomic<int32_t> crc4{0};
  std::atomic<int32_t> clearedCallTimeoutS{5};  // 0 and below: never

  SDtmfSettings Dtmf() const;
  // "AudioBuffers" within what a card can hold: below 0 counts as 0, above 4096 as 4096 (logged once).
  uint32_t AudioBlocks();
  // A trunk's "EchoTail" within what a canceller can have: below 32 ms counts as 32, above 1024 as 1024 (logged once).
  int32_t EchoTail(int32_t wantedMs);

  // Section "serial-trunk" (trunk counted from 1). Crc4 is read on its own, in a first pass over a card's trunks.
  int32_t ReadTrunkCrc4(uint32_t serialNumber, uint32_t trunkNumber) const;
  STrunkSettings ReadTrunk(uint32_t serialNumber, uint32_t trunkNumber) const;

 private:
  // A path of this length or more cannot be opened on any system.
  static constexpr size_t kMaxPath = 4096;

  std::string IniPath() const;
  void ReadDtmf(const std::string& path);

  mutable CMutex pathLock;
  std::array<char, kMaxPath> iniPath ZELK_GUARDED_BY(pathLock){};  // of the last Read; no memory to free at unload
  std::atomic<float> normalTwist{SDtmfSettings().normalTwist};
  std::atomic<float> reverseTwist{SDtmfSettings().reverseTwist};
  std::atomic<float> rowPeak{SDtmfSettings().rowPeak};
  std::atomic<float> columnPeak{SDtmfSettings().columnPeak};
  std::atomic<float> totalEnergy{SDtmfSettings().totalEnergy};
  std::atomic<bool> clampReported{false};
  std::atomic<bool> tailReported{false};
};

// Usable from load to the end of the process: it is constructed without code and never destroyed.
CConfig& Config();

}  // namespace zelk
