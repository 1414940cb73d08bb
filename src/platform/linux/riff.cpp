// SPDX-License-Identifier: GPL-2.0-only
#include "platform/riff.h"

#include "platform/riff_walk.h"

namespace zelk {

struct CRiffFile::SState {
  CRiffWalk walk;
};

CRiffFile::CRiffFile() : state(std::make_unique<SState>()) {}

CRiffFile::~CRiffFile() {
  Close();
}

bool CRiffFile::Open(const char* path) {
  return state->walk.Open(path);
}

bool CRiffFile::IsOpen() const {
  return state->walk.IsOpen();
}

bool CRiffFile::DescendRiff(uint32_t formType, SRiffChunk& chunk) {
  return state->walk.DescendRiff(formType, chunk);
}

bool CRiffFile::DescendChunk(uint32_t id, const SRiffChunk& parent, SRiffChunk& chunk) {
  return state->walk.DescendChunk(id, parent, chunk);
}

bool CRiffFile::Ascend(const SRiffChunk& chunk) {
  return state->walk.Ascend(chunk);
}

size_t CRiffFile::Read(void* data, size_t length) {
  return state->walk.Read(data, length);
}

uint64_t CRiffFile::BytesLeft() const {
  return state->walk.BytesLeft();
}

bool CRiffFile::Close() {
  return state->walk.Close();
}

}  // namespace zelk
