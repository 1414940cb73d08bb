// SPDX-License-Identifier: GPL-2.0-only
#include "card/trunk_setup.h"

#include <algorithm>
#include <memory>
#include <new>

#include "runtime/config.h"
#include "runtime/q931_types.h"

namespace zelk {

namespace {

uint32_t UsedTrunks(const CCardCore& core) {
  return std::min<uint32_t>(core.facts.trunkCount, kMaxTrunks);
}

void ApplySettings(CTrunk& trunk, const STrunkSettings& settings) {
  trunk.hangupOnAlerting = settings.hangupOnAlerting;
  trunk.numberType = settings.numberType;
  trunk.nodeType = NodeTypeOf(settings.clientType);
  trunk.switchType = settings.switchType;
}

// Null too when memory runs out: the other trunks are set up all the same.
std::unique_ptr<CPriController> TryCreate(CCardCore& core, uint32_t index, const CTrunk& trunk) {
  try {
    return CPriController::Create(core, index, trunk.nodeType, trunk.switchType);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void SetUpTrunk(CCardCore& core, uint32_t index, uint32_t generation) {
  CTrunk& trunk = core.trunks[index];
  const uint32_t serialNumber = core.facts.serialNumber;
  const STrunkSettings settings = Config().ReadTrunk(serialNumber, index + 1);
  ApplySettings(trunk, settings);
  core.audio.ConfigureEcho(index, Config().EchoTail(settings.echoTailMs));
  trunk.echoEnabled = settings.echoCanceller;

  const CScopedLock<CRecursiveMutex> held(trunk.lock);
  trunk.generation = generation;
  trunk.capture.Close();
  if (settings.hdlcLog) {
    trunk.capture.Open(serialNumber, index + 1);
  }
  trunk.controller = TryCreate(core, index, trunk);
}

}  // namespace

void ConfigureTrunks(CCardCore& core) {
  const uint32_t serialNumber = core.facts.serialNumber;
  for (uint32_t trunk = 0; trunk < UsedTrunks(core); ++trunk) {
    core.crc4 = static_cast<uint32_t>(Config().ReadTrunkCrc4(serialNumber, trunk + 1));
    core.SendTrunkConfiguration(trunk);
  }
}

void SetUpTrunks(CCardCore& core, uint32_t generation) {
  for (uint32_t trunk = 0; trunk < UsedTrunks(core); ++trunk) {
    SetUpTrunk(core, trunk, generation);
  }
}

}  // namespace zelk
