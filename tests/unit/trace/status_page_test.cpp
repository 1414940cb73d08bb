// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/status_page.h"

#include <gtest/gtest.h>

#include <cstring>

#include "trace/core/trace_error.h"

namespace trace {
namespace {

constexpr std::size_t kSize = 340736;
constexpr Time kNow = 1'700'000'000 * kSecond;

template <class Value>
void Set(Bytes& page, std::size_t at, Value value) {
  std::memcpy(page.data() + at, &value, sizeof value);
}

// Of a library that runs, with one card of two trunks.
Bytes Page() {
  Bytes page(kSize);
  std::memcpy(page.data(), "ZELKSTAT", 8);
  Set(page, 8, std::uint32_t{1});
  Set(page, 12, std::uint32_t{kSize});
  Set(page, 16, std::uint32_t{4711});
  Set(page, 20, std::uint32_t{1});
  Set(page, 32, static_cast<std::uint64_t>(kNow / kMillisecond));
  Set(page, 256 + 128, std::uint32_t{1});
  Set(page, 256 + 128 + 4, std::uint32_t{100002});
  Set(page, 256 + 128 + 8, std::uint32_t{0x0201007F});
  Set(page, 256 + 128 + 12, std::uint32_t{2});
  return page;
}

std::string PageRefusal(const Bytes& page) {
  try {
    ParseStatusPage(page, "p");
  } catch (const CTraceError& error) {
    EXPECT_EQ(error.Code(), EExit::kBadInput);
    return error.what();
  }
  return "";
}

TEST(StatusPage, ReadsTheRecordsWhereTheyStand) {
  Bytes page = Page();
  const std::size_t trunk = 2816 + 64 * (8 * 1 + 1);
  const std::size_t channel = 13056 + 64 * (256 * 1 + 32 * 1 + 17);
  Set(page, trunk + 4, std::uint32_t{1});
  Set(page, trunk + 16, std::uint32_t{5});
  Set(page, channel, std::uint32_t{46});
  Set(page, channel + 12, std::uint32_t{3});
  Set(page, channel + 40, std::uint32_t{8000});
  Set(page, 256 + 128 + 32 + 24 * 2 + 16, std::uint32_t{77});
  Set(page, 56 + 24 + 16, std::uint32_t{9});
  const SStatusPage read = ParseStatusPage(page, "p");
  ASSERT_EQ(read.cards.size(), 1U);
  const SPageCard& card = read.cards.front();
  EXPECT_EQ(card.number, 1U);
  EXPECT_EQ(card.serial, 100002U);
  EXPECT_EQ(card.address, 0x7F000102U);
  EXPECT_EQ(card.threads[2].latestMs, 77U);
  ASSERT_EQ(card.trunks.size(), 2U);
  EXPECT_TRUE(card.trunks[1].isUp);
  EXPECT_EQ(card.trunks[1].hdlcErrors, 5U);
  EXPECT_EQ(card.trunks[1].channels[17].number, 45U);
  EXPECT_EQ(card.trunks[1].channels[17].state, EPageCall::kConnected);
  EXPECT_EQ(card.trunks[1].channels[17].queuedBytes, 8000U);
  EXPECT_FALSE(card.trunks[1].channels[18].number);
  EXPECT_EQ(read.callbacks[1].slowestChannel, 9U);
}

TEST(StatusPage, WhatIsNoneOfThisVersionAndSizeIsRefused) {
  EXPECT_EQ(PageRefusal(Page()), "");
  EXPECT_EQ(PageRefusal({}), "p: is no status page of the library");
  Bytes page = Page();
  page[7] = 'X';
  EXPECT_EQ(PageRefusal(page), "p: is no status page of the library");
  page = Page();
  Set(page, 8, std::uint32_t{2});
  EXPECT_NE(PageRefusal(page).find("version 2"), std::string::npos);
  page = Page();
  page.pop_back();
  EXPECT_NE(PageRefusal(page).find("340735 bytes"), std::string::npos);
  page = Page();
  Set(page, 12, std::uint32_t{7});
  EXPECT_NE(PageRefusal(page).find("says that it has 7"), std::string::npos);
}

TEST(StatusPage, AnyBytesBehindItsHeadAreReadWithoutHarm) {
  Bytes page = Page();
  std::fill(page.begin() + 16, page.end(), std::uint8_t{0xFF});
  const SStatusPage read = ParseStatusPage(page, "p");
  ASSERT_EQ(read.cards.size(), 20U);
  EXPECT_EQ(read.cards[19].trunks.size(), 8U);
  EXPECT_EQ(read.cards[19].trunks[7].channels[31].state, EPageCall::kLost);
  EXPECT_EQ(read.heartbeat, 0);
  EXPECT_STREQ(PageCardStateName(read.cards[0].state), "unknown");
}

TEST(StatusPage, IsLiveWhileTheProcessLivesRunsAndBeats) {
  SStatusPage page = ParseStatusPage(Page(), "p");
  EXPECT_EQ(WhyNotLive(page, kNow + 14 * kSecond, true, "p"), "");
  EXPECT_NE(WhyNotLive(page, kNow + 16 * kSecond, true, "p").find("no sign of life since 2023-11-14T22:13:20"),
            std::string::npos);
  EXPECT_NE(WhyNotLive(page, kNow, false, "p").find("process 4711, whose page it is, does not live"),
            std::string::npos);
  page.isRunning = false;
  EXPECT_NE(WhyNotLive(page, kNow, true, "p").find("is shut down"), std::string::npos);
}

TEST(StatusPage, AnyThreadIsASignOfLife) {
  Bytes page = Page();
  Set(page, 256 + 128 + 32 + 24, static_cast<std::uint64_t>(kNow / kMillisecond + 60000));
  EXPECT_EQ(ParseStatusPage(page, "p").heartbeat, kNow + 60 * kSecond);
}

}  // namespace
}  // namespace trace
