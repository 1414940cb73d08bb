// SPDX-License-Identifier: GPL-2.0-only
#include "call/call_operations.h"

#include "call/application_events.h"
#include "call/disconnect_cause.h"
#include "runtime/log.h"

namespace zelk {

namespace {

enum class EDialResult { kDone, kBusy, kNoCall, kRefused };

// Under the trunk lock, which keeps other calls away from the channel meanwhile. Who waited for it over a shut-down
// finds the channel retired, and its trunk perhaps in use again.
EDialResult PlaceCall(CDevice& device, CTrunk& trunk, const char* number) ZELK_REQUIRES(trunk.lock) {
  if (device.IsRetired() || device.Call().View().callHandle != nullptr) {
    return EDialResult::kBusy;
  }
  device.StartQueue().Clear();
  const std::string callingNumber = device.NoteDialled(number);
  const PriCall call = trunk.controller ? trunk.controller->NewCall() : nullptr;
  if (call == nullptr) {
    return EDialResult::kNoCall;
  }
  device.Call().Dial(call);
  if (trunk.controller->Setup(call, static_cast<int>(device.Timeslot()), number, callingNumber.c_str(),
                              trunk.numberType) >= 0) {
    return EDialResult::kDone;
  }
  trunk.controller->DestroyCall(call);
  return EDialResult::kRefused;
}

bool SendAnswer(const CDevice& device, CTrunk& trunk) ZELK_REQUIRES(trunk.lock) {
  const PriCall call = device.Call().View().callHandle;
  return trunk.controller && trunk.controller->Answer(call, static_cast<int>(device.Timeslot())) >= 0;
}

void FailAnswer(CDevice& device) {
  constexpr const char* kText = "Answer() -> Answer() failed in Q931 Connect().";
  device.SetMessage(kText);
  LogFormat(ELogClass::kStatus, device.LogChannel(), "%s", kText);
  device.EndCall(kCauseNormalClearing);
}

// False when libpri does not know the call of the channel, or there is none by now.
bool SendHangup(CDevice& device, CTrunk& trunk) ZELK_REQUIRES(trunk.lock) {
  const PriCall call = device.Call().View().callHandle;
  if (!trunk.controller || trunk.controller->Hangup(call, kCauseNormalClearing) < 0) {
    return false;
  }
  device.Call().Clear(call);
  return true;
}

}  // namespace

bool Dial(CDevice& device, const char* number, const char* callingNumber) {
  if (number == nullptr) {
    return false;
  }
  if (callingNumber != nullptr) {
    device.SetDialCli(callingNumber);
  }
  device.ClearMessage();
  EDialResult result = EDialResult::kDone;
  {
    CTrunk& trunk = device.Trunk();
    CScopedLock held(trunk.lock);
    result = PlaceCall(device, trunk, number);
  }
  if (result == EDialResult::kNoCall) {
    LogLine("Dial() -> new call failed", device.LogChannel());
  } else if (result == EDialResult::kRefused) {
    LogLine("Dial() -> new call setup failed", device.LogChannel());
  }
  return result == EDialResult::kDone;
}

bool Answer(CDevice& device) {
  device.ClearMessage();
  if (device.Call().View().connected) {
    return true;
  }
  CTrunk& trunk = device.Trunk();
  // The network side has nobody to wait for. That holds for an answer that failed, too.
  const bool connectsAtOnce = trunk.nodeType == kNetworkSide;
  {
    CScopedLock held(trunk.lock);
    if (device.IsRetired()) {
      return false;
    }
    if (device.Call().View().connected) {
      return true;  // it was while we waited for the lock
    }
    device.StartQueue().Clear();
    if (!SendAnswer(device, trunk)) {
      FailAnswer(device);
    }
    if (connectsAtOnce) {
      // Before the network can end the call: its end must not be overtaken.
      device.Call().Connect(trunk.echoEnabled);
    }
  }
  if (connectsAtOnce) {
    ApplicationEvents().Post(device.ChannelNumber(), EVENT_CONNECTED, 0);
  }
  return true;
}

bool Hangup(CDevice& device) {
  if (device.Call().BeginHangup() == nullptr) {
    return true;
  }
  bool isSent = false;
  {
    CTrunk& trunk = device.Trunk();
    CScopedLock held(trunk.lock);
    isSent = !device.IsRetired() && SendHangup(device, trunk);
  }
  if (!isSent) {
    LogLine("Hangup()-> Failed in Q931 release()", device.LogChannel());
  }
  return true;
}

bool Reject(CDevice& device) {
  device.ClearMessage();
  if (device.Call().View().connected) {
    return true;
  }
  CTrunk& trunk = device.Trunk();
  CScopedLock held(trunk.lock);
  if (device.IsRetired()) {
    return false;
  }
  if (device.Call().View().connected) {
    return true;  // it was while we waited for the lock
  }
  if (trunk.controller) {
    trunk.controller->Hangup(device.Call().View().callHandle, kCauseCallRejected);
  }
  device.EndCall(kCauseNormalClearing);
  return false;
}

}  // namespace zelk
