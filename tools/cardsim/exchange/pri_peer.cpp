// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/exchange/pri_peer.h"

extern "C" {
#include <libpri.h>
#include <pri_internal.h>
#include <pri_q921.h>
#include <pri_q931.h>
}

#include <algorithm>
#include <array>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "cardsim/exchange/pri_translation.h"
#include "common/wire.h"

namespace cardsim {
namespace {

constexpr std::size_t kGuardBytes = 512;
constexpr std::size_t kShortestFrame = 3;  // two address bytes and a control byte; libpri adds two for the FCS
constexpr int kLongestTimerRun = 64;

std::recursive_mutex& LibpriLock() {
  static std::recursive_mutex lock;
  return lock;
}

std::function<void(const std::string&)>& Log() {
  static std::function<void(const std::string&)> log;
  return log;
}

void OnMessage(pri*, char* text) {
  if (Log()) {
    Log()(text);
  }
}

// The causes for which a call that has had no answer yet is refused with RELEASE COMPLETE (ITU-T Q.931, 5.3.2).
bool IsClearedAtOnce(int cause) {
  switch (cause) {
    case PRI_CAUSE_UNALLOCATED:
    case PRI_CAUSE_NORMAL_CIRCUIT_CONGESTION:
    case PRI_CAUSE_REQUESTED_CHAN_UNAVAIL:
    case PRI_CAUSE_IDENTIFIED_CHANNEL_NOTEXIST:
    case PRI_CAUSE_INCOMPATIBLE_DESTINATION:
    case PRI_CAUSE_INVALID_CALL_REFERENCE:
      return true;
    default:
      return false;
  }
}

}  // namespace

void CPriPeer::SetLog(std::function<void(const std::string&)> log) {
  const std::lock_guard guard(LibpriLock());
  Log() = std::move(log);
}

bool CPriPeer::Start() {
  const std::lock_guard guard(LibpriLock());
  Stop();
  pri_set_message(OnMessage);
  pri_set_error(OnMessage);
  controller = pri_new_cb(0, role.userSide ? PRI_CPE : PRI_NETWORK, role.switchType, OnRead, OnWrite, this);
  if (controller == nullptr) {
    return false;
  }
  pri_hangup_fix_enable(controller, 1);
  // Only so is the event of a received CONNECT ACKNOWLEDGE given; the one to be sent is sent on the answer event.
  pri_connect_ack_enable(controller, 1);
  return true;
}

void CPriPeer::Stop() {
  const std::lock_guard guard(LibpriLock());
  if (controller == nullptr) {
    return;
  }
  // libpri has no public release of a controller: calls, queued frames and tables are taken apart here.
  while (*controller->callpool != nullptr) {
    q931_call* call = *controller->callpool;
    call->fake_clearing_timer = 0;
    pri_destroycall(controller, call);
  }
  while (controller->link.tx_queue != nullptr) {
    q921_frame* frame = controller->link.tx_queue;
    controller->link.tx_queue = frame->next;
    free(frame);
  }
  free(controller->msg_line);
  free(controller->sched.timer);
  free(controller);
  controller = nullptr;
}

int CPriPeer::OnRead(pri*, void*, int) {
  return 0;
}

int CPriPeer::OnWrite(pri* ctrl, void* buffer, int length) {
  auto* self = static_cast<CPriPeer*>(pri_get_userdata(ctrl));
  if (self != nullptr && length > 2) {
    self->write(ByteView(static_cast<const std::uint8_t*>(buffer), static_cast<std::size_t>(length - 2)));
  }
  return length;
}

void CPriPeer::Receive(ByteView frame) {
  if (frame.size() < kShortestFrame || frame.size() > kMaxFrameFromLibrary) {
    return;
  }
  // libpri reads beyond the end of a malformed information element: all ones stand there, which end any list.
  alignas(8) std::array<std::uint8_t, kMaxFrameFromLibrary + 2 + kGuardBytes> buffer;
  buffer.fill(0xFF);
  std::copy(frame.begin(), frame.end(), buffer.begin());
  std::optional<SPriEvent> result;
  {
    const std::lock_guard guard(LibpriLock());
    if (controller == nullptr) {
      return;
    }
    result = FromLibpri(
        q921_receive(controller, reinterpret_cast<q921_h*>(buffer.data()), static_cast<int>(frame.size() + 2)));
  }
  if (result) {
    event(*result);
  }
}

void CPriPeer::RunTimers() {
  for (int i = 0; i < kLongestTimerRun; ++i) {
    std::optional<SPriEvent> result;
    {
      const std::lock_guard guard(LibpriLock());
      result = controller == nullptr ? std::nullopt : FromLibpri(pri_schedule_run(controller));
    }
    if (!result) {
      return;
    }
    event(*result);
  }
}

bool CPriPeer::Owns(q931_call* call) const {
  return controller != nullptr && call != nullptr && q931_is_call_valid(controller, call) != 0;
}

q931_call* CPriPeer::Setup(const SSetup& setup) {
  const std::lock_guard guard(LibpriLock());
  q931_call* call = controller == nullptr ? nullptr : pri_new_call(controller);
  pri_sr* request = call == nullptr ? nullptr : pri_sr_new();
  if (request == nullptr) {
    return nullptr;
  }
  std::string calling = setup.calling;
  std::string called = setup.called;
  std::string redirecting = setup.redirecting;
  pri_sr_set_channel(request, setup.timeslot & 0xFF, setup.exclusive && setup.timeslot > 0 ? 1 : 0, 0);
  pri_sr_set_bearer(request, PRI_TRANS_CAP_SPEECH, PRI_LAYER_1_ALAW);
  pri_sr_set_called(request, called.data(), setup.numberPlan, 1);
  if (!calling.empty()) {
    pri_sr_set_caller(request, calling.data(), nullptr, setup.numberPlan, PRES_ALLOWED_USER_NUMBER_PASSED_SCREEN);
  }
  if (!redirecting.empty()) {
    pri_sr_set_redirecting(request, redirecting.data(), setup.numberPlan, PRES_ALLOWED_USER_NUMBER_PASSED_SCREEN,
                           setup.redirectingReason);
  }
  const int result = pri_setup(controller, call, request);
  pri_sr_free(request);
  if (result != 0) {
    pri_destroycall(controller, call);
    return nullptr;
  }
  return call;
}

bool CPriPeer::Proceeding(q931_call* call, int timeslot) {
  const std::lock_guard guard(LibpriLock());
  return Owns(call) && pri_proceeding(controller, call, timeslot, 0) == 0;
}

bool CPriPeer::Progress(q931_call* call, int timeslot, int cause) {
  const std::lock_guard guard(LibpriLock());
  return Owns(call) && pri_progress_with_cause(controller, call, timeslot, 1, cause) == 0;
}

bool CPriPeer::Alerting(q931_call* call, int timeslot) {
  const std::lock_guard guard(LibpriLock());
  return Owns(call) && pri_acknowledge(controller, call, timeslot, 0) == 0;
}

bool CPriPeer::Connect(q931_call* call, int timeslot) {
  const std::lock_guard guard(LibpriLock());
  return Owns(call) && pri_answer(controller, call, timeslot, 0) == 0;
}

bool CPriPeer::ConnectAcknowledge(q931_call* call) {
  const std::lock_guard guard(LibpriLock());
  return Owns(call) && pri_connect_ack(controller, call, 0) == 0;
}

bool CPriPeer::Hangup(q931_call* call, int cause) {
  const std::lock_guard guard(LibpriLock());
  if (!Owns(call)) {
    return false;
  }
  // A DISCONNECT as the first answer to a SETUP is one that libpri does not send: something must go before it.
  const bool unanswered = call->ourcallstate == Q931_CALL_STATE_CALL_PRESENT && call->alive == 0;
  if (unanswered && !IsClearedAtOnce(cause)) {
    pri_proceeding(controller, call, call->channelno, 0);
  }
  // One that its caller connected, unanswered, is to libpri a connected call without a DISCONNECT: it never ends.
  if (call->ourcallstate == Q931_CALL_STATE_ACTIVE || call->ourcallstate == Q931_CALL_STATE_CONNECT_REQUEST) {
    call->alive = 1;
  }
  const bool isHungUp = pri_hangup(controller, call, cause) == 0;
  // A call that is cleared before anything was sent for it ends with a RELEASE COMPLETE, after which libpri waits for
  // one without a timer.
  if (Owns(call) && call->ourcallstate == Q931_CALL_STATE_RELEASE_REQUEST && call->alive == 0 &&
      call->retranstimer == 0) {
    pri_destroycall(controller, call);
  }
  return isHungUp;
}

bool CPriPeer::Forget(q931_call* call) {
  const std::lock_guard guard(LibpriLock());
  if (!Owns(call)) {
    return false;
  }
  pri_destroycall(controller, call);
  return true;
}

bool CPriPeer::Knows(q931_call* call) const {
  const std::lock_guard guard(LibpriLock());
  return Owns(call);
}

bool CPriPeer::Digit(q931_call* call, char digit) {
  const std::lock_guard guard(LibpriLock());
  return Owns(call) && pri_information(controller, call, digit) == 0;
}

bool CPriPeer::RestartTimeslot(int timeslot) {
  const std::lock_guard guard(LibpriLock());
  return controller != nullptr && pri_reset(controller, timeslot) == 0;
}

bool CPriPeer::SendQ931(ByteView message) {
  const std::lock_guard guard(LibpriLock());
  if (controller == nullptr || message.size() > kMaxFrameFromLibrary) {
    return false;
  }
  Bytes copy(message.begin(), message.end());
  return q921_transmit_iframe(&controller->link, copy.data(), static_cast<int>(copy.size()), 1) == 0;
}

bool CPriPeer::SendForCall(q931_call* call, std::uint8_t type, ByteView elements) {
  const std::lock_guard guard(LibpriLock());
  if (!Owns(call)) {
    return false;
  }
  // libpri keeps the reference as the other side sends it.
  const int reference = call->cr ^ Q931_CALL_REFERENCE_FLAG;
  Bytes message{0x08, 0x02, static_cast<std::uint8_t>(reference >> 8), static_cast<std::uint8_t>(reference), type};
  message.insert(message.end(), elements.begin(), elements.end());
  return SendQ931(message);
}

int CPriPeer::Reference(q931_call* call) const {
  const std::lock_guard guard(LibpriLock());
  return Owns(call) ? call->cr : -1;
}

std::vector<SHeldCall> CPriPeer::HeldCalls() const {
  const std::lock_guard guard(LibpriLock());
  std::vector<SHeldCall> held;
  if (controller != nullptr) {
    for (const q931_call* call = *controller->callpool; call != nullptr; call = call->next) {
      if ((call->cr & ~Q931_CALL_REFERENCE_FLAG) != 0) {  // not the global reference, of RESTART
        held.push_back({call->cr, call->ourcallstate, call->peercallstate});
      }
    }
  }
  return held;
}

}  // namespace cardsim
