// SPDX-License-Identifier: GPL-2.0-only
#include "platform/memory/shared_page.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace zelk {

namespace {

bool IsRegular(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

// A lock of the process: it ends with it, and a child that it forks does not have it.
bool Lock(int descriptor) {
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  return fcntl(descriptor, F_SETLK, &whole) == 0;
}

// Space on the disk, so that a full one is noticed here and not by a write to the memory, which would end the process.
bool TakeSpace(int descriptor, size_t bytes) {
  const auto size = static_cast<off_t>(bytes);
  return ftruncate(descriptor, size) == 0 && posix_fallocate(descriptor, 0, size) == 0;
}

}  // namespace

bool CSharedPage::Map(const std::string& path, size_t bytes) {
  if (data != nullptr)
    return true;
  const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0644);
  if (descriptor < 0)
    return false;
  void* memory = MAP_FAILED;
  if (IsRegular(descriptor) && Lock(descriptor) && TakeSpace(descriptor, bytes))
    memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) {
    close(descriptor);
    return false;
  }
  std::memset(memory, 0, bytes);
  data = memory;
  size = bytes;
  file = descriptor;
  return true;
}

// Memory of the process alone stays in the place of the file's.
void CSharedPage::Leave() {
  if (data == nullptr)
    return;
  static_cast<void>(
      mmap(std::exchange(data, nullptr), size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0));
  close(static_cast<int>(std::exchange(file, -1)));
}

uint32_t OwnProcessNumber() {
  return static_cast<uint32_t>(getpid());
}

}  // namespace zelk
