// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/control_decoder.h"

#include <gtest/gtest.h>

#include "conversation.h"

namespace trace {
namespace {

using test::FromLibrary;
using test::Join;
using test::ToLibrary;

constexpr auto kToLibrary = EDirection::kToLibrary;
constexpr auto kFromLibrary = EDirection::kFromLibrary;

// A decoder and what it said: one letter a message.
class CDecoded {
 public:
  CDecoded(EDirection direction, int trunks)
      : decoder(direction, trunks, [this](SControl&& message) { messages.push_back(std::move(message)); }) {}

  void Feed(const Bytes& bytes, bool isAfterGap = false) { decoder.Feed({bytes, 0, 1, isAfterGap, true}); }
  std::string Letters() const {
    std::string letters;
    for (const SControl& message : messages) {
      letters += "?i!PCrvsfh"[static_cast<std::size_t>(message.kind)];
    }
    return letters;
  }

  std::vector<SControl> messages;
  CControlDecoder decoder;
};

const Bytes kInformation = tool::BuildInformation({.trunks = 2, .serial = 77});
const Bytes kStatus = tool::BuildTrunkStatus(Bytes{0, 0xFF});
const Bytes kFrame = ToLibrary(1, {0x02, 0x01, 0x7F});
const Bytes kHdlcError = tool::BuildHdlcError(1, 3);

TEST(ControlDecoder, ReadsTheCardWhateverThePieces) {
  const Bytes all = Join({kInformation, kStatus, tool::BuildRegisterValue(0, 0x1006, 0xFF), kFrame, kHdlcError});
  for (std::size_t size = 1; size <= all.size(); ++size) {
    CDecoded decoded(kToLibrary, 0);
    for (std::size_t at = 0; at < all.size(); at += size) {
      const auto from = all.begin() + static_cast<std::ptrdiff_t>(at);
      decoded.Feed(Bytes(from, from + static_cast<std::ptrdiff_t>(std::min(size, all.size() - at))));
    }
    ASSERT_EQ(decoded.Letters(), "isvfh") << "pieces of " << size;
    EXPECT_EQ(decoded.decoder.Counts().bytesSkipped, 0U);
    EXPECT_EQ(decoded.messages[1].body, (Bytes{0, 0xFF}));
    EXPECT_EQ(decoded.messages[3].body, (Bytes{0x02, 0x01, 0x7F}));
    EXPECT_EQ(decoded.messages[3].trunk, 1);
    EXPECT_EQ(decoded.messages[4].value, 3);
  }
}

TEST(ControlDecoder, ReadsTheLibraryWhateverThePieces) {
  const Bytes all = Join({{0xFF, 0x01, 0xFF, 0x04, 0xFF, 0x12, 1, 1, 0, 0, 0, 0, 0},
                          FromLibrary(0, {0x00, 0x01, 0xFF}),
                          {0xFF, 0x05, 0x34, 0x12, 0xFF, 0xFF, 0x02, 1, 6, 0x10, 0xFF}});
  for (std::size_t size = 1; size <= all.size(); ++size) {
    CDecoded decoded(kFromLibrary, 0);
    for (std::size_t at = 0; at < all.size(); at += size) {
      const auto from = all.begin() + static_cast<std::ptrdiff_t>(at);
      decoded.Feed(Bytes(from, from + static_cast<std::ptrdiff_t>(std::min(size, all.size() - at))));
    }
    ASSERT_EQ(decoded.Letters(), "?!CfPr") << "pieces of " << size;
    EXPECT_EQ(decoded.messages[3].body, (Bytes{0x00, 0x01, 0xFF}));
    EXPECT_EQ(decoded.messages[4].value, 0x1234);
  }
}

TEST(ControlDecoder, ATypeMayFollowARegisterWithoutLead) {
  CDecoded decoded(kToLibrary, 2);
  decoded.Feed({0xFF, 0x02, 0, 6, 0x10, 1, 0x07, 0, 0, 0xFF, 0x09, 0x07, 3, 3});
  EXPECT_EQ(decoded.Letters(), "vss");
  EXPECT_EQ(decoded.decoder.Counts().bytesSkipped, 1U);
}

TEST(ControlDecoder, MarksABadFcs) {
  Bytes broken = kFrame;
  broken.back() ^= 1;
  CDecoded decoded(kToLibrary, 2);
  decoded.Feed(broken);
  decoded.Feed(kFrame);
  ASSERT_EQ(decoded.Letters(), "ff");
  EXPECT_FALSE(decoded.messages[0].isFcsGood);
  EXPECT_TRUE(decoded.messages[1].isFcsGood);
  EXPECT_EQ(decoded.decoder.Counts().badFcs, 1U);
}

TEST(ControlDecoder, FindsAMessageBehindAGap) {
  CDecoded decoded(kToLibrary, 2);
  decoded.Feed(kStatus);
  // The end of a frame whose begin is missing, with what looks like messages in it.
  decoded.Feed(Join({{0xFF, 0x10, 0x01, 0x04, 0x00, 0x02, 0x01, 0x7F}, kFrame, kStatus}), true);
  ASSERT_EQ(decoded.Letters(), "sfs");
  EXPECT_TRUE(decoded.messages[1].isAfterGap);
  EXPECT_FALSE(decoded.messages[2].isAfterGap);
  EXPECT_EQ(decoded.decoder.Counts().bytesSkipped, 8U);
}

TEST(ControlDecoder, LearnsTheNumberOfTrunksFromRepeatedStatus) {
  CDecoded decoded(kToLibrary, 0);
  decoded.decoder.LoseSync();
  decoded.Feed(kFrame);
  decoded.Feed(kStatus);
  EXPECT_EQ(decoded.Letters(), "");
  decoded.Feed(kHdlcError);
  decoded.Feed(kStatus);
  EXPECT_EQ(decoded.decoder.Trunks(), 2);
  EXPECT_EQ(decoded.Letters(), "fshs");
}

TEST(ControlDecoder, StatusBeforeInformationWaitsForTheNumberOfTrunks) {
  CDecoded decoded(kToLibrary, 0);
  decoded.Feed({0xFF});
  decoded.Feed(Bytes(kStatus.begin() + 1, kStatus.end()));
  decoded.Feed(kStatus);
  decoded.Feed(kStatus);
  EXPECT_EQ(decoded.Letters(), "sss");
}

TEST(ControlDecoder, ALibraryFrameWithoutItsEndIsNone) {
  Bytes broken = FromLibrary(0, {0x00, 0x01, 0x7F});
  broken.back() = 0;
  CDecoded decoded(kFromLibrary, 0);
  decoded.Feed(Join({broken, FromLibrary(1, {0x00, 0x01, 0x7F})}));
  ASSERT_EQ(decoded.Letters(), "f");
  EXPECT_EQ(decoded.messages[0].trunk, 1);
}

}  // namespace
}  // namespace trace
