// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/status_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "trace/core/text.h"
#include "trace/core/trace_error.h"

namespace trace {
namespace {

constexpr char kMagic[] = "ZELKSTAT";
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kCards = 20;
constexpr std::size_t kTrunks = 8;
constexpr std::size_t kCardsAt = 256;
constexpr std::size_t kCardBytes = 128;
constexpr std::size_t kTrunksAt = kCardsAt + kCards * kCardBytes;
constexpr std::size_t kTrunkBytes = 64;
constexpr std::size_t kChannelsAt = kTrunksAt + kCards * kTrunks * kTrunkBytes;
constexpr std::size_t kChannelBytes = 64;
constexpr std::size_t kSize = kChannelsAt + kCards * kTrunks * tool::kTimeslots * kChannelBytes;
static_assert(kSize == 340736);
constexpr Time kStale = 15 * kSecond;

// A record of the page, field by field; the page is as long as it must be.
class CRecord {
 public:
  CRecord(ByteView page, std::size_t begin) : bytes(page), at(begin) {}

  std::uint32_t Word(std::size_t offset) const { return Number<std::uint32_t>(offset); }
  std::uint64_t Long(std::size_t offset) const { return Number<std::uint64_t>(offset); }
  // Far beyond any clock is never: the page may be anything.
  Time Moment(std::size_t offset) const {
    const std::uint64_t milliseconds = Long(offset);
    return milliseconds < (std::uint64_t{1} << 42) ? static_cast<Time>(milliseconds) * kMillisecond : 0;
  }
  CRecord Part(std::size_t offset) const { return {bytes, at + offset}; }

 private:
  template <class Value>
  Value Number(std::size_t offset) const {
    Value value{};
    std::memcpy(&value, bytes.data() + at + offset, sizeof value);
    return value;
  }

  ByteView bytes;
  std::size_t at;
};

SPageChannel ChannelOf(const CRecord& record) {
  SPageChannel channel;
  if (const std::uint32_t number = record.Word(0); number != 0) {
    channel.number = number - 1;
  }
  channel.isOpen = record.Word(4) != 0;
  channel.isUp = record.Word(8) != 0;
  channel.state = static_cast<EPageCall>(std::min(record.Word(12), static_cast<std::uint32_t>(EPageCall::kLost)));
  channel.changed = record.Moment(16);
  channel.offered = record.Word(24);
  channel.dialled = record.Word(28);
  channel.connected = record.Word(32);
  channel.cause = record.Word(36);
  channel.queuedBytes = record.Word(40);
  channel.lostReceived = record.Word(44);
  channel.lostSent = record.Word(48);
  return channel;
}

SPageTrunk TrunkOf(const CRecord& record, ByteView page, std::size_t position) {
  SPageTrunk trunk;
  trunk.lineStatus = record.Word(0);
  trunk.isUp = record.Word(4) != 0;
  trunk.changed = record.Moment(8);
  trunk.hdlcErrors = record.Word(16);
  trunk.queueOverflows = record.Word(20);
  trunk.linkResets = record.Word(24);
  for (std::size_t slot = 0; slot < trunk.channels.size(); ++slot) {
    trunk.channels[slot] = ChannelOf({page, kChannelsAt + (position * trunk.channels.size() + slot) * kChannelBytes});
  }
  return trunk;
}

SPageCard CardOf(ByteView page, std::size_t number) {
  const CRecord record(page, kCardsAt + number * kCardBytes);
  SPageCard card;
  card.number = static_cast<std::uint32_t>(number);
  card.state = record.Word(0);
  card.serial = record.Word(4);
  for (std::size_t i = 0; i < 4; ++i) {
    card.address = card.address << 8 | page[kCardsAt + number * kCardBytes + 8 + i];
  }
  card.changed = record.Moment(16);
  card.opens = record.Word(24);
  for (std::size_t i = 0; i < card.threads.size(); ++i) {
    const CRecord thread = record.Part(32 + i * 24);
    card.threads[i] = {thread.Moment(0), thread.Moment(8), thread.Word(16)};
  }
  const std::size_t trunks = std::min<std::size_t>(record.Word(12), kTrunks);
  for (std::size_t i = 0; i < trunks; ++i) {
    const std::size_t position = number * kTrunks + i;
    card.trunks.push_back(TrunkOf({page, kTrunksAt + position * kTrunkBytes}, page, position));
  }
  return card;
}

[[noreturn]] void Refuse(const std::string& name, const std::string& why) {
  throw CTraceError(EExit::kBadInput, name + ": " + why);
}

void Check(ByteView bytes, const std::string& name) {
  if (bytes.size() < kCardsAt || std::memcmp(bytes.data(), kMagic, 8) != 0) {
    Refuse(name, "is no status page of the library");
  }
  const CRecord header(bytes, 0);
  if (header.Word(8) != kVersion) {
    Refuse(name,
           fmt::format("is a status page of version {}, this program reads version {}", header.Word(8), kVersion));
  }
  if (header.Word(12) != kSize || bytes.size() != kSize) {
    Refuse(name, fmt::format("is a status page of {} bytes, says that it has {} and should have {}", bytes.size(),
                             header.Word(12), kSize));
  }
}

}  // namespace

SStatusPage ParseStatusPage(ByteView bytes, const std::string& name) {
  Check(bytes, name);
  const CRecord header(bytes, 0);
  SStatusPage page;
  page.process = header.Word(16);
  page.isRunning = header.Word(20) == 1;
  page.started = header.Moment(24);
  page.heartbeat = header.Moment(32);
  page.starts = header.Word(52);
  for (std::size_t i = 0; i < page.callbacks.size(); ++i) {
    const CRecord record = header.Part(56 + i * 24);
    page.callbacks[i] = {record.Long(0), record.Moment(8), record.Word(16), record.Word(20)};
  }
  for (std::size_t number = 0; number < kCards; ++number) {
    SPageCard card = CardOf(bytes, number);
    for (const SPageThread& thread : card.threads) {
      page.heartbeat = std::max(page.heartbeat, thread.seen);
    }
    if (card.state != 0) {
      page.cards.push_back(std::move(card));
    }
  }
  return page;
}

SStatusPage ReadStatusPage(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw CTraceError(EExit::kBadInput, path + ": cannot be opened (" + std::strerror(errno) + ")");
  }
  // A little more than a page, so that a longer file is seen to be one.
  Bytes bytes(kSize + 1);
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return ParseStatusPage(bytes, path);
}

std::string WhyNotLive(const SStatusPage& page, Time now, bool processLives, const std::string& name) {
  if (!processLives) {
    return fmt::format("{}: process {}, whose page it is, does not live any more; its last sign of life was at {}",
                       name, page.process, IsoTime(page.heartbeat));
  }
  if (!page.isRunning) {
    return fmt::format("{}: the library of process {} is shut down", name, page.process);
  }
  if (now - page.heartbeat > kStale) {
    return fmt::format("{}: process {} has given no sign of life since {}", name, page.process,
                       IsoTime(page.heartbeat));
  }
  return {};
}

const char* PageCardStateName(std::uint32_t state) {
  constexpr std::array<const char*, 4> kNames = {"none", "open", "lost", "closed"};
  return state < kNames.size() ? kNames[state] : "unknown";
}

const char* PageThreadName(std::size_t thread) {
  constexpr std::array<const char*, 3> kNames = {"control", "receive", "pacer"};
  return kNames.at(thread);
}

const char* PageCallbackName(std::size_t kind) {
  constexpr std::array<const char*, 3> kNames = {"event", "play", "record"};
  return kNames.at(kind);
}

}  // namespace trace
