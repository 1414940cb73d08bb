// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>
#include <string>

#include "native_cpu_time.h"
#include "native_module.h"
#include "remote/remote_library.h"
#include "support/library_functions.h"
#include "zelk/ZelkApi.h"

namespace support {

// The shared library, loaded from a copy of its own in a fresh folder, so that each test has its own ini file and log.
// Where the environment names an application host (remote/remote_library.h) the library is in that other process.
// Stays loaded until the process ends (ctest runs each test in a process of its own); the folder is removed.
class CZelkLibrary {
 public:
  // ini: the text of the ini file, none when empty. Throws std::runtime_error when the library cannot be loaded.
  explicit CZelkLibrary(const std::string& ini = {});
  ~CZelkLibrary();
  CZelkLibrary(const CZelkLibrary&) = delete;
  CZelkLibrary& operator=(const CZelkLibrary&) = delete;

  // The built library, of which the copies are made.
  static std::string File();

  const std::string& Folder() const { return folder; }
  std::string LogPath() const { return stem + ".log"; }
  std::string IniPath() const { return stem + ".ini"; }
  std::string LogText() const;
  // Waits for the log's writer to bring this text to the file.
  bool WaitLog(const std::string& text, int timeoutMs = 20000) const;
  void WriteIni(const std::string& text) const;
  // Shuts down and unloads; none of the functions may be called any more.
  void Unload();
  // Record callbacks of a library in another process are dear: from now on only those of this channel and of others
  // that were asked for like this come here; remote::kPassNone, then kPassAll or channels. In this process all come,
  // always.
  void PassRecord(int32_t channel) const {
    if (remote != nullptr) {
      remote->PassRecord(channel);
    }
  }
  // Processor time of the process that has the library.
  double CpuSeconds() const { return remote != nullptr ? remote->CpuSeconds() : ProcessCpuSeconds(); }
  // Wine takes the socket's error for itself while it polls, so that a reset reads as the end of the connection.
  bool SeesResets() const { return remote == nullptr; }
  bool IsLoaded() const { return Init != nullptr; }

#define ZELK_FUNCTION(name) decltype(&::ZELK_##name) name = nullptr;
  ZELK_LIBRARY_FUNCTIONS(ZELK_FUNCTION)
#undef ZELK_FUNCTION

 private:
  void LoadHere(const std::string& path);
  void LoadRemote(const std::string& path);

  std::string folder;
  std::string stem;                                // of the paths of its files: its own without the last six characters
  Module module = nullptr;                         // in this process
  std::unique_ptr<remote::CRemoteLibrary> remote;  // or in another
};

}  // namespace support
