// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/capture_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "conversation.h"
#include "trace/core/trace_error.h"

namespace trace {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string Refusal(const Bytes& bytes) {
  try {
    CCaptureFile file(test::Stream(bytes), "bad.pcap");
  } catch (const CTraceError& error) {
    EXPECT_EQ(error.Code(), EExit::kBadInput);
    return error.what();
  }
  return "taken";
}

TEST(CaptureFile, GivesPacketsWithNumberAndTime) {
  CCaptureFile file(test::Stream(test::PcapFile({{7 * kSecond + 5000, {1, 2}}, {8 * kSecond, {}}})), "a.pcap");
  SCaptured packet;
  ASSERT_TRUE(file.Next(packet));
  EXPECT_EQ(packet.number, 1U);
  EXPECT_EQ(packet.time, 7 * kSecond + 5000);
  EXPECT_EQ(Bytes(packet.bytes.begin(), packet.bytes.end()), (Bytes{1, 2}));
  ASSERT_TRUE(file.Next(packet));
  EXPECT_EQ(packet.number, 2U);
  EXPECT_TRUE(packet.bytes.empty());
  EXPECT_FALSE(file.Next(packet));
  EXPECT_EQ(file.Fault(), "");
  EXPECT_EQ(file.LinkTypeName(), "EN10MB");
}

TEST(CaptureFile, OfAnotherKindIsRefusedInASentence) {
  EXPECT_THAT(Refusal({}), StartsWith("bad.pcap: is no pcap or pcapng file ("));
  EXPECT_THAT(Refusal(test::Text("GIF89a and more than twenty-four bytes")), StartsWith("bad.pcap: is no pcap"));
}

TEST(CaptureFile, ThatDoesNotExistIsNamed) {
  try {
    CCaptureFile file("/nowhere/a.pcap");
    FAIL();
  } catch (const CTraceError& error) {
    EXPECT_STREQ(error.what(), "/nowhere/a.pcap: cannot be opened (No such file or directory)");
  }
}

TEST(CaptureFile, CutInAPacketEndsThere) {
  Bytes bytes = test::PcapFile({{kSecond, Bytes(10, 1)}, {kSecond, Bytes(10, 2)}});
  bytes.pop_back();
  CCaptureFile file(test::Stream(bytes), "cut.pcap");
  SCaptured packet;
  EXPECT_TRUE(file.Next(packet));
  EXPECT_FALSE(file.Next(packet));
  EXPECT_THAT(file.Fault(), StartsWith("cut.pcap: packet 2 cannot be read ("));
  EXPECT_FALSE(file.Next(packet));
}

TEST(CaptureFile, AHugeClaimIsNotBelieved) {
  Bytes bytes = test::PcapFile({{kSecond, Bytes(10, 1)}});
  for (std::size_t at = 32; at < 40; ++at) {
    bytes[at] = 0x7F;  // both lengths of the packet
  }
  CCaptureFile file(test::Stream(bytes), "huge.pcap");
  SCaptured packet;
  EXPECT_FALSE(file.Next(packet));
  EXPECT_THAT(file.Fault(), HasSubstr("packet 1 cannot be read"));
}

}  // namespace
}  // namespace trace
