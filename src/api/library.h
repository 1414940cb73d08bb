// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "call/channel_handlers.h"
#include "call/channel_table.h"
#include "card/announcement_listener.h"
#include "card/card.h"
#include "card/discovery.h"
#include "platform/mutex.h"

namespace zelk {

// The whole library: the cards, the channel table and the listener for restarted cards, built by Init and taken
// down by Shutdown. One instance a process (Library()). Thread: Init and Shutdown any, one at a time (a lock sees to
// it), never inside a callback: both block for seconds in the worst case, Shutdown until the cards' threads have ended.
// Channels may be used by any thread between the two. Owns cards, handlers and channels. Channels are destroyed only
// once every card is closed.
class CLibrary {
 public:
  CLibrary();
  ~CLibrary();  // Shuts down: no thread may be left when the library is unloaded.
  CLibrary(const CLibrary&) = delete;
  CLibrary& operator=(const CLibrary&) = delete;

  // False when the library's own file cannot be told or the listener gets no thread; true also without any card.
  bool Init();
  void Shutdown();

  CChannelTable& Channels() { return channels; }

 private:
  // An entry lives from load to unload; discovery and the listener fill and re-open the same ones.
  struct SCardEntry {
    SCardEntry(const CChannelTable& channels, uint32_t cardIndex);
    CCard card;
    CChannelHandlers handlers;
    bool hasReported = false;  // the card was given its handlers by an earlier start-up
  };

  bool StartUp() ZELK_REQUIRES(lock);
  void TearDown() ZELK_REQUIRES(lock);
  void OpenCards(const std::vector<SDiscoveredCard>& found, uint32_t cardCount) ZELK_REQUIRES(lock);
  void AddCard(uint32_t cardIndex, uint32_t firstTrunk, uint32_t trunkCount) ZELK_REQUIRES(lock);
  uint32_t AddTrunks(CCard& card, uint32_t cardIndex, uint32_t trunkCount) ZELK_REQUIRES(lock);
  bool StartListener(const std::vector<SDiscoveredCard>& found, uint32_t cardCount) ZELK_REQUIRES(lock);

  CMutex lock;
  bool initialised ZELK_GUARDED_BY(lock) = false;
  CChannelTable channels;
  // After the table, so that they (and whatever thread of theirs) are gone before it.
  std::vector<std::unique_ptr<SCardEntry>> cardEntries;
  CAnnouncementListener listener ZELK_GUARDED_BY(lock);
};

CLibrary& Library();

}  // namespace zelk
