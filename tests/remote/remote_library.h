// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "remote/connection.h"
#include "zelk/ZelkApi.h"

namespace remote {

// The library inside an application host, a process of its own that may run on another system: the command that starts
// the host comes from the environment (scripts/wine-system-tests sets it). Each thread of the test that calls has a
// thread of its own there, and each thread of the library that calls back has one here. One at a time.
class CRemoteLibrary {
 public:
  // What the environment says: the host's command, the library it loads, and the test's address as the host sees it.
  struct SPlace {
    std::string command;
    std::string library;
    std::string address;
  };
  // Null when the library is to be loaded into the test's own process.
  static const SPlace* Place();

  // Starts the host, which loads the library at this path. Throws std::runtime_error when it does not come.
  explicit CRemoteLibrary(const std::string& libraryPath);
  ~CRemoteLibrary();
  CRemoteLibrary(const CRemoteLibrary&) = delete;
  CRemoteLibrary& operator=(const CRemoteLibrary&) = delete;

  void Unload();
  double CpuSeconds();
  // Of a channel, or kPassAll, or kPassNone.
  void PassRecord(int32_t channel);

#define ZELK_REMOTE(name) static decltype(&::ZELK_##name) name();
  ZELK_LIBRARY_FUNCTIONS(ZELK_REMOTE)
#undef ZELK_REMOTE

  // Asks on this thread's connection.
  static CMessage AskHost(const CMessage& request);
  // A text that lives until the library object goes.
  static const char* Keep(const char* text);
  void SetCallback(ZelkEventCallback callback) {
    onEvent = callback;
  }
  void SetCallback(ZelkPlayCallback callback) {
    onPlay = callback;
  }
  void SetCallback(ZelkRecordCallback callback) {
    onRecord = callback;
  }
  static CRemoteLibrary& Current() {
    return *current;
  }

 private:
  void StartHost(const std::string& libraryPath);
  void AcceptUntilClosed();
  CConnection& ThreadConnection();
  CMessage Serve(CMessage& request);

  static CRemoteLibrary* current;

  const uint64_t id;  // of this object among all there ever were
  int listener = -1;
  int port = 0;
  int host = -1;  // process
  std::mutex lock;
  std::condition_variable arrived;
  std::unique_ptr<CConnection> control;                // guarded by lock
  std::deque<std::unique_ptr<CConnection>> connected;  // guarded by lock; for threads of the test that wait for one
  std::vector<std::thread> servers;                    // guarded by lock; one a thread of the library
  std::set<std::string> texts;                         // guarded by lock
  std::atomic<ZelkEventCallback> onEvent{nullptr};
  std::atomic<ZelkPlayCallback> onPlay{nullptr};
  std::atomic<ZelkRecordCallback> onRecord{nullptr};
  std::thread acceptor;
};

}  // namespace remote
