// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zelk::sim {

class CWorld;

// How often calls of the library on files go wrong.
struct SFileFaults {
  uint32_t openPerMillion = 0;        // an open fails
  uint32_t writePerMillion = 0;       // a write fails
  uint32_t shortWritePerMillion = 0;  // a write takes a part only
  uint32_t shortReadPerMillion = 0;   // a read gives a part only
  uint32_t closePerMillion = 0;       // a close reports a failure; the file is closed all the same
};

// A file, with or without a name: one that was removed or replaced lives on for those that have it open.
struct SFile {
  std::string content;
  bool isLocked = false;  // by a CUpdateFile
};

// The files of a world. The library's is /world , the module in it: libZelkApi.ini and libZelkApi.log.
// Thread: tasks and acts of the world.
class CFiles {
 public:
  static constexpr uint64_t kNoLimit = UINT64_MAX;

  explicit CFiles(CWorld& owner) : world(owner) {}
  CFiles(const CFiles&) = delete;
  CFiles& operator=(const CFiles&) = delete;

  // For the test. Put replaces a file's content and keeps the file, as an editor that writes in place does.
  void Put(const std::string& path, std::string content);
  std::optional<std::string> Read(const std::string& path) const;
  bool Remove(const std::string& path);
  bool Rename(const std::string& from, const std::string& to);
  std::vector<std::string> Names() const;  // in their order
  // Nothing can be made or written at this path.
  void SetWritable(const std::string& path, bool on);
  // Bytes that may still be written to all files together.
  void SetRoom(uint64_t bytes) { room = bytes; }
  void SetFaults(const SFileFaults& toHave) { faults = toHave; }

  // For the library's side. Null when it cannot be opened.
  std::shared_ptr<SFile> Open(const std::string& path, bool forWriting, bool mayMake);
  // Bytes written at this offset, or -1.
  int64_t Write(SFile& file, size_t offset, const void* data, size_t length);
  size_t ReadAt(const SFile& file, uint64_t offset, void* data, size_t length);
  bool Close();

 private:
  void Step(size_t detail);

  CWorld& world;
  SFileFaults faults;
  uint64_t room = kNoLimit;
  std::map<std::string, std::shared_ptr<SFile>> files;
  std::set<std::string> unwritable;
};

}  // namespace zelk::sim
