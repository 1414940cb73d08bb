// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/files.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/simulated/world.h"

namespace zelk::sim {

void CFiles::Step(size_t detail) {
  world.Scheduler().Step(EStep::kFile, detail);
}

void CFiles::Put(const std::string& path, std::string content) {
  std::shared_ptr<SFile>& file = files[path];
  if (file == nullptr) {
    file = std::make_shared<SFile>();
  }
  file->content = std::move(content);
}

std::optional<std::string> CFiles::Read(const std::string& path) const {
  const auto found = files.find(path);
  return found == files.end() ? std::nullopt : std::optional(found->second->content);
}

bool CFiles::Remove(const std::string& path) {
  return files.erase(path) != 0;
}

bool CFiles::Rename(const std::string& from, const std::string& to) {
  const auto found = files.find(from);
  if (found == files.end()) {
    return false;
  }
  const std::shared_ptr<SFile> file = found->second;
  files.erase(found);
  files[to] = file;
  return true;
}

std::vector<std::string> CFiles::Names() const {
  std::vector<std::string> names;
  for (const auto& [name, file] : files) {
    names.push_back(name);
  }
  return names;
}

void CFiles::SetWritable(const std::string& path, bool on) {
  if (on) {
    unwritable.erase(path);
  } else {
    unwritable.insert(path);
  }
}

std::shared_ptr<SFile> CFiles::Open(const std::string& path, bool forWriting, bool mayMake) {
  Step(path.size());
  const auto found = files.find(path);
  const bool isRefused = forWriting && unwritable.count(path) != 0;
  if (isRefused || (found == files.end() && (!mayMake || room == 0)) || world.Random().Chance(faults.openPerMillion)) {
    return nullptr;
  }
  if (found != files.end()) {
    return found->second;
  }
  auto made = std::make_shared<SFile>();
  files[path] = made;
  return made;
}

int64_t CFiles::Write(SFile& file, size_t offset, const void* data, size_t length) {
  Step(length);
  world.Scheduler().Trace().AddBytes(data, length);
  if (world.Random().Chance(faults.writePerMillion)) {
    return -1;
  }
  size_t taken = length;
  if (length > 1 && world.Random().Chance(faults.shortWritePerMillion)) {
    taken = 1 + world.Random().Below(length - 1);
  }
  const size_t grows = offset + taken > file.content.size() ? offset + taken - file.content.size() : 0;
  if (grows > room) {
    taken -= std::min(taken, static_cast<size_t>(grows - room));
    if (taken == 0) {
      return -1;
    }
  }
  if (offset + taken > file.content.size()) {
    room -= room == kNoLimit ? 0 : offset + taken - file.content.size();
    file.content.resize(offset + taken);
  }
  std::memcpy(file.content.data() + offset, data, taken);
  return static_cast<int64_t>(taken);
}

size_t CFiles::ReadAt(const SFile& file, uint64_t offset, void* data, size_t length) {
  Step(length);
  if (offset >= file.content.size()) {
    return 0;
  }
  size_t taken = std::min(length, file.content.size() - static_cast<size_t>(offset));
  if (taken > 1 && world.Random().Chance(faults.shortReadPerMillion)) {
    taken = 1 + world.Random().Below(taken - 1);
  }
  std::memcpy(data, file.content.data() + offset, taken);
  return taken;
}

bool CFiles::Close() {
  Step(0);
  return !world.Random().Chance(faults.closePerMillion);
}

}  // namespace zelk::sim
