// SPDX-License-Identifier: GPL-2.0-only
#include "platform/riff.h"

#include <windows.h>
//
#include <mmsystem.h>

#include <algorithm>

namespace zelk {

namespace {

constexpr LONG kMostBytesAtOnce = 1L << 30;

MMCKINFO ToSystem(const SRiffChunk& chunk) {
  MMCKINFO system{};
  system.ckid = chunk.id;
  system.cksize = chunk.size;
  system.fccType = chunk.formType;
  system.dwDataOffset = chunk.dataOffset;
  return system;
}

// Pipes, consoles and other devices, which the system's functions would open: a pipe holds up whoever reads from it.
bool IsDevice(const char* path) {
  HANDLE handle = CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    return false;
  }
  const bool isDevice = GetFileType(handle) != FILE_TYPE_DISK;
  CloseHandle(handle);
  return isDevice;
}

SRiffChunk FromSystem(const MMCKINFO& system) {
  return {system.ckid, system.cksize, system.fccType, system.dwDataOffset};
}

}  // namespace

struct CRiffFile::SState {
  HMMIO file = nullptr;

  bool Descend(MMCKINFO wanted, const MMCKINFO* parent, UINT what, SRiffChunk& chunk) const {
    if (file == nullptr || mmioDescend(file, &wanted, parent, what) != MMSYSERR_NOERROR) {
      return false;
    }
    chunk = FromSystem(wanted);
    return true;
  }
};

CRiffFile::CRiffFile() : state(std::make_unique<SState>()) {}

CRiffFile::~CRiffFile() {
  Close();
}

// The system takes a text it may write to, and does not with these flags.
bool CRiffFile::Open(const char* path) {
  Close();
  if (path != nullptr && !IsDevice(path)) {
    state->file = mmioOpenA(const_cast<char*>(path), nullptr, MMIO_READ | MMIO_ALLOCBUF | MMIO_DENYNONE);
  }
  return IsOpen();
}

bool CRiffFile::IsOpen() const {
  return state->file != nullptr;
}

bool CRiffFile::DescendRiff(uint32_t formType, SRiffChunk& chunk) {
  MMCKINFO wanted{};
  wanted.fccType = formType;
  return state->Descend(wanted, nullptr, MMIO_FINDRIFF, chunk);
}

bool CRiffFile::DescendChunk(uint32_t id, const SRiffChunk& parent, SRiffChunk& chunk) {
  MMCKINFO wanted{};
  wanted.ckid = id;
  const MMCKINFO around = ToSystem(parent);
  return state->Descend(wanted, &around, MMIO_FINDCHUNK, chunk);
}

bool CRiffFile::Ascend(const SRiffChunk& chunk) {
  MMCKINFO left = ToSystem(chunk);
  return IsOpen() && mmioAscend(state->file, &left, 0) == MMSYSERR_NOERROR;
}

size_t CRiffFile::Read(void* data, size_t length) {
  size_t done = 0;
  while (IsOpen() && done < length) {
    const auto asked = static_cast<LONG>(std::min(length - done, static_cast<size_t>(kMostBytesAtOnce)));
    const LONG got = mmioRead(state->file, static_cast<char*>(data) + done, asked);
    if (got <= 0) {
      break;
    }
    done += static_cast<size_t>(got);
  }
  return done;
}

uint64_t CRiffFile::BytesLeft() const {
  if (!IsOpen()) {
    return 0;
  }
  const LONG here = mmioSeek(state->file, 0, SEEK_CUR);
  const LONG end = mmioSeek(state->file, 0, SEEK_END);
  mmioSeek(state->file, here, SEEK_SET);
  return here >= 0 && end > here ? static_cast<uint64_t>(end - here) : 0;
}

bool CRiffFile::Close() {
  if (state->file == nullptr) {
    return true;
  }
  const bool closed = mmioClose(state->file, 0) == MMSYSERR_NOERROR;
  state->file = nullptr;
  return closed;
}

}  // namespace zelk
