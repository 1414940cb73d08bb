// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/status_page.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <thread>

#include "support/allocation_probe.h"
#include "support/temp_dir.h"

namespace zelk {
namespace {

constexpr SIpv4Address kAddress{0x0200007F};

uint32_t WordAt(const std::string& page, size_t at) {
  uint32_t word = 0;
  std::memcpy(&word, page.data() + at, sizeof word);
  return word;
}

class StatusFile : public testing::Test {
 protected:
  void TearDown() override { page.Leave(); }
  std::string Path() const { return dir.Path("z.status"); }
  std::string Text() const { return ReadAll(Path()); }
  CTempDir dir;
  CStatusPage page;
};

TEST_F(StatusFile, WithoutItNothingIsShownAndNothingFails) {
  page.CardOpens(0, 1, kAddress, 1);
  page.CardCloses(0, kStatusCardLost);
  page.LineIs(0, 0, 0);
  page.DchannelIs(0, 0, true);
  page.Beat();
  page.NoteTurn(0, kStatusPacer, 1);
  page.NoteCallback(kStatusPlay, 0, 1);
  page.Close();
  EXPECT_EQ(page.Get(), nullptr);
  EXPECT_EQ(page.Channel(0, 0, 1), nullptr);
}

TEST_F(StatusFile, APlaceThatCannotBeWrittenLeavesThePageOut) {
  page.Open(dir.Path("none/z.status"));
  EXPECT_EQ(page.Get(), nullptr);
}

TEST_F(StatusFile, TheHeaderSaysWhatItIs) {
  page.Open(Path());
  const std::string text = Text();
  ASSERT_EQ(text.size(), 340736U);
  EXPECT_EQ(text.substr(0, 8), "ZELKSTAT");
  EXPECT_EQ(WordAt(text, 8), 1U);
  EXPECT_EQ(WordAt(text, 12), 340736U);
  EXPECT_EQ(WordAt(text, 16), OwnProcessNumber());
  EXPECT_EQ(WordAt(text, 20), 1U);
  page.Close();
  EXPECT_EQ(WordAt(Text(), 20), 0U);
}

TEST_F(StatusFile, AnotherStartBeginsWithZeros) {
  page.Open(Path());
  StatusAdd(page.Channel(1, 2, 3)->offered);
  page.Close();
  page.Open(Path());
  EXPECT_EQ(page.Channel(1, 2, 3)->offered, 0U);
  EXPECT_EQ(page.Get()->header.starts, 2U);
}

TEST_F(StatusFile, RecordsStandWhereTheirNumbersPut) {
  page.Open(Path());
  StatusSet(page.Card(19)->serial, 11);
  StatusSet(page.Trunk(19, 7)->hdlcErrors, 22);
  StatusSet(page.Channel(19, 7, 31)->number, 33);
  const std::string text = Text();
  EXPECT_EQ(WordAt(text, 256 + 128 * 19 + 4), 11U);
  EXPECT_EQ(WordAt(text, 2816 + 64 * (8 * 19 + 7) + 16), 22U);
  EXPECT_EQ(WordAt(text, 13056 + 64 * (256 * 19 + 32 * 7 + 31)), 33U);
  EXPECT_EQ(page.Card(20), nullptr);
  EXPECT_EQ(page.Trunk(0, 8), nullptr);
  EXPECT_EQ(page.Channel(0, 0, 32), nullptr);
  EXPECT_EQ(page.Position(0, kMaxPositions), nullptr);
}

TEST_F(StatusFile, ACardThatClosesTakesItsTrunksAlong) {
  page.Open(Path());
  page.CardCloses(3, kStatusCardClosed);
  EXPECT_EQ(page.Card(3)->state, kStatusNoCard);
  page.CardOpens(3, 100001, kAddress, 2);
  page.LineIs(3, 1, 0);
  page.DchannelIs(3, 1, true);
  EXPECT_EQ(Text().substr(256 + 128 * 3 + 8, 4), std::string("\x7f\0\0\x02", 4));
  EXPECT_NE(page.Trunk(3, 1)->changed, 0U);
  page.CardCloses(3, kStatusCardLost);
  EXPECT_EQ(page.Card(3)->state, kStatusCardLost);
  EXPECT_EQ(page.Card(3)->opens, 1U);
  EXPECT_EQ(page.Trunk(3, 1)->lineStatus, 3U);
  EXPECT_EQ(page.Trunk(3, 1)->isDchannelUp, 0U);
}

TEST_F(StatusFile, TheWorstIsKept) {
  page.Open(Path());
  for (const uint32_t late : {5U, 30U, 7U}) {
    page.NoteTurn(0, kStatusPacer, late);
    page.NoteCallback(kStatusRecord, late, late * 1000);
  }
  EXPECT_EQ(page.Card(0)->threads[kStatusPacer].latestMs, 30U);
  EXPECT_NE(page.Card(0)->threads[kStatusPacer].seen, 0U);
  const SStatusCallback& record = page.Get()->header.callbacks[kStatusRecord];
  EXPECT_EQ(record.slowestUs, 30000U);
  EXPECT_EQ(record.slowestChannel, 30U);
  EXPECT_EQ(record.overBlock, 1U);
}

TEST_F(StatusFile, IsWrittenWithoutMemoryOfItsOwn) {
  page.Open(Path());
  const uint64_t before = support::AllocationCount();
  page.CardOpens(0, 1, kAddress, 8);
  page.NoteTurn(0, kStatusControl, 1);
  page.NoteCallback(kStatusEvent, 0, 1);
  page.Beat();
  EXPECT_EQ(support::AllocationCount(), before);
}

TEST_F(StatusFile, ThreadsCountTogether) {
  page.Open(Path());
  constexpr uint32_t kEach = 20000;
  const auto count = [&] {
    for (uint32_t i = 1; i <= kEach; ++i) {
      StatusAdd(page.Channel(0, 0, 1)->lostSent);
      page.NoteCallback(kStatusPlay, 1, i);
    }
  };
  std::thread other(count);
  count();
  other.join();
  EXPECT_EQ(page.Channel(0, 0, 1)->lostSent, 2 * kEach);
  EXPECT_EQ(page.Get()->header.callbacks[kStatusPlay].slowestUs, kEach);
}

TEST(CallbackWatch, TimesWhatIsInItsScope) {
  const CTempDir dir;
  StatusPage().Open(dir.Path("z.status"));
  const uint64_t begin = StatusNow();
  {
    const CCallbackWatch watch(kStatusEvent, 7);
    while (StatusNow() < begin + 3) {
    }
  }
  const SStatusCallback& record = StatusPage().Get()->header.callbacks[kStatusEvent];
  EXPECT_GE(record.slowestUs, 1000U);
  EXPECT_EQ(record.slowestChannel, 7U);
  StatusPage().Leave();
}

// What docs/status-page.md says of a record: "at bytes name" of every line of the table under a heading.
std::vector<std::string> Documented(const std::string& heading) {
  const std::string text = ReadAll(ZELK_DOCS_PATH "/status-page.md");
  const size_t begin = text.find("# " + heading + "\n");
  EXPECT_NE(begin, std::string::npos) << heading;
  const std::string part = text.substr(begin, text.find("\n#", begin) - begin);
  const std::regex row(R"(\| (\d+) \| (\d+) \| `([^`]+)` \|)");
  std::vector<std::string> rows;
  for (std::sregex_iterator each(part.begin(), part.end(), row), end; each != end; ++each) {
    rows.push_back((*each)[1].str() + " " + (*each)[2].str() + " " + (*each)[3].str());
  }
  return rows;
}

#define FIELD(record, name) \
  std::to_string(offsetof(record, name)) + " " + std::to_string(sizeof(record::name)) + " " #name

using Rows = std::vector<std::string>;

template <class Array>
void AddEach(Rows& rows, const std::string& name, size_t at) {
  for (size_t i = 0; i < std::tuple_size_v<Array>; ++i) {
    const size_t bytes = sizeof(typename Array::value_type);
    rows.push_back(std::to_string(at + i * bytes) + " " + std::to_string(bytes) + " " + name + "[" + std::to_string(i) +
                   "]");
  }
}

TEST(StatusLayout, HeaderAndCardAreAsDocumented) {
  using H = SStatusHeader;
  Rows header{FIELD(H, magic),     FIELD(H, version),   FIELD(H, size),      FIELD(H, process),
              FIELD(H, isRunning), FIELD(H, started),   FIELD(H, heartbeat), FIELD(H, cards),
              FIELD(H, trunks),    FIELD(H, timeslots), FIELD(H, starts)};
  AddEach<decltype(H::callbacks)>(header, "callbacks", offsetof(H, callbacks));
  EXPECT_EQ(Documented("Header"), header);
  using C = SStatusCard;
  Rows card{FIELD(C, state), FIELD(C, serial), FIELD(C, address), FIELD(C, trunks), FIELD(C, changed), FIELD(C, opens)};
  AddEach<decltype(C::threads)>(card, "threads", offsetof(C, threads));
  EXPECT_EQ(Documented("Card"), card);
}

TEST(StatusLayout, TheOtherRecordsAreAsDocumented) {
  using B = SStatusCallback;
  EXPECT_EQ(Documented("A callback, 24 bytes"),
            (Rows{FIELD(B, slowestUs), FIELD(B, slowestAt), FIELD(B, slowestChannel), FIELD(B, overBlock)}));
  using H = SStatusThread;
  EXPECT_EQ(Documented("A thread, 24 bytes"), (Rows{FIELD(H, seen), FIELD(H, latestAt), FIELD(H, latestMs)}));
  using T = SStatusTrunk;
  EXPECT_EQ(Documented("Trunk"), (Rows{FIELD(T, lineStatus), FIELD(T, isDchannelUp), FIELD(T, changed),
                                       FIELD(T, hdlcErrors), FIELD(T, queueOverflows), FIELD(T, linkResets)}));
  using C = SStatusChannel;
  EXPECT_EQ(Documented("Channel"),
            (Rows{FIELD(C, number), FIELD(C, isOpen), FIELD(C, isUp), FIELD(C, state), FIELD(C, changed),
                  FIELD(C, offered), FIELD(C, dialled), FIELD(C, connected), FIELD(C, cause), FIELD(C, queuedBytes),
                  FIELD(C, lostReceived), FIELD(C, lostSent)}));
}

}  // namespace
}  // namespace zelk
