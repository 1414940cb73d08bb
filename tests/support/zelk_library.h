#pragma once

#include <string>

#include "zelk/ZelkApi.h"

namespace support {

// The shared library, loaded from a copy of its own in a fresh folder, so that each test has its own ini file and log.
// Stays loaded until the process ends (ctest runs each test in a process of its own); the folder is removed.
class CZelkLibrary {
 public:
  // ini: the text of the ini file, none when empty. Throws std::runtime_error when the library cannot be loaded.
  explicit CZelkLibrary(const std::string& ini = {});
  ~CZelkLibrary();
  CZelkLibrary(const CZelkLibrary&) = delete;
  CZelkLibrary& operator=(const CZelkLibrary&) = delete;

  const std::string& Folder() const { return folder; }
  std::string LogPath() const { return folder + "/libZelkApi.log"; }
  std::string IniPath() const { return folder + "/libZelkApi.ini"; }
  std::string LogText() const;
  // Waits for the log's writer to bring this text to the file.
  bool WaitLog(const std::string& text, int timeoutMs = 20000) const;
  void WriteIni(const std::string& text) const;
  // Shuts down and unloads; none of the functions may be called any more.
  void Unload();
  bool IsLoaded() const { return handle != nullptr; }

#define ZELK_FUNCTION(name) decltype(&::ZELK_##name) name = nullptr
  ZELK_FUNCTION(Init);
  ZELK_FUNCTION(Shutdown);
  ZELK_FUNCTION(GetChannelCount);
  ZELK_FUNCTION(OpenChannel);
  ZELK_FUNCTION(CloseChannel);
  ZELK_FUNCTION(GetLastError);
  ZELK_FUNCTION(GetChannelInfo);
  ZELK_FUNCTION(GetChannelInfoString);
  ZELK_FUNCTION(SetChannelInfo);
  ZELK_FUNCTION(SetChannelInfoString);
  ZELK_FUNCTION(Reject);
  ZELK_FUNCTION(Answer);
  ZELK_FUNCTION(Hangup);
  ZELK_FUNCTION(Dial);
  ZELK_FUNCTION(Transfer);
  ZELK_FUNCTION(DisconnectReasonToString);
  ZELK_FUNCTION(PlayBuffer);
  ZELK_FUNCTION(PlayFile);
  ZELK_FUNCTION(PlayTimeLeft);
  ZELK_FUNCTION(StopPlay);
  ZELK_FUNCTION(ConvertRawToWaveFile);
  ZELK_FUNCTION(SetEventCallback);
  ZELK_FUNCTION(SetPlayCallback);
  ZELK_FUNCTION(SetRecordCallback);
#undef ZELK_FUNCTION

 private:
  void Load(const std::string& path);

  std::string folder;
  void* handle = nullptr;
};

}  // namespace support
