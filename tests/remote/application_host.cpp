// SPDX-License-Identifier: GPL-2.0-only

// The process of an application whose mind is elsewhere: loads the library and does what a test in another process (on
// another system, under another kernel's name) asks, callback by callback. Ends when the test closes its connection.
// Usage: application_host ADDRESS PORT LIBRARY, where the test listens and what to load.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>
#include <tuple>

#include "native_cpu_time.h"
#include "native_module.h"
#include "native_sockets.h"
#include "remote/connection.h"
#include "zelk/ZelkApi.h"

namespace {

using remote::CConnection;
using remote::CMessage;
using remote::EAsk;

std::string testAddress;
int testPort = 0;
Module module = nullptr;

CMessage Serve(CMessage& request);

// Which channels' record callbacks the test wants: each is a way there and back.
std::atomic<bool> recordPassed[ZELK_MAX_CHANNELS];

void PassRecord(int32_t channel) {
  for (int32_t each = 0; each < ZELK_MAX_CHANNELS; ++each) {
    if (channel < 0 || channel == each) {
      recordPassed[each] = channel != remote::kPassNone;
    }
  }
}

// The connection of this thread: of a thread that serves the test, or of one of the library's that calls back.
// Never destroyed: at the end of a thread that mingw's run-time did not start, its storage may go before its contents.
thread_local CConnection* connection = nullptr;

CConnection* Connect(EAsk purpose) {
  auto* made = new CConnection(CConnection::ConnectTo(testAddress, testPort), Serve);
  made->Greet(purpose);
  return made;
}

CMessage AskTest(const CMessage& request) {
  if (connection == nullptr) {
    connection = Connect(request.ask);
  }
  return connection->Ask(request);
}

void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t param) {
  CMessage request(EAsk::OnEvent);
  request.Put(channel);
  request.Put(event);
  request.Put(param);
  AskTest(request);
}

void ZELK_CALL OnPlay(uint32_t channel, uint8_t* data, uint32_t length) {
  CMessage request(EAsk::OnPlay);
  request.Put(channel);
  request.PutMemory(data, length);
  CMessage reply = AskTest(request);
  std::memcpy(data, reply.GetMemory().data, length);
}

void ZELK_CALL OnRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  if (!recordPassed[channel]) {
    return;
  }
  CMessage request(EAsk::OnRecord);
  request.Put(channel);
  request.PutMemory(data, length);
  AskTest(request);
}

template <class T>
T Argument(CMessage& request) {
  if constexpr (std::is_same_v<T, ZelkEventCallback>) {
    return request.Get<bool>() ? OnEvent : nullptr;
  } else if constexpr (std::is_same_v<T, ZelkPlayCallback>) {
    return request.Get<bool>() ? OnPlay : nullptr;
  } else if constexpr (std::is_same_v<T, ZelkRecordCallback>) {
    return request.Get<bool>() ? OnRecord : nullptr;
  } else {
    return request.Get<T>();
  }
}

template <class R, class... A>
CMessage Run(R(ZELK_CALL* function)(A...), CMessage& request) {
  const std::tuple<A...> arguments{Argument<A>(request)...};
  CMessage reply(request.ask, true);
  if constexpr (std::is_void_v<R>) {
    std::apply(function, arguments);
  } else {
    reply.Put(std::apply(function, arguments));
  }
  return reply;
}

void ServeThread() {
  connection = Connect(EAsk::NewThread);
  connection->ServeUntilClosed();
}

CMessage Serve(CMessage& request) {
  CMessage reply(request.ask, true);
  switch (request.ask) {
#define ZELK_RUN(name)                                                                        \
  case EAsk::name: {                                                                          \
    static const auto function = FindFunction<decltype(&ZELK_##name)>(module, "ZELK_" #name); \
    return Run(function, request);                                                            \
  }
    ZELK_LIBRARY_FUNCTIONS(ZELK_RUN)
#undef ZELK_RUN
    case EAsk::NewThread:
      std::thread(ServeThread).detach();
      break;
    case EAsk::Unload:
      CloseModule(module);
      break;
    case EAsk::CpuSeconds:
      reply.Put(ProcessCpuSeconds());
      break;
    case EAsk::PassRecord:
      PassRecord(request.Get<int32_t>());
      break;
    default:
      break;
  }
  return reply;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) {
    std::fprintf(stderr, "usage: application_host ADDRESS PORT LIBRARY\n");
    return 2;
  }
  try {
    testAddress = arguments[1];
    testPort = std::atoi(arguments[2]);
    module = OpenModule(arguments[3]);
    PassRecord(remote::kPassAll);
    connection = Connect(EAsk::Init);
    connection->ServeUntilClosed();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "application_host: %s\n", error.what());
    return 1;
  }
  return 0;
}
