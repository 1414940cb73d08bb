// SPDX-License-Identifier: GPL-2.0-only
#include "carrier_body.h"
#include "platform/simulated/options.h"

namespace zelk::sim {
namespace {

class FiberCarrier : public testing::Test {
 protected:
  void SetUp() override {
    if (kDefaultCarrier != ECarrier::kFibers)
      GTEST_SKIP() << "the sanitizers lose track of fibers";
  }
};

TEST_F(FiberCarrier, StrandsRunInTurn) {
  StrandsRunInTurn(*MakeFiberCarrier());
}

TEST_F(FiberCarrier, ExceptionsStayWithTheirStrand) {
  ExceptionsStayWithTheirStrand(*MakeFiberCarrier());
}

TEST_F(FiberCarrier, StrandsHaveStacksOfTheirOwn) {
  StrandsHaveStacksOfTheirOwn(*MakeFiberCarrier());
}

}  // namespace
}  // namespace zelk::sim
