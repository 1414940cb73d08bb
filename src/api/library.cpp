// SPDX-License-Identifier: GPL-2.0-only
#include "api/library.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/module.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "runtime/config.h"
#include "runtime/log.h"
#include "runtime/log_writer.h"
#include "runtime/paths.h"
#include "runtime/status_page.h"

namespace zelk {

namespace {

// Read back from every trunk at start-up; the value comes as a log line of the detail class.
constexpr uint16_t kStartUpRegister = 0x1006;
static_assert(kStatusCards == kMaxCards);

}  // namespace

CLibrary::SCardEntry::SCardEntry(const CChannelTable& channels, uint32_t cardIndex)
    : card(cardIndex), handlers(channels, cardIndex) {}

CLibrary::CLibrary() {
  // The log and the configuration must outlive the cards' threads: made first, destroyed last.
  Log();
  Config();
  cardEntries.reserve(kMaxCards);
  for (uint32_t cardIndex = 0; cardIndex < kMaxCards; ++cardIndex) {
    cardEntries.push_back(std::make_unique<SCardEntry>(channels, cardIndex));
  }
}

CLibrary::~CLibrary() {
  Shutdown();
}

bool CLibrary::Init() {
  CScopedLock held(lock);
  std::string modulePath;
  if (!ModulePath(modulePath)) {
    return false;
  }
  const SLibraryPaths paths = DerivePaths(modulePath, kPathSeparator);
  Log().Start(paths.log);  // without a log the library works all the same
  Config().Read(paths.ini);
  if (initialised) {
    return true;
  }
  if (Config().statusPage) {
    StatusPage().Open(paths.status);
  }
  try {
    return StartUp();
  } catch (...) {
    TearDown();  // what memory that ran out has left half built
    throw;
  }
}

bool CLibrary::StartUp() {
  StartSockets();
  channels.Clear();
  InstallPriMessageHook();
  std::vector<SDiscoveredCard> found;
  const int32_t result = DiscoverCards(found);
  if (result < 0) {
    // A machine without a usable adapter still initialises; there is nothing to listen on either.
    initialised = true;
    return true;
  }
  const auto cardCount =
      static_cast<uint32_t>(std::min({static_cast<size_t>(result), found.size(), cardEntries.size()}));
  OpenCards(found, cardCount);
  if (!StartListener(found, cardCount)) {
    TearDown();
    return false;
  }
  initialised = true;
  return true;
}

void CLibrary::OpenCards(const std::vector<SDiscoveredCard>& found, uint32_t cardCount) {
  const CConfig& config = Config();
  uint32_t trunkTotal = 0;
  for (uint32_t cardIndex = 0; cardIndex < cardCount; ++cardIndex) {
    CCard& card = cardEntries[cardIndex]->card;
    card.SetTrunkDefaults(config.switchType, config.clientType, config.numberType);
    if (card.Open(found[cardIndex].cardAddress, kCardPort, found[cardIndex].localAddress)) {
      // Looked up once: a card may say something else at any moment.
      const uint32_t trunkCount = std::min(card.TrunkCount(), kMaxTrunks);
      AddCard(cardIndex, trunkTotal, trunkCount);
      trunkTotal += trunkCount;
    }
  }
}

void CLibrary::AddCard(uint32_t cardIndex, uint32_t firstTrunk, uint32_t trunkCount) {
  SCardEntry& entry = *cardEntries[cardIndex];
  const auto firstChannel = static_cast<uint32_t>(channels.Count());
  const uint32_t trunksWithChannels = AddTrunks(entry.card, cardIndex, trunkCount);
  if (trunksWithChannels < trunkCount) {
    LogFormat(ELogClass::kStatus, kGeneralLine, "Card %u: %u of %u Trunks have no channels, the channel table is full",
              cardIndex, trunkCount - trunksWithChannels, trunkCount);
  }
  entry.handlers.Place(firstTrunk, firstChannel);
  if (std::exchange(entry.hasReported, true)) {
    // Handlers hear of every open but the first; this one happened while they had no channels to report to.
    entry.handlers.OnCardUp();
  }
  entry.card.SetHandlers(&entry.handlers);
  for (uint32_t trunk = 0; trunk < trunkCount; ++trunk) {
    entry.card.SendRegisterRead(trunk, kStartUpRegister);
  }
}

// A trunk gets all its channels or none. Returns the number of trunks that got theirs.
uint32_t CLibrary::AddTrunks(CCard& card, uint32_t cardIndex, uint32_t trunkCount) {
  for (uint32_t trunk = 0; trunk < trunkCount; ++trunk) {
    if (static_cast<uint32_t>(channels.Count()) + kChannelsPerTrunk > kMaxChannels) {
      return trunk;
    }
    for (size_t index = 0; index < kChannelsPerTrunk; ++index) {
      const SDevicePlace place{static_cast<int32_t>(cardIndex), static_cast<int32_t>(trunk),
                               static_cast<uint32_t>(BchannelOf(index)), static_cast<uint32_t>(channels.Count())};
      channels.Add(std::make_unique<CDevice>(card, place));
    }
  }
  return trunkCount;
}

bool CLibrary::StartListener(const std::vector<SDiscoveredCard>& found, uint32_t cardCount) {
  std::vector<CCard*> cards;
  for (uint32_t cardIndex = 0; cardIndex < cardCount; ++cardIndex) {
    cards.push_back(&cardEntries[cardIndex]->card);
  }
  return listener.Start(std::move(cards), std::vector<SDiscoveredCard>(found.begin(), found.begin() + cardCount));
}

void CLibrary::Shutdown() {
  CScopedLock held(lock);
  if (initialised) {
    TearDown();
  }
}

// The listener goes first, so that it cannot open a card again; the channels last, when no card thread can reach them:
// one that is held in a callback for longer than all the waits here touches none when it comes back.
void CLibrary::TearDown() {
  listener.Stop();
  for (const std::unique_ptr<SCardEntry>& entry : cardEntries) {
    entry->card.Close();
    // A later start-up opens the card before its channels exist: nothing may be reported to these handlers then.
    entry->card.SetHandlers(nullptr);
  }
  channels.CloseAll();
  channels.Clear();
  StatusPage().Close();
  initialised = false;
}

namespace {

// Destroys the library when it is unloaded. At the end of a process that has ended all other threads first nothing is
// taken down: those threads hold what that would wait for, and the system takes everything back.
class CLibraryHolder {
 public:
  ~CLibraryHolder() {
    if (OtherThreadsAreGone()) {
      (void)library.release();
    } else {
      library.reset();
      StatusPage().Leave();
    }
  }
  CLibrary& Get() { return *library; }

 private:
  std::unique_ptr<CLibrary> library = std::make_unique<CLibrary>();
};

}  // namespace

CLibrary& Library() {
  static CLibraryHolder holder;
  return holder.Get();
}

}  // namespace zelk
