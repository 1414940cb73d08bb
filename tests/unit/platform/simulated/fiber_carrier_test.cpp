// SPDX-License-Identifier: GPL-2.0-only
#include "carrier_body.h"

namespace zelk::sim {
namespace {

TEST(FiberCarrier, StrandsRunInTurn) {
  StrandsRunInTurn(*MakeFiberCarrier());
}

TEST(FiberCarrier, ExceptionsStayWithTheirStrand) {
  ExceptionsStayWithTheirStrand(*MakeFiberCarrier());
}

TEST(FiberCarrier, StrandsHaveStacksOfTheirOwn) {
  StrandsHaveStacksOfTheirOwn(*MakeFiberCarrier());
}

}  // namespace
}  // namespace zelk::sim
