#include "card/pri_adapter.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "platform/mutex.h"
#include "runtime/log.h"

extern "C" {
#include <libpri.h>
#include <pri_internal.h>
//
#include <pri_facility.h>
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

// Two address bytes, one of control and two of FCS: libpri reads that much of any frame.
constexpr size_t kShortestFrame = 5;
constexpr size_t kLongestFrame = 1024;
// libpri reads past the end of malformed information elements; an element claims 255 bytes at most.
constexpr size_t kGuardBytes = 512;
constexpr uint8_t kGuardByte = 0xFF;

// libpri numbers its timer tables from a process-wide counter, which a new controller moves on.
CMutex& CreationLock() {
  static CMutex lock;
  return lock;
}

// The call member of the event's own kind.
PriCall EventCall(const pri_event& event) {
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

void CopyEvent(const pri_event& from, SPriEvent& to) {
  to = SPriEvent();
  to.code = from.e;
  // Every event that has a channel has it in the same place.
  to.channel = HasChannel(from.e) ? from.hangup.channel : 0;
  to.call = EventCall(from);
  to.hangupCall = from.hangup.call;
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

void ReleaseQueue(q921_link& link) {
  while (q921_frame* frame = link.tx_queue) {
    link.tx_queue = frame->next;
    std::free(frame);
  }
}

// Calls end without a message: their supplementary-service requests are given up while the timer table still stands.
void ReleaseCalls(pri* controller) {
  for (q931_call* call = controller->localpool; call != nullptr; call = call->next) {
    for (q931_call* subcall : call->subcalls) {
      pri_call_apdu_queue_cleanup(subcall);
    }
    pri_call_apdu_queue_cleanup(call);
  }
  while (q931_call* call = controller->localpool) {
    controller->localpool = call->next;
    for (q931_call* subcall : call->subcalls) {
      std::free(subcall);
    }
    std::free(call);
  }
}

void ReleaseCompletionRecords(pri* controller) {
  while (pri_cc_record* record = controller->cc.pool) {
    controller->cc.pool = record->next;
    std::free(record);
  }
}

// libpri has no release of its own. The controller owns its calls, its links with the frames they wait to have
// acknowledged, its call completion records, the timer table and the buffer of its message line; the dummy call stands
// in one allocation with the controller or, on further links, with the link.
void ReleaseController(pri* controller) {
  ReleaseCalls(controller);
  ReleaseCompletionRecords(controller);
  bool isDummyBorrowed = false;
  while (q921_link* link = controller->link.next) {
    controller->link.next = link->next;
    isDummyBorrowed = isDummyBorrowed || link->dummy_call == controller->link.dummy_call;
    ReleaseQueue(*link);
    pri_link_destroy(link);
  }
  ReleaseQueue(controller->link);
  if (!isDummyBorrowed) {
    pri_call_apdu_queue_cleanup(controller->link.dummy_call);
  }
  std::free(controller->msg_line);
  std::free(controller->sched.timer);
  std::free(controller);
}

int ReadNothing(pri*, void*, int) {
  return 0;
}

}  // namespace

struct CPriController::SImpl {
  SImpl(IPriWriter& frameWriter, uint32_t trunkIndex) : writer(frameWriter), trunk(trunkIndex) {
    frameBuffer.fill(kGuardByte);
  }

  IPriWriter& writer;
  const uint32_t trunk;
  pri* controller = nullptr;
  // libpri may keep pointers into the last frame until the next one comes, so the buffer lives as long as it does.
  alignas(8) std::array<uint8_t, kLongestFrame + kGuardBytes> frameBuffer;

  bool IsValid(PriCall call) const { return q931_is_call_valid(controller, call) != 0; }
  static int Write(pri* controller, void* frame, int length);
  static void Message(pri* controller, char* text);
};

int CPriController::SImpl::Write(pri* controller, void* frame, int length) {
  const auto* self = static_cast<SImpl*>(pri_get_userdata(controller));
  if (self == nullptr || length < 2) {
    return 0;
  }
  return self->writer.OnPriFrame(self->trunk, static_cast<const uint8_t*>(frame), static_cast<size_t>(length));
}

// Also runs while a controller is being created, when its creator does not know it yet.
void CPriController::SImpl::Message(pri* controller, char* text) {
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

CPriController::~CPriController() {
  ReleaseController(impl->controller);
}

std::unique_ptr<CPriController> CPriController::Create(IPriWriter& writer, uint32_t trunk, int nodeType,
                                                       int switchType) {
  auto impl = std::make_unique<SImpl>(writer, trunk);
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
  return std::unique_ptr<CPriController>(new CPriController(std::move(impl)));
}

bool CPriController::Receive(const uint8_t* frame, size_t length, SPriEvent& event) {
  if (length < kShortestFrame || length > kLongestFrame) {
    return false;
  }
  std::copy_n(frame, length, impl->frameBuffer.begin());
  std::fill_n(impl->frameBuffer.begin() + static_cast<ptrdiff_t>(length), kGuardBytes, kGuardByte);
  const pri_event* result =
      q921_receive(impl->controller, reinterpret_cast<q921_h*>(impl->frameBuffer.data()), static_cast<int>(length));
  if (result == nullptr) {
    return false;
  }
  CopyEvent(*result, event);
  return true;
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
  const pri_event* result = pri_schedule_run(impl->controller);
  if (result == nullptr) {
    return false;
  }
  CopyEvent(*result, event);
  return true;
}

bool CPriController::IsCallValid(PriCall call) const {
  return impl->IsValid(call);
}

bool CPriController::Parties(PriCall call, SPriParties& parties) const {
  if (!impl->IsValid(call)) {
    return false;
  }
  parties.remote = NumberOf(call->remote_id.number);
  parties.called = NumberOf(call->called.number);
  parties.redirecting = NumberOf(call->redirecting.from.number);
  parties.redirectingReason = call->redirecting.reason;
  return true;
}

PriCall CPriController::NewCall() {
  return pri_new_call(impl->controller);
}

int CPriController::Setup(PriCall call, int timeslot, const char* calledNumber, const char* callingNumber,
                          int numberType) {
  if (!impl->IsValid(call)) {
    return -1;
  }
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
  const int result = pri_setup(impl->controller, call, request);
  pri_sr_free(request);
  return result;
}

int CPriController::DestroyCall(PriCall call) {
  if (!impl->IsValid(call)) {
    return -1;
  }
  pri_destroycall(impl->controller, call);
  return 0;
}

int CPriController::NeedMoreInfo(PriCall call, int channel) {
  return impl->IsValid(call) ? pri_need_more_info(impl->controller, call, channel, 1) : -1;
}

int CPriController::Proceeding(PriCall call, int channel) {
  return impl->IsValid(call) ? pri_proceeding(impl->controller, call, channel, 0) : -1;
}

int CPriController::Alerting(PriCall call, int channel) {
  return impl->IsValid(call) ? pri_acknowledge(impl->controller, call, channel, 0) : -1;
}

int CPriController::Answer(PriCall call, int channel) {
  return impl->IsValid(call) ? pri_answer(impl->controller, call, channel, 1) : -1;
}

int CPriController::ConnectAck(PriCall call, int channel) {
  return impl->IsValid(call) ? pri_connect_ack(impl->controller, call, channel) : -1;
}

int CPriController::Hangup(PriCall call, int cause) {
  return impl->IsValid(call) ? pri_hangup(impl->controller, call, cause) : -1;
}

}  // namespace zelk
