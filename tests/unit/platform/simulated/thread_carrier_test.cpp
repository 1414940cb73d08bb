// SPDX-License-Identifier: GPL-2.0-only
#include "carrier_body.h"

namespace zelk::sim {
namespace {

TEST(ThreadCarrier, StrandsRunInTurn) {
  StrandsRunInTurn(*MakeThreadCarrier());
}

TEST(ThreadCarrier, ExceptionsStayWithTheirStrand) {
  ExceptionsStayWithTheirStrand(*MakeThreadCarrier());
}

TEST(ThreadCarrier, StrandsHaveStacksOfTheirOwn) {
  StrandsHaveStacksOfTheirOwn(*MakeThreadCarrier());
}

}  // namespace
}  // namespace zelk::sim
