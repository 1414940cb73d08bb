// SPDX-License-Identifier: GPL-2.0-only
#include "platform/file.h"

#include "platform/simulated/files.h"
#include "platform/simulated/tasks/side.h"
#include "platform/simulated/world.h"

namespace zelk {

using sim::CFiles;
using sim::CWorld;
using sim::SFile;

namespace {

// The systems' own halves keep a file without memory of their own.
template <class State>
std::unique_ptr<State> MakeState() {
  const sim::CInSystem inSystem(sim::CScheduler::Current());
  return std::make_unique<State>();
}

// Null outside of a world, where no file can be opened.
CFiles* Files() {
  CWorld* const world = CWorld::Current();
  return world == nullptr ? nullptr : &world->Files();
}

std::shared_ptr<SFile> OpenFile(const char* path, bool forWriting, bool mayMake) {
  const sim::CInSystem inSystem(sim::CScheduler::Current());
  CFiles* const files = Files();
  return files == nullptr || path == nullptr ? nullptr : files->Open(path, forWriting, mayMake);
}

int64_t WriteFile(const std::shared_ptr<SFile>& file, size_t offset, const void* data, size_t length) {
  const sim::CInSystem inSystem(sim::CScheduler::Current());
  CFiles* const files = Files();
  return files == nullptr || file == nullptr ? -1 : files->Write(*file, offset, data, length);
}

bool CloseFile(std::shared_ptr<SFile>& file) {
  const sim::CInSystem inSystem(sim::CScheduler::Current());
  CFiles* const files = Files();
  const bool wasOpen = file != nullptr;
  file = nullptr;
  return !wasOpen || files == nullptr || files->Close();
}

}  // namespace

struct CAppendFile::SState {
  std::shared_ptr<SFile> file;
};

CAppendFile::CAppendFile() : state(MakeState<SState>()) {}

CAppendFile::~CAppendFile() {
  Close();
}

bool CAppendFile::Open(const std::string& path) {
  Close();
  state->file = OpenFile(path.c_str(), true, true);
  return IsOpen();
}

bool CAppendFile::IsOpen() const {
  return state->file != nullptr;
}

int64_t CAppendFile::Write(const void* data, size_t length) {
  return IsOpen() ? WriteFile(state->file, state->file->content.size(), data, length) : -1;
}

void CAppendFile::Close() {
  CloseFile(state->file);
}

struct CReadFile::SState {
  std::shared_ptr<SFile> file;
};

CReadFile::CReadFile() : state(MakeState<SState>()) {}

CReadFile::~CReadFile() {
  Close();
}

bool CReadFile::Open(const char* path) {
  Close();
  state->file = OpenFile(path, false, false);
  return IsOpen();
}

bool CReadFile::IsOpen() const {
  return state->file != nullptr;
}

uint64_t CReadFile::Size() const {
  return IsOpen() ? state->file->content.size() : 0;
}

size_t CReadFile::ReadAt(uint64_t offset, void* data, size_t length) {
  CFiles* const files = Files();
  return files == nullptr || !IsOpen() ? 0 : files->ReadAt(*state->file, offset, data, length);
}

// These files have no holes.
uint64_t CReadFile::BehindHole(uint64_t offset) const {
  return offset;
}

bool CReadFile::Close() {
  return CloseFile(state->file);
}

struct CUpdateFile::SState {
  std::shared_ptr<SFile> file;
  size_t position = 0;
};

CUpdateFile::CUpdateFile() : state(MakeState<SState>()) {}

CUpdateFile::~CUpdateFile() {
  Close();
}

bool CUpdateFile::OpenExisting(const char* path) {
  Close();
  std::shared_ptr<SFile> opened = OpenFile(path, true, false);
  if (opened == nullptr || opened->isLocked) {
    return false;
  }
  opened->isLocked = true;
  state->file = std::move(opened);
  state->position = 0;
  return true;
}

uint32_t CUpdateFile::Size32() const {
  return state->file == nullptr ? 0 : static_cast<uint32_t>(state->file->content.size());
}

bool CUpdateFile::Write(const void* data, size_t length) {
  size_t done = 0;
  while (done < length) {
    const int64_t written =
        WriteFile(state->file, state->position, static_cast<const char*>(data) + done, length - done);
    if (written <= 0) {
      return false;
    }
    done += static_cast<size_t>(written);
    state->position += static_cast<size_t>(written);
  }
  return true;
}

bool CUpdateFile::Close() {
  if (state->file != nullptr) {
    state->file->isLocked = false;
  }
  return CloseFile(state->file);
}

}  // namespace zelk
