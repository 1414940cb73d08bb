// SPDX-License-Identifier: GPL-2.0-only
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "findings.h"

namespace doctor {
namespace {

using test::Measured;
using test::Said;
using testing::ElementsAre;
using testing::IsEmpty;

SLibraryFacts Library() {
  SLibraryFacts library;
  library.path = "/opt/app/libZelkApi-64.so";
  library.folder = "/opt/app";
  library.diskFreeBytes = 1ULL << 40;
  return library;
}

TEST(DoctorFolder, TellsWhatCannotBeWritten) {
  SLibraryFacts library = Library();
  EXPECT_THAT(FolderRules(library), IsEmpty());
  library.isFolderWritable = false;
  library.notWritable = {"/opt/app/libZelkApi.log"};
  EXPECT_THAT(Said(FolderRules(library)),
              ElementsAre("warning folder-not-writable: This user may make no files in /opt/app.",
                          "warning file-not-writable: This user may not write /opt/app/libZelkApi.log."));
  library.hasLibrary = false;
  EXPECT_THAT(Said(FolderRules(library)),
              ElementsAre("not seen library-missing: There is no library /opt/app/libZelkApi-64.so."));
}

TEST(DoctorFolder, TellsHowFullTheDiskIs) {
  SLibraryFacts library = Library();
  library.diskFreeBytes = 345ULL << 20;
  EXPECT_THAT(Said(FolderRules(library)), ElementsAre("warning disk-low: The disk of /opt/app has 345 MB left."));
  library.diskFreeBytes = 12ULL << 20;
  EXPECT_THAT(Said(FolderRules(library)), ElementsAre("fault disk-full: The disk of /opt/app has 12 MB left."));
  library.diskFreeBytes.reset();
  EXPECT_THAT(FolderRules(library), IsEmpty());
}

SLibraryFacts WithPage() {
  SLibraryFacts library = Library();
  trace::SPageCard card;
  card.serial = 100001;
  card.trunks.resize(1);
  library.page = trace::SStatusPage{};
  library.page->cards = {card};
  return library;
}

TEST(DoctorPage, OneThatIsSoundHasNothingToRemark) {
  SLibraryFacts library = WithPage();
  library.page->callbacks[1] = {199'000, 1'700'000'000 * trace::kSecond, 7, 9};
  library.page->cards[0].threads[2].latestMs = 999;
  library.page->cards[0].trunks[0].channels[5].lostSent = 900;  // of a channel that nobody has open
  for (int slot = 6; slot < 16; ++slot) {
    library.page->cards[0].trunks[0].channels[static_cast<std::size_t>(slot)].lostSent = 9;
    library.page->cards[0].trunks[0].channels[static_cast<std::size_t>(slot)].isOpen = true;
  }
  EXPECT_THAT(PageRules(library), IsEmpty());
}

TEST(DoctorPage, SlowCallbacksAndLateThreadsAreTold) {
  SLibraryFacts library = WithPage();
  library.page->callbacks[1] = {45'100, 1'700'000'000 * trace::kSecond, 7, 10};
  library.page->callbacks[2] = {200'000, 0, 8, 1};
  library.page->cards[0].threads[2].latestMs = 1500;
  const Findings findings = PageRules(library);
  EXPECT_THAT(Said(findings),
              ElementsAre("warning callback-slow: The play callback took 45 ms once; 10 of its calls were longer than "
                          "the 20 ms of a block.",
                          "warning callback-slow: The record callback took 200 ms once; 1 of its calls was longer "
                          "than the 20 ms of a block.",
                          "warning thread-late: Card 100001: the pacer thread was 1500 ms late once."));
  EXPECT_THAT(findings[0].evidence, ElementsAre("channel 7, at 2023-11-14T22:13:20.000Z"));
}

TEST(DoctorPage, WhatATrunkLostIsTold) {
  SLibraryFacts library = WithPage();
  trace::SPageTrunk& trunk = library.page->cards[0].trunks[0];
  trunk.queueOverflows = 2;
  trunk.linkResets = 1;
  trunk.hdlcErrors = 14;
  trunk.channels[5].isOpen = true;
  trunk.channels[5].lostReceived = 1;
  trunk.channels[5].lostSent = 14;
  library.page->started = 1'700'000'000 * trace::kSecond;
  library.page->heartbeat = library.page->started + 3600 * trace::kSecond;
  const Findings findings = PageRules(library);
  EXPECT_THAT(Said(findings),
              ElementsAre("warning queue-overflow: Trunk 100001-1: the card's frame queue has overflowed.",
                          "warning link-resets: Trunk 100001-1 was reset for too many HDLC errors.",
                          "warning blocks-lost: Trunk 100001-1 lost blocks of sound inside the library."));
  EXPECT_THAT(findings[2].evidence, ElementsAre("timeslot 5: 1 block from the line, 14 blocks to the line"));
  library.page->heartbeat = library.page->started + 2 * 3600 * trace::kSecond;  // fewer than ten an hour
  EXPECT_EQ(Said(PageRules(library)).size(), 2U);
}

TEST(DoctorPage, OneOfNoRunningLibraryIsNotBelieved) {
  SLibraryFacts library = WithPage();
  library.page->callbacks[0].slowestUs = 1'000'000;
  library.pageNotLive = "p: process 4711 has ended";
  EXPECT_THAT(Said(PageRules(library)), IsEmpty());
  EXPECT_THAT(Measured(PageRules(library)), ElementsAre("page-not-live: p: process 4711 has ended."));
  library.page.reset();
  library.pageFault = "p: is no status page";
  EXPECT_THAT(Said(PageRules(library)), ElementsAre("not seen page-unreadable: p: is no status page."));
}

constexpr std::uint32_t kLoopback = 0x7F000001;
constexpr std::uint32_t kEthernet = 0x0A000005;  // 10.0.0.5
constexpr std::uint32_t kMask24 = 0xFFFFFF00;

SMachineFacts Machine() {
  SMachineFacts machine;
  machine.adapters = {{"lo", kLoopback, 0xFF000000, true}, {"eth1", kEthernet, kMask24, false}};
  return machine;
}

TEST(DoctorAdapters, ACardInTheFirstSubnetIsReached) {
  EXPECT_THAT(AdapterRules(Machine(), {kEthernet + 9, kLoopback + 0x100}), IsEmpty());
}

TEST(DoctorAdapters, ACardElsewhereIsTold) {
  SMachineFacts machine = Machine();
  machine.adapters->push_back({"eth1", 0xC0A80901, kMask24, false});  // 192.168.9.1 besides
  EXPECT_THAT(Said(AdapterRules(machine, {0xC0A80907})),
              ElementsAre("fault card-outside-first-subnet: The card at 192.168.9.7 is in the network of no adapter's "
                          "first address."));
  EXPECT_THAT(Measured(AdapterRules(machine, {})),
              ElementsAre("adapter-several-addresses: Adapter eth1 has 2 addresses, of which the library uses 10.0.0.5 "
                          "alone."));
}

TEST(DoctorAdapters, NoneAtAllIsTold) {
  SMachineFacts machine = Machine();
  machine.adapters->pop_back();
  EXPECT_THAT(Said(AdapterRules(machine, {})),
              ElementsAre("fault adapter-none: No network adapter has an IPv4 address, so no card can be found."));
  EXPECT_THAT(AdapterRules(machine, {kLoopback + 0x100}), IsEmpty());  // simulated cards are there
  machine.adapters.reset();
  EXPECT_THAT(Said(AdapterRules(machine, {})),
              ElementsAre("not seen adapters-unknown: The system does not tell its network adapters."));
}

TEST(DoctorHolder, TellsWhoHoldsThePort) {
  SMachineFacts machine;
  EXPECT_THAT(HolderRules(machine), IsEmpty());
  machine.holders = {{4711, "app"}};
  EXPECT_THAT(Measured(HolderRules(machine)), ElementsAre("port-held: UDP port 5854 is held by process 4711 (app)."));
  machine.holders.push_back({});
  const Findings two = HolderRules(machine);
  EXPECT_THAT(Said(two), ElementsAre("fault port-held-twice: UDP port 5854 is held by several programs, which take the "
                                     "cards from each other."));
  EXPECT_THAT(two[0].evidence, ElementsAre("process 4711 (app)", "a process that the system does not name"));
}

TEST(DoctorHolder, TellsASmallReceiveBuffer) {
  SMachineFacts machine;
  machine.receiveBufferMost = 4194304;
  EXPECT_THAT(HolderRules(machine), IsEmpty());
  machine.receiveBufferMost = 212992;
  EXPECT_THAT(Measured(HolderRules(machine)),
              ElementsAre("receive-buffer-small: A socket of this machine may have 212992 bytes of receive buffer, and "
                          "the library asks for 4194304."));
}

}  // namespace
}  // namespace doctor
