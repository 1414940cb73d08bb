// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/program/library_files.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "common/child_process.h"
#include "doctor/program/machine.h"
#include "trace/core/trace_error.h"

namespace doctor {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kSuffix = 6;  // "-64.so", "64.dll": settings, log and page have others in its place
constexpr std::uintmax_t kMostOfIni = 16U << 20;

fs::path LibraryPath(const std::string& path) {
  std::error_code ignored;
  if (!fs::is_directory(path, ignored)) {
    return fs::absolute(path, ignored);
  }
  for (const char* name : {"libZelkApi-64.so", "ZelkApi64.dll"}) {
    if (fs::exists(fs::path(path) / name, ignored)) {
      return fs::absolute(fs::path(path) / name, ignored);
    }
  }
  return fs::absolute(fs::path(path) / "libZelkApi-64.so", ignored);
}

void ReadIniFile(SLibraryFacts& facts) {
  std::error_code failed;
  if (!fs::exists(facts.iniPath, failed)) {
    return;
  }
  const std::uintmax_t size = fs::file_size(facts.iniPath, failed);
  std::ifstream file(facts.iniPath, std::ios::binary);
  if (failed || !file) {
    facts.iniFault = failed ? failed.message() : "it cannot be opened";
  } else if (size > kMostOfIni) {
    facts.iniFault = "it is longer than any settings are";
  } else {
    facts.ini = ReadIni({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
  }
}

bool IsDChannelFile(const fs::path& file) {
  const std::string name = file.filename().string();
  return name.starts_with("zelk-") && name.ends_with(".hdlc");
}

bool IsWrittenByLibrary(const fs::path& file, const std::string& stem) {
  const std::string name = file.filename().string();
  return name == stem + ".log" || name == stem + ".status" || IsDChannelFile(file);
}

void LookAtFolder(SLibraryFacts& facts, const std::string& stem) {
  facts.isFolderWritable = MayWrite(facts.folder);
  std::error_code failed;
  for (fs::directory_iterator each(facts.folder, failed), end; !failed && each != end; each.increment(failed)) {
    if (IsWrittenByLibrary(each->path(), stem) && !MayWrite(each->path().string())) {
      facts.notWritable.push_back(each->path().string());
    }
    if (IsDChannelFile(each->path())) {
      facts.dChannelFiles.push_back(each->path().string());
    }
  }
  std::sort(facts.dChannelFiles.begin(), facts.dChannelFiles.end());
  const fs::space_info space = fs::space(facts.folder, failed);
  if (!failed) {
    facts.diskFreeBytes = space.available;
  }
}

void ReadPage(SLibraryFacts& facts, const std::string& path) {
  std::error_code failed;
  if (!fs::exists(path, failed)) {
    return;
  }
  try {
    facts.page = trace::ReadStatusPage(path);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    facts.pageNotLive =
        trace::WhyNotLive(*facts.page, std::chrono::duration_cast<std::chrono::nanoseconds>(now).count(),
                          tool::ProcessLives(facts.page->process), path);
  } catch (const trace::CTraceError& error) {
    facts.pageFault = error.what();
  }
}

}  // namespace

SLogFacts LookAtLog(const std::string& path) {
  std::error_code ignored;
  std::ifstream file;
  if (fs::is_regular_file(path, ignored)) {
    file.open(path, std::ios::binary);
  }
  if (!file.is_open()) {
    SLogFacts facts;
    facts.path = path;
    facts.fault = "it cannot be opened";
    return facts;
  }
  return ReadLog(file, path);
}

SLibraryFacts LookAtLibrary(const std::string& path) {
  SLibraryFacts facts;
  const fs::path library = LibraryPath(path);
  facts.path = library.string();
  facts.folder = library.parent_path().string();
  std::error_code ignored;
  facts.hasLibrary = fs::is_regular_file(library, ignored);
  if (!facts.hasLibrary || library.filename().string().size() <= kSuffix) {
    facts.hasLibrary = false;
    return facts;
  }
  const std::string base = facts.path.substr(0, facts.path.size() - kSuffix);
  facts.iniPath = base + ".ini";
  ReadIniFile(facts);
  LookAtFolder(facts, fs::path(base).filename().string());
  ReadPage(facts, base + ".status");
  if (fs::exists(base + ".log", ignored)) {
    facts.log = LookAtLog(base + ".log");
  }
  return facts;
}

}  // namespace doctor
