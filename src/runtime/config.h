#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "platform/mutex.h"
#include "runtime/q931_types.h"

namespace zelk {

// Thresholds of the digit detector, as ratios of energies.
struct SDtmfSettings {
  float normalTwist = 7.0F;
  float reverseTwist = 7.0F;
  float rowPeak = 6.3F;
  float columnPeak = 6.3F;
  float totalEnergy = 40.0F;
};

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
