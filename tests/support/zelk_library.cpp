#include "support/zelk_library.h"

#include <dlfcn.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace support {

namespace {

namespace fs = std::filesystem;

std::string MakeFolder() {
  std::string path = (fs::temp_directory_path() / "zelk-test-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr) {
    throw std::runtime_error("no temporary folder");
  }
  return path;
}

}  // namespace

CZelkLibrary::CZelkLibrary(const std::string& ini) : folder(MakeFolder()) {
  const fs::path library(ZELK_LIBRARY_PATH);
  const fs::path copy = fs::path(folder) / library.filename();
  fs::copy_file(library, copy);
  if (!ini.empty()) {
    WriteIni(ini);
  }
  Load(copy.string());
}

CZelkLibrary::~CZelkLibrary() {
  if (IsLoaded()) {
    Shutdown();
  }
  std::error_code ignored;
  fs::remove_all(folder, ignored);
}

void CZelkLibrary::Unload() {
  Shutdown();
  dlclose(handle);
  handle = nullptr;
}

void CZelkLibrary::Load(const std::string& path) {
  handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    throw std::runtime_error(dlerror());
  }
#define ZELK_FUNCTION(name)                                              \
  name = reinterpret_cast<decltype(name)>(dlsym(handle, "ZELK_" #name)); \
  if ((name) == nullptr) {                                               \
    throw std::runtime_error("the library does not export ZELK_" #name); \
  }
  ZELK_FUNCTION(Init)
  ZELK_FUNCTION(Shutdown)
  ZELK_FUNCTION(GetChannelCount)
  ZELK_FUNCTION(OpenChannel)
  ZELK_FUNCTION(CloseChannel)
  ZELK_FUNCTION(GetLastError)
  ZELK_FUNCTION(GetChannelInfo)
  ZELK_FUNCTION(GetChannelInfoString)
  ZELK_FUNCTION(SetChannelInfo)
  ZELK_FUNCTION(SetChannelInfoString)
  ZELK_FUNCTION(Reject)
  ZELK_FUNCTION(Answer)
  ZELK_FUNCTION(Hangup)
  ZELK_FUNCTION(Dial)
  ZELK_FUNCTION(Transfer)
  ZELK_FUNCTION(DisconnectReasonToString)
  ZELK_FUNCTION(PlayBuffer)
  ZELK_FUNCTION(PlayFile)
  ZELK_FUNCTION(PlayTimeLeft)
  ZELK_FUNCTION(StopPlay)
  ZELK_FUNCTION(ConvertRawToWaveFile)
  ZELK_FUNCTION(SetEventCallback)
  ZELK_FUNCTION(SetPlayCallback)
  ZELK_FUNCTION(SetRecordCallback)
#undef ZELK_FUNCTION
}

std::string CZelkLibrary::LogText() const {
  std::ifstream file(LogPath(), std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

bool CZelkLibrary::WaitLog(const std::string& text, int timeoutMs) const {
  // A file cannot be waited for portably: look again until the limit.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (LogText().find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

void CZelkLibrary::WriteIni(const std::string& text) const {
  std::ofstream(IniPath(), std::ios::binary) << text;
}

}  // namespace support
