// SPDX-License-Identifier: GPL-2.0-only
#include "card/pri_adapter.h"

#include <algorithm>
#include <array>
#include <exception>

#include "card/pri_internals.h"
#include "platform/mutex.h"
#include "runtime/log.h"
#include "runtime/q931_types.h"

extern "C" {
#include <libpri.h>
#include <pri_internal.h>
}

namespace zelk {

namespace {

static_assert(kPriDchannelUp == PRI_EVENT_DCHAN_UP && kPriDchannelDown == PRI_EVENT_DCHAN_DOWN);
static_assert(kPriRestart == PRI_EVENT_RESTART && kPriConfigError == PRI_EVENT_CONFIG_ERR);
static_assert(kPriRing == PRI_EVENT_RING && kPriHangup == PRI_EVENT_HANGUP && kPriRinging == PRI_EVENT_RINGING);
static_assert(kPriAnswer == PRI_EVENT_ANSWER && kPriHangupAck == PRI_EVENT_HANGUP_ACK);
static_assert(kPriInfoReceived == PRI_EVENT_INFO_RECEIVED && kPriProceeding == PRI_EVENT_PROCEEDING);
static_assert(kPriHangupRequest == PRI_EVENT_HANGUP_REQ && kPriProgress == PRI_EVENT_PROGRESS);
static_assert(kPriConnectAck == PRI_EVENT_CONNECT_ACK);
static_assert(kNetworkSide == PRI_NETWORK && kUserSide == PRI_CPE);
static_assert(kEuroIsdnE1 == PRI_SWITCH_EUROISDN_E1 && kNationalIsdnNumber == PRI_NATIONAL_ISDN);

// Two address bytes, one of control and two of FCS: libpri reads that much of any frame.
constexpr size_t kShortestFrame = 5;
constexpr size_t kLongestFrame = 1024;
constexpr uint8_t kReceiveReady = 0x01;
// libpri reads past the end of malformed information elements; an element claims 255 bytes at most.
constexpr size_t kGuardBytes = 512;
constexpr uint8_t kGuardByte = 0xFF;

// libpri numbers its timer tables from a process-wide counter, which a new controller moves on.
CMutex& CreationLock() {
  static CMutex lock;
  return lock;
}

// The call member of the event's own kind.
q931_call* EventCall(const pri_event& event) {
  switch (event.e) {
    case PRI_EVENT_RING:
    case PRI_EVENT_INFO_RECEIVED:
      return event.ring.call;
    case PRI_EVENT_HANGUP:
    case PRI_EVENT_HANGUP_REQ:
    case PRI_EVENT_HANGUP_ACK:
      return event.hangup.call;
    case PRI_EVENT_RINGING:
      return event.ringing.call;
    case PRI_EVENT_ANSWER:
      return event.answer.call;
    case PRI_EVENT_PROCEEDING:
    case PRI_EVENT_PROGRESS:
      return event.proceeding.call;
    case PRI_EVENT_CONNECT_ACK:
      return event.connect_ack.call;
    case PRI_EVENT_SETUP_ACK:
      return event.setup_ack.call;
    default:
      return nullptr;
  }
}

int EventCause(const pri_event& event) {
  switch (event.e) {
    case PRI_EVENT_HANGUP:
    case PRI_EVENT_HANGUP_REQ:
    case PRI_EVENT_HANGUP_ACK:
      return event.hangup.cause;
    case PRI_EVENT_PROCEEDING:
    case PRI_EVENT_PROGRESS:
      return event.proceeding.cause;
    default:
      return 0;
  }
}

bool HasChannel(int code) {
  return code != PRI_EVENT_DCHAN_UP && code != PRI_EVENT_DCHAN_DOWN && code != PRI_EVENT_CONFIG_ERR;
}

template <size_t Size>
std::string TextOf(const char (&field)[Size]) {
  return std::string(field, std::find(field, field + Size, '\0'));
}

// All but the calls.
void CopyEvent(const pri_event& from, SPriEvent& to) {
  to = SPriEvent();
  to.code = from.e;
  // Every event that has a channel has it in the same place.
  to.channel = HasChannel(from.e) ? from.hangup.channel : 0;
  to.cause = EventCause(from);
  if (from.e == PRI_EVENT_RING) {
    to.callingNumber = TextOf(from.ring.callingnum);
    to.calledNumber = TextOf(from.ring.callednum);
    to.redirectingNumber = TextOf(from.ring.redirectingnum);
    to.redirectingReason = from.ring.redirectingreason;
  }
}

SPriNumber NumberOf(const q931_party_number& number) {
  return {number.valid != 0, TextOf(number.str)};
}

int ReadNothing(pri*, void*, int) {
  return 0;
}

}  // namespace

struct CPriController::SImpl {
  SImpl(IPriWriter& frameWriter, uint32_t trunkIndex) : writer(frameWriter), trunk(trunkIndex) {
    frameBuffer.fill(kGuardByte);
  }
  ~SImpl() {
    if (controller != nullptr) {
      ReleaseController(controller);
    }
  }
  SImpl(const SImpl&) = delete;
  SImpl& operator=(const SImpl&) = delete;

  IPriWriter& writer;
  const uint32_t trunk;
  pri* controller = nullptr;
  // libpri may keep pointers into the last frame until the next one comes, so the buffer lives as long as it does.
  alignas(8) std::array<uint8_t, kLongestFrame + kGuardBytes> frameBuffer;

  CCallRegistry calls;

  void TellMoves();
  void UpdateCalls();
  bool TakeEvent(const pri_event* from, SPriEvent& to);
  // Does something to one of our calls; -1 for any other. libpri may free the call, or others, meanwhile.
  template <class Operation>
  int OnCall(PriCall call, Operation operation);
  static int Write(pri* controller, void* frame, int length) noexcept;
  static void Message(pri* controller, char* text) noexcept;
};

void CPriController::SImpl::TellMoves() {
  writer.OnTimersMoved(trunk, IsBacklogged(controller));
}

void CPriController::SImpl::UpdateCalls() {
  TellMoves();
  ReleaseAbandonedCalls(controller);
  calls.Update(*controller->callpool, [](const q931_call* call) { return call->next; });
}

// A call that went with the event is still known when the event is looked at, a new one only after the update.
bool CPriController::SImpl::TakeEvent(const pri_event* from, SPriEvent& to) {
  if (from == nullptr) {
    UpdateCalls();
    return false;
  }
  const q931_call* call = EventCall(*from);
  const PriCall known = calls.HandleOf(call);
  const PriCall knownHangup = calls.HandleOf(from->hangup.call);
  UpdateCalls();
  CopyEvent(*from, to);
  to.call = known != nullptr ? known : calls.HandleOf(call);
  to.hangupCall = knownHangup != nullptr ? knownHangup : calls.HandleOf(from->hangup.call);
  return true;
}

template <class Operation>
int CPriController::SImpl::OnCall(PriCall call, Operation operation) {
  q931_call* record = call == nullptr ? nullptr : calls.RecordOf(call);
  if (record == nullptr) {
    return -1;
  }
  const int result = operation(record);
  UpdateCalls();
  return result;
}

// Called by libpri, whose frames know no exceptions: a frame for which there is no memory counts as sent and is lost,
// which layer 2 makes up for.
int CPriController::SImpl::Write(pri* controller, void* frame, int length) noexcept {
  const auto* self = static_cast<SImpl*>(pri_get_userdata(controller));
  if (self == nullptr || length < 2) {
    return 0;
  }
  try {
    return self->writer.OnPriFrame(self->trunk, static_cast<const uint8_t*>(frame), static_cast<size_t>(length));
  } catch (const std::exception&) {
    return length;
  }
}

// Also runs while a controller is being created, when its creator does not know it yet.
void CPriController::SImpl::Message(pri* controller, char* text) noexcept {
  const auto* self = controller == nullptr ? nullptr : static_cast<SImpl*>(pri_get_userdata(controller));
  const uint32_t card = self == nullptr ? 0 : self->writer.MessageCard();
  const uint32_t trunk = self == nullptr ? 0 : self->trunk;
  LogFormat(ELogClass::kAlways, kGeneralLine, "Debug Message: Card[%u] Link[%u]: %s", card, trunk, text);
}

void InstallPriMessageHook() {
  pri_set_message(&CPriController::SImpl::Message);
  pri_set_error(&CPriController::SImpl::Message);
}

CPriController::CPriController(std::unique_ptr<SImpl> created) : impl(std::move(created)) {}

CPriController::~CPriController() = default;

std::unique_ptr<CPriController> CPriController::Create(IPriWriter& writer, uint32_t trunk, int nodeType,
                                                       int switchType) {
  auto impl = std::make_unique<SImpl>(writer, trunk);
  impl->calls.Reserve();
  {
    const CScopedLock<CMutex> lock(CreationLock());
    impl->controller =
        pri_new_cb(static_cast<int>(trunk), nodeType, switchType, &ReadNothing, &SImpl::Write, impl.get());
  }
  if (impl->controller == nullptr) {
    return nullptr;
  }
  pri_hangup_fix_enable(impl->controller, 1);
  pri_aoc_events_enable(impl->controller, 1);
  pri_connect_ack_enable(impl->controller, 1);
  impl->UpdateCalls();
  return std::unique_ptr<CPriController>(new CPriController(std::move(impl)));
}

bool CPriController::Receive(const uint8_t* frame, size_t length, SPriEvent& event) {
  if (length < kShortestFrame || length > kLongestFrame) {
    return false;
  }
  impl->calls.Reserve();
  std::copy_n(frame, length, impl->frameBuffer.begin());
  std::fill_n(impl->frameBuffer.begin() + static_cast<ptrdiff_t>(length), kGuardBytes, kGuardByte);
  const bool isReceiveReady = frame[0] >> 2 == 0 && frame[2] == kReceiveReady && IsLinkEstablished(impl->controller);
  const pri_event* taken =
      q921_receive(impl->controller, reinterpret_cast<q921_h*>(impl->frameBuffer.data()), static_cast<int>(length));
  if (isReceiveReady && taken == nullptr && IsLinkEstablished(impl->controller)) {
    impl->TellMoves();
    return false;  // a matter of layer 2: no call has changed
  }
  return impl->TakeEvent(taken, event);
}

bool CPriController::NextTimer(SUnixTime& due) const {
  const timeval* next = pri_schedule_next(impl->controller);
  if (next == nullptr) {
    return false;
  }
  due = {static_cast<int64_t>(next->tv_sec), static_cast<int32_t>(next->tv_usec)};
  return true;
}

bool CPriController::RunTimers(SPriEvent& event) {
  impl->calls.Reserve();
  return impl->TakeEvent(pri_schedule_run(impl->controller), event);
}

bool CPriController::IsCallValid(PriCall call) const {
  return call != nullptr && impl->calls.RecordOf(call) != nullptr;
}

bool CPriController::Parties(PriCall call, SPriParties& parties) const {
  const q931_call* record = call == nullptr ? nullptr : impl->calls.RecordOf(call);
  if (record == nullptr) {
    return false;
  }
  parties.remote = NumberOf(record->remote_id.number);
  parties.called = NumberOf(record->called.number);
  parties.redirecting = NumberOf(record->redirecting.from.number);
  parties.redirectingReason = record->redirecting.reason;
  return true;
}

PriCall CPriController::NewCall() {
  impl->calls.Reserve();
  const q931_call* record = pri_new_call(impl->controller);
  impl->UpdateCalls();
  return impl->calls.HandleOf(record);
}

int CPriController::Setup(PriCall call, int timeslot, const char* calledNumber, const char* callingNumber,
                          int numberType) {
  return impl->OnCall(call, [&](q931_call* record) {
    pri_sr* request = pri_sr_new();
    if (request == nullptr) {
      return -1;
    }
    pri_sr_set_channel(request, timeslot, 1, 0);
    pri_sr_set_bearer(request, PRI_TRANS_CAP_SPEECH, PRI_LAYER_1_ALAW);
    // libpri copies both texts and changes neither.
    pri_sr_set_called(request, const_cast<char*>(calledNumber), numberType, 1);
    pri_sr_set_caller(request, const_cast<char*>(callingNumber), nullptr, numberType,
                      PRES_ALLOWED_USER_NUMBER_PASSED_SCREEN);
    const int result = pri_setup(impl->controller, record, request);
    pri_sr_free(request);
    return result;
  });
}

int CPriController::DestroyCall(PriCall call) {
  return impl->OnCall(call, [this](q931_call* record) {
    pri_destroycall(impl->controller, record);
    return 0;
  });
}

int CPriController::NeedMoreInfo(PriCall call, int channel) {
  return impl->OnCall(
      call, [=, this](q931_call* record) { return pri_need_more_info(impl->controller, record, channel, 1); });
}

int CPriController::Proceeding(PriCall call, int channel) {
  return impl->OnCall(call,
                      [=, this](q931_call* record) { return pri_proceeding(impl->controller, record, channel, 0); });
}

int CPriController::Alerting(PriCall call, int channel) {
  return impl->OnCall(call,
                      [=, this](q931_call* record) { return pri_acknowledge(impl->controller, record, channel, 0); });
}

int CPriController::Answer(PriCall call, int channel) {
  return impl->OnCall(call, [=, this](q931_call* record) { return pri_answer(impl->controller, record, channel, 1); });
}

int CPriController::ConnectAck(PriCall call, int channel) {
  return impl->OnCall(call,
                      [=, this](q931_call* record) { return pri_connect_ack(impl->controller, record, channel); });
}

int CPriController::Hangup(PriCall call, int cause) {
  return impl->OnCall(call, [=, this](q931_call* record) {
    const bool isClearing = record->ourcallstate == Q931_CALL_STATE_DISCONNECT_REQUEST ||
                            record->ourcallstate == Q931_CALL_STATE_RELEASE_REQUEST;
    return isClearing ? 0 : pri_hangup(impl->controller, record, cause);
  });
}

}  // namespace zelk
