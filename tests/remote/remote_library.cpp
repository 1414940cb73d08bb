// SPDX-License-Identifier: GPL-2.0-only
#include "remote/remote_library.h"

#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>

#include "native_sockets.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): POSIX has it in no header

namespace remote {

namespace {

constexpr std::chrono::seconds kHostStart{60};  // an emulated system is slow to start

// This thread's connection, and the library object that it belongs to.
thread_local std::shared_ptr<CConnection> threadConnection;
thread_local uint64_t threadOwner = 0;
std::atomic<uint64_t> lastId{0};

template <class T>
void PutArgument(CMessage& request, T value) {
  if constexpr (std::is_same_v<T, ZelkEventCallback> || std::is_same_v<T, ZelkPlayCallback> ||
                std::is_same_v<T, ZelkRecordCallback>) {
    CRemoteLibrary::Current().SetCallback(value);
    request.Put(value != nullptr);
  } else {
    request.Put(value);
  }
}

template <EAsk kAsk, class Function>
struct Relay;

template <EAsk kAsk, class R, class... A>
struct Relay<kAsk, R(ZELK_CALL*)(A...)> {
  static R ZELK_CALL Call(A... arguments) {
    CMessage request(kAsk);
    (PutArgument(request, arguments), ...);
    CMessage reply = CRemoteLibrary::AskHost(request);
    if constexpr (std::is_same_v<R, const char*>) {
      return CRemoteLibrary::Keep(reply.Get<const char*>());
    } else if constexpr (!std::is_void_v<R>) {
      return reply.Get<R>();
    }
  }
};

// The one function whose argument is memory of a length that another argument gives.
template <>
struct Relay<EAsk::PlayBuffer, decltype(&::ZELK_PlayBuffer)> {
  static bool ZELK_CALL Call(int32_t channel, const void* data, uint32_t length) {
    CMessage request(EAsk::PlayBuffer);
    request.Put(channel);
    request.PutMemory(data, length);
    request.Put(length);
    return CRemoteLibrary::AskHost(request).Get<bool>();
  }
};

}  // namespace

CRemoteLibrary* CRemoteLibrary::current = nullptr;

#define ZELK_REMOTE(name)                                     \
  decltype(&::ZELK_##name) CRemoteLibrary::name() {           \
    return Relay<EAsk::name, decltype(&::ZELK_##name)>::Call; \
  }
ZELK_LIBRARY_FUNCTIONS(ZELK_REMOTE)
#undef ZELK_REMOTE

const CRemoteLibrary::SPlace* CRemoteLibrary::Place() {
  static const SPlace place = [] {
    const auto variable = [](const char* name) {
      const char* value = std::getenv(name);
      return std::string(value == nullptr ? "" : value);
    };
    return SPlace{variable("ZELK_APPLICATION_HOST"), variable("ZELK_APPLICATION_LIBRARY"),
                  variable("ZELK_APPLICATION_TEST_ADDRESS")};
  }();
  return place.command.empty() ? nullptr : &place;
}

CRemoteLibrary::CRemoteLibrary(const std::string& libraryPath) : id(++lastId) {
  current = this;
  listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in here{};
  here.sin_family = AF_INET;
  socklen_t size = sizeof here;
  if (bind(listener, reinterpret_cast<const sockaddr*>(&here), size) != 0 || listen(listener, 64) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&here), &size) != 0) {
    throw std::runtime_error("no port for the application host");
  }
  port = ntohs(here.sin_port);
  acceptor = std::thread([this] { AcceptUntilClosed(); });
  StartHost(libraryPath);
  std::unique_lock<std::mutex> guard(lock);
  if (!arrived.wait_for(guard, kHostStart, [this] { return control != nullptr; })) {
    throw std::runtime_error("the application host did not start: " + Place()->command);
  }
}

CRemoteLibrary::~CRemoteLibrary() {
  threadConnection.reset();
  {
    const std::lock_guard<std::mutex> guard(lock);
    control.reset();  // the host ends, and its connections with it
  }
  waitpid(host, nullptr, 0);
  shutdown(listener, SHUT_RDWR);
  acceptor.join();
  CloseSocket(listener);
  for (std::thread& server : servers) {
    server.join();
  }
  current = nullptr;
}

void CRemoteLibrary::StartHost(const std::string& libraryPath) {
  const std::string command =
      "exec " + Place()->command + " " + Place()->address + " " + std::to_string(port) + " " + libraryPath;
  const char* arguments[] = {"sh", "-c", command.c_str(), nullptr};
  // The host must not hold the test's sockets: they would stay open behind the test's back.
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  pid_t started = -1;
  const int failed = posix_spawnp(&started, "sh", &actions, nullptr, const_cast<char**>(arguments), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) {
    throw std::runtime_error("cannot start the application host");
  }
  host = started;
}

void CRemoteLibrary::AcceptUntilClosed() {
  while (true) {
    const int made = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (made < 0) {
      return;
    }
    auto connection = std::make_unique<CConnection>(made, [this](CMessage& request) { return Serve(request); });
    const std::optional<EAsk> purpose = connection->AwaitGreeting();
    if (!purpose.has_value()) {
      continue;
    }
    const std::lock_guard<std::mutex> guard(lock);
    switch (*purpose) {
      case EAsk::Init:
        control = std::move(connection);
        break;
      case EAsk::NewThread:
        connected.push_back(std::move(connection));
        break;
      default:
        servers.emplace_back([this, shared = std::shared_ptr<CConnection>(std::move(connection))] {
          threadConnection = shared;
          threadOwner = id;
          shared->ServeUntilClosed();
          threadConnection.reset();
        });
    }
    arrived.notify_all();
  }
}

CConnection& CRemoteLibrary::ThreadConnection() {
  if (threadOwner != id) {
    std::unique_lock<std::mutex> guard(lock);
    control->Ask(CMessage(EAsk::NewThread));
    if (!arrived.wait_for(guard, kHostStart, [this] { return !connected.empty(); })) {
      throw std::runtime_error("the application host gives no thread");
    }
    threadConnection = std::move(connected.front());
    connected.pop_front();
    threadOwner = id;
  }
  return *threadConnection;
}

CMessage CRemoteLibrary::AskHost(const CMessage& request) {
  return current->ThreadConnection().Ask(request);
}

const char* CRemoteLibrary::Keep(const char* text) {
  if (text == nullptr) {
    return nullptr;
  }
  const std::lock_guard<std::mutex> guard(current->lock);
  return current->texts.insert(text).first->c_str();
}

CMessage CRemoteLibrary::Serve(CMessage& request) {
  CMessage reply(request.ask, true);
  const auto channel = request.Get<int32_t>();
  if (request.ask == EAsk::OnEvent) {
    const auto event = request.Get<uint32_t>();
    const auto param = request.Get<int32_t>();
    if (ZelkEventCallback callback = onEvent) {
      callback(channel, event, param);
    }
    return reply;
  }
  const CMessage::SMemory sound = request.GetMemory();
  const auto length = static_cast<uint32_t>(sound.length);
  if (request.ask == EAsk::OnRecord) {
    if (ZelkRecordCallback callback = onRecord) {
      callback(static_cast<uint32_t>(channel), sound.data, length);
    }
  } else {
    std::vector<uint8_t> block(sound.data, sound.data + length);
    if (ZelkPlayCallback callback = onPlay) {
      callback(static_cast<uint32_t>(channel), block.data(), length);
    }
    reply.PutMemory(block.data(), length);
  }
  return reply;
}

void CRemoteLibrary::Unload() {
  const std::lock_guard<std::mutex> guard(lock);
  control->Ask(CMessage(EAsk::Unload));
}

double CRemoteLibrary::CpuSeconds() {
  const std::lock_guard<std::mutex> guard(lock);
  return control->Ask(CMessage(EAsk::CpuSeconds)).Get<double>();
}

void CRemoteLibrary::PassRecord(int32_t channel) {
  CMessage request(EAsk::PassRecord);
  request.Put(channel);
  AskHost(request);
}

}  // namespace remote
