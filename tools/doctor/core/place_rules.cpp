// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <algorithm>

#include "doctor/core/rules.h"
#include "trace/core/packet.h"
#include "trace/core/text.h"

namespace doctor {
namespace {

constexpr std::uint64_t kMegabyte = 1 << 20;
constexpr std::uint64_t kDiskFull = 20 * kMegabyte;
constexpr std::uint64_t kDiskLow = 500 * kMegabyte;
constexpr std::uint64_t kReceiveBuffer = 4 * kMegabyte;  // that the library asks for
constexpr std::uint64_t kSlowUs = 200'000;               // a third of what the usual AudioBuffers keep
constexpr std::uint32_t kFewSlow = 9;                    // calls of more than a block
constexpr std::uint32_t kFewBlocks = 9;                  // of 20 ms
constexpr std::uint32_t kFewAnHour = 10;
constexpr std::uint32_t kThreadLateMs = 1000;
constexpr double kHour = 3600.0 * static_cast<double>(trace::kSecond);

std::string HolderText(const tool::SPortHolder& holder) {
  if (holder.pid == 0) {
    return "a process that the system does not name";
  }
  return fmt::format("process {}{}", holder.pid, holder.name.empty() ? "" : " (" + holder.name + ")");
}

std::string At(trace::Time time) {
  return time == 0 ? "" : ", at " + trace::IsoTime(time);
}

void CheckCallbacks(const trace::SStatusPage& page, Findings& findings) {
  for (std::size_t kind = 0; kind < page.callbacks.size(); ++kind) {
    const trace::SPageCallback& callback = page.callbacks[kind];
    if (callback.slowestUs >= kSlowUs || callback.overBlock > kFewSlow) {
      findings.push_back(
          Find("callback-slow",
               fmt::format("The {} callback took {} ms once; {} of its calls {} longer than the 20 ms of a block.",
                           trace::PageCallbackName(kind), callback.slowestUs / 1000, callback.overBlock,
                           callback.overBlock == 1 ? "was" : "were"),
               {fmt::format("channel {}{}", callback.slowestChannel, At(callback.slowestAt))}));
    }
  }
}

void CheckTrunk(const trace::SPageCard& card, std::size_t index, double hours, Findings& findings) {
  const trace::SPageTrunk& trunk = card.trunks[index];
  const std::string name = fmt::format("{}-{}", card.serial, index + 1);
  if (trunk.queueOverflows > 0) {
    findings.push_back(Find("queue-overflow", fmt::format("Trunk {}: the card's frame queue has overflowed.", name),
                            {Counted(trunk.queueOverflows, "overflow")}));
  }
  if (trunk.linkResets > 0) {
    findings.push_back(Find("link-resets", fmt::format("Trunk {} was reset for too many HDLC errors.", name),
                            {Counted(trunk.linkResets, "link reset"), Counted(trunk.hdlcErrors, "HDLC error")}));
  }
  std::vector<std::string> lost;
  for (std::size_t slot = 0; slot < trunk.channels.size(); ++slot) {
    const trace::SPageChannel& channel = trunk.channels[slot];
    const std::uint64_t count = std::uint64_t{channel.lostReceived} + channel.lostSent;
    // Of a channel that is not open nobody takes the sound; of the others a late thread costs each a block.
    if (channel.isOpen && count > kFewBlocks && static_cast<double>(count) >= kFewAnHour * hours) {
      lost.push_back(fmt::format("timeslot {}: {} from the line, {} to the line", slot,
                                 Counted(channel.lostReceived, "block"), Counted(channel.lostSent, "block")));
    }
  }
  if (!lost.empty()) {
    findings.push_back(
        Find("blocks-lost", fmt::format("Trunk {} lost blocks of sound inside the library.", name), lost));
  }
}

void CheckCard(const trace::SPageCard& card, double hours, Findings& findings) {
  for (std::size_t thread = 0; thread < card.threads.size(); ++thread) {
    const trace::SPageThread& each = card.threads[thread];
    if (each.latestMs >= kThreadLateMs) {
      findings.push_back(Find("thread-late",
                              fmt::format("Card {}: the {} thread was {} ms late once.", card.serial,
                                          trace::PageThreadName(thread), each.latestMs),
                              {"status page, card " + std::to_string(card.number) + At(each.latestAt)}));
    }
  }
  for (std::size_t trunk = 0; trunk < card.trunks.size(); ++trunk) {
    CheckTrunk(card, trunk, hours, findings);
  }
}

}  // namespace

Findings FolderRules(const SLibraryFacts& library) {
  Findings findings;
  if (!library.hasLibrary) {
    findings.push_back(Find("library-missing", "There is no library " + library.path + "."));
    return findings;
  }
  if (!library.isFolderWritable) {
    findings.push_back(Find("folder-not-writable", "This user may make no files in " + library.folder + "."));
  }
  for (const std::string& file : library.notWritable) {
    findings.push_back(Find("file-not-writable", "This user may not write " + file + "."));
  }
  if (library.diskFreeBytes && *library.diskFreeBytes < kDiskLow) {
    const bool isFull = *library.diskFreeBytes < kDiskFull;
    findings.push_back(
        Find(isFull ? "disk-full" : "disk-low",
             fmt::format("The disk of {} has {} MB left.", library.folder, *library.diskFreeBytes / kMegabyte),
             {Counted(*library.diskFreeBytes, "free byte")}));
  }
  return findings;
}

Findings PageRules(const SLibraryFacts& library) {
  Findings findings;
  if (!library.pageFault.empty()) {
    findings.push_back(Find("page-unreadable", library.pageFault + "."));
  }
  if (!library.page) {
    return findings;
  }
  if (!library.pageNotLive.empty()) {
    findings.push_back(Find("page-not-live", library.pageNotLive + "."));
    return findings;
  }
  CheckCallbacks(*library.page, findings);
  const double hours = static_cast<double>(library.page->heartbeat - library.page->started) / kHour;
  for (const trace::SPageCard& card : library.page->cards) {
    CheckCard(card, hours, findings);
  }
  return findings;
}

Findings AdapterRules(const SMachineFacts& machine, const std::vector<std::uint32_t>& cards) {
  if (!machine.adapters) {
    return {Find("adapters-unknown", "The system does not tell its network adapters.")};
  }
  Findings findings;
  std::vector<SAdapterAddress> firsts;
  std::map<std::string, std::vector<std::string>> addresses;
  for (const SAdapterAddress& each : *machine.adapters) {
    if (addresses[each.adapter].empty()) {
      firsts.push_back(each);
    }
    addresses[each.adapter].push_back(each.adapter + " has " + trace::AddressText(each.address));
  }
  for (const SAdapterAddress& first : firsts) {
    if (addresses[first.adapter].size() > 1 && !first.isLoopback) {
      findings.push_back(
          Find("adapter-several-addresses",
               fmt::format("Adapter {} has {} addresses, of which the library uses {} alone.", first.adapter,
                           addresses[first.adapter].size(), trace::AddressText(first.address)),
               addresses[first.adapter]));
    }
  }
  const auto reaches = [](const SAdapterAddress& adapter, std::uint32_t card) {
    return ((adapter.address ^ card) & adapter.mask) == 0;
  };
  bool hasLoopbackCard = false;
  for (const std::uint32_t card : cards) {
    hasLoopbackCard = hasLoopbackCard || card >> 24 == 127;
    if (std::none_of(firsts.begin(), firsts.end(), [&](const auto& first) { return reaches(first, card); })) {
      findings.push_back(Find(
          "card-outside-first-subnet",
          fmt::format("The card at {} is in the network of no adapter's first address.", trace::AddressText(card))));
    }
  }
  if (!hasLoopbackCard && std::all_of(firsts.begin(), firsts.end(), [](const auto& it) { return it.isLoopback; })) {
    findings.push_back(Find("adapter-none", "No network adapter has an IPv4 address, so no card can be found."));
  }
  return findings;
}

Findings HolderRules(const SMachineFacts& machine) {
  Findings findings;
  std::vector<std::string> names;
  std::string list;
  for (const tool::SPortHolder& holder : machine.holders) {
    names.push_back(HolderText(holder));
    list += (list.empty() ? "" : ", ") + names.back();
  }
  if (names.size() == 1) {
    findings.push_back(Find("port-held", "UDP port 5854 is held by " + list + "."));
  } else if (!names.empty()) {
    findings.push_back(Find("port-held-twice",
                            "UDP port 5854 is held by several programs, which take the cards from each other.", names));
  }
  if (machine.receiveBufferMost && *machine.receiveBufferMost < kReceiveBuffer) {
    findings.push_back(Find("receive-buffer-small",
                            fmt::format("A socket of this machine may have {} bytes of receive buffer, and the library "
                                        "asks for {}.",
                                        *machine.receiveBufferMost, kReceiveBuffer),
                            {fmt::format("net.core.rmem_max = {}", *machine.receiveBufferMost)}));
  }
  return findings;
}

}  // namespace doctor
