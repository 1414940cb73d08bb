#include "call/call_operations.h"

#include "call/application_events.h"
#include "call/channel_info.h"
#include "call/disconnect_cause.h"
#include "runtime/log.h"

namespace zelk {

namespace {

enum class EDialResult { kDone, kBusy, kNoCall, kRefused };

// The end of a call for reasons of our own, with nothing said to the network.
void ResetLocally(CDevice& device) {
  device.ClearCallInfo(kCauseNormalClearing);
  device.ForgetCall();
  device.direction = 0;
}

// Under the trunk lock; takes the call lock.
EDialResult PlaceCall(CDevice& device, CTrunk& trunk, const char* number) ZELK_REQUIRES(trunk.lock) {
  PriCall call = nullptr;
  std::string callingNumber;
  {
    CScopedLock callHeld(device.callLock);
    if (device.callHandle != nullptr) {
      return EDialResult::kBusy;
    }
    device.startQueue.Clear();
    {
      CScopedLock infoHeld(device.infoLock);
      callingNumber = device.dialCli;
      device.cli = device.dialCli;
      device.dli = number;
      device.rli.clear();
      device.callType = kCallTypeVoice;
    }
    call = trunk.controller ? trunk.controller->NewCall() : nullptr;
    device.callHandle = call;
  }
  if (call == nullptr) {
    return EDialResult::kNoCall;
  }
  if (trunk.controller->Setup(call, static_cast<int>(device.timeslot), number, callingNumber.c_str(),
                              trunk.numberType) >= 0) {
    return EDialResult::kDone;
  }
  trunk.controller->DestroyCall(call);
  return EDialResult::kRefused;
}

bool SendAnswer(const CDevice& device, CTrunk& trunk) ZELK_REQUIRES(trunk.lock) {
  return trunk.controller && trunk.controller->Answer(device.callHandle, static_cast<int>(device.timeslot)) >= 0;
}

void FailAnswer(CDevice& device) {
  constexpr const char* kText = "Answer() -> Answer() failed in Q931 Connect().";
  device.SetMessage(kText);
  LogFormat(ELogClass::kStatus, device.LogChannel(), "%s", kText);
  ResetLocally(device);
}

}  // namespace

bool Dial(CDevice& device, const char* number, const char* callingNumber) {
  if (number == nullptr) {
    return false;
  }
  if (callingNumber != nullptr) {
    SetInfo(device, "DIALCLI", callingNumber);
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
  if (device.connected) {
    return true;
  }
  CTrunk& trunk = device.Trunk();
  // The network side has nobody to wait for. That holds for an answer that failed, too.
  const bool connectsAtOnce = trunk.nodeType == kNetworkSide;
  {
    CScopedLock held(trunk.lock);
    if (device.connected) {
      return true;  // it was while we waited for the lock
    }
    device.startQueue.Clear();
    if (!SendAnswer(device, trunk)) {
      FailAnswer(device);
    }
    if (connectsAtOnce) {
      // Before the network can end the call: its end must not be overtaken.
      device.connected = true;
      device.SwitchEcho(trunk.echoEnabled);
    }
  }
  if (connectsAtOnce) {
    ApplicationEvents().Post(device.channelNumber, EVENT_CONNECTED, 0);
  }
  return true;
}

bool Hangup(CDevice& device) {
  device.direction = 0;
  if (device.callHandle == nullptr) {
    return true;
  }
  CTrunk& trunk = device.Trunk();
  int result = -1;
  {
    CScopedLock held(trunk.lock);
    if (trunk.controller) {
      result = trunk.controller->Hangup(device.callHandle, kCauseNormalClearing);
    }
  }
  if (result < 0) {
    LogLine("Hangup()-> Failed in Q931 release()", device.LogChannel());
  }
  return true;
}

bool Reject(CDevice& device) {
  device.ClearMessage();
  if (device.connected) {
    return true;
  }
  CTrunk& trunk = device.Trunk();
  CScopedLock held(trunk.lock);
  if (device.connected) {
    return true;  // it was while we waited for the lock
  }
  if (trunk.controller) {
    trunk.controller->Hangup(device.callHandle, kCauseCallRejected);
  }
  ResetLocally(device);
  return false;
}

}  // namespace zelk
