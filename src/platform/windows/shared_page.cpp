// SPDX-License-Identifier: GPL-2.0-only
#include "platform/memory/shared_page.h"

#include <windows.h>

#include <cstring>
#include <utility>

namespace zelk {

namespace {

void* MapFile(HANDLE file, size_t bytes) {
  LARGE_INTEGER size{};
  size.QuadPart = static_cast<LONGLONG>(bytes);
  if (GetFileType(file) != FILE_TYPE_DISK || SetFilePointerEx(file, size, nullptr, FILE_BEGIN) == FALSE ||
      SetEndOfFile(file) == FALSE) {
    return nullptr;
  }
  HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(bytes), nullptr);
  if (mapping == nullptr)
    return nullptr;
  void* const memory = MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, bytes);
  CloseHandle(mapping);  // the view keeps it
  return memory;
}

}  // namespace

// Others may read and delete the file, and not write: a second process that wants it is refused.
bool CSharedPage::Map(const std::string& path, size_t bytes) {
  if (data != nullptr)
    return true;
  HANDLE handle = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                              OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE)
    return false;
  void* const memory = MapFile(handle, bytes);
  if (memory == nullptr) {
    CloseHandle(handle);
    return false;
  }
  std::memset(memory, 0, bytes);
  data = memory;
  size = bytes;
  file = reinterpret_cast<intptr_t>(handle);
  return true;
}

// Asked for when the library is unloaded: no thread runs its code then.
void CSharedPage::Leave() {
  if (data == nullptr)
    return;
  UnmapViewOfFile(std::exchange(data, nullptr));
  CloseHandle(reinterpret_cast<HANDLE>(std::exchange(file, -1)));
}

uint32_t OwnProcessNumber() {
  return static_cast<uint32_t>(GetCurrentProcessId());
}

}  // namespace zelk
