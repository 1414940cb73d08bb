// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/base/endpoint.h"

#include <gtest/gtest.h>

#include <system_error>

namespace cardsim::test {
namespace {

TEST(Endpoint, AnAddressIsANumberAndATextAgain) {
  for (const char* text : {"0.0.0.0", "127.0.1.1", "192.168.255.7", "255.255.255.255"}) {
    ASSERT_TRUE(ParseIpv4(text)) << text;
    EXPECT_EQ(FormatIpv4(*ParseIpv4(text)), text);
  }
  EXPECT_EQ(ParseIpv4("127.0.1.2"), 0x7F000102U);
}

TEST(Endpoint, AnyOtherTextIsNone) {
  for (const char* text : {"", "1", "1.2.3", "1.2.3.", "1.2.3.256", "1.2.3.4.5", "1.2.3.4 ", " 1.2.3.4", "1,2.3.4",
                           "1..2.3", "-1.2.3.4", "localhost"}) {
    EXPECT_FALSE(ParseIpv4(text)) << text;
    EXPECT_THROW(ToEndpoint(text, 5854), std::system_error) << text;
  }
  EXPECT_EQ(ToEndpoint("127.0.0.1", 5854), (SEndpoint{0x7F000001, 5854}));
}

}  // namespace
}  // namespace cardsim::test
