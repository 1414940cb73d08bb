// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

struct q931_call;  // libpri's call record, opaque outside pri_adapter.cpp

namespace zelk {

// A call, by a number that no other call of this process ever has. libpri's own name for a call is the address of its
// record, which the next call may have again as soon as the record is freed.
class CCallHandle {
 public:
  constexpr CCallHandle() = default;
  constexpr CCallHandle(std::nullptr_t) {}  // no call; NOLINT(google-explicit-constructor)
  constexpr explicit CCallHandle(uint64_t callNumber) : number(callNumber) {}
  friend constexpr bool operator==(CCallHandle, CCallHandle) = default;

 private:
  uint64_t number = 0;
};

using PriCall = CCallHandle;

// The calls of one controller and their handles, kept in step with libpri's list of records.
// Thread: under the trunk lock. Update allocates nothing when Reserve has made room; Reserve may throw.
class CCallRegistry {
 public:
  // Room for one more call than there are.
  void Reserve();
  // Both null for what is not in the registry.
  CCallHandle HandleOf(const q931_call* record) const;
  q931_call* RecordOf(CCallHandle call) const;

  // Takes over the list that begins at `first`: records that are gone lose their handles, new ones get theirs. libpri
  // adds a record after all others, so one that was freed and is in use again comes after those that stayed.
  template <class Next>
  void Update(q931_call* first, Next next) {
    size_t kept = 0;
    size_t known = 0;
    const size_t before = entries.size();
    for (q931_call* record = first; record != nullptr; record = next(record)) {
      while (known < before && entries[known].record != record) {
        ++known;  // gone
      }
      if (known < before) {
        entries[kept++] = entries[known++];
      } else if (kept < before) {
        entries[kept++] = {record, NewHandle()};
      } else {
        entries.push_back({record, NewHandle()});
        ++kept;
      }
    }
    entries.resize(kept);
  }

 private:
  struct SEntry {
    q931_call* record = nullptr;
    CCallHandle call;
  };

  static CCallHandle NewHandle();

  std::vector<SEntry> entries;
};

}  // namespace zelk
