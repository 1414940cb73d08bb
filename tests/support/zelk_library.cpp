// SPDX-License-Identifier: GPL-2.0-only
#include "support/zelk_library.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/eventually.h"

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

std::string CZelkLibrary::File() {
  const auto* place = remote::CRemoteLibrary::Place();
  return place == nullptr ? ZELK_LIBRARY_PATH : place->library;
}

CZelkLibrary::CZelkLibrary(const std::string& ini) : folder(MakeFolder()) {
  const fs::path library(File());
  const fs::path copy = fs::path(folder) / library.filename();
  fs::copy_file(library, copy);
  stem = copy.string().substr(0, copy.string().size() - std::string("64.dll").size());
  if (!ini.empty()) {
    WriteIni(ini);
  }
  if (remote::CRemoteLibrary::Place() == nullptr) {
    LoadHere(copy.string());
  } else {
    LoadRemote(copy.string());
  }
}

CZelkLibrary::~CZelkLibrary() {
  if (IsLoaded()) {
    Shutdown();
  }
  remote.reset();
  std::error_code ignored;
  fs::remove_all(folder, ignored);
}

void CZelkLibrary::Unload() {
  Shutdown();
  if (remote != nullptr) {
    remote->Unload();
  } else {
    CloseModule(module);
  }
  Init = nullptr;
}

void CZelkLibrary::LoadHere(const std::string& path) {
  module = OpenModule(path);
#define ZELK_FUNCTION(name)                                              \
  name = FindFunction<decltype(name)>(module, "ZELK_" #name);            \
  if ((name) == nullptr) {                                               \
    throw std::runtime_error("the library does not export ZELK_" #name); \
  }
  ZELK_LIBRARY_FUNCTIONS(ZELK_FUNCTION)
#undef ZELK_FUNCTION
}

void CZelkLibrary::LoadRemote(const std::string& path) {
  remote = std::make_unique<remote::CRemoteLibrary>(path);
#define ZELK_FUNCTION(name) name = remote::CRemoteLibrary::name();
  ZELK_LIBRARY_FUNCTIONS(ZELK_FUNCTION)
#undef ZELK_FUNCTION
}

std::string CZelkLibrary::LogText() const {
  std::ifstream file(LogPath(), std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

bool CZelkLibrary::WaitLog(const std::string& text, int timeoutMs) const {
  // A file cannot be waited for portably. It may be long: not too often.
  constexpr std::chrono::milliseconds kBetweenLooks{20};
  return Eventually([&] { return LogText().find(text) != std::string::npos; }, std::chrono::milliseconds(timeoutMs),
                    kBetweenLooks);
}

void CZelkLibrary::WriteIni(const std::string& text) const {
  std::ofstream(IniPath(), std::ios::binary) << text;
}

}  // namespace support
