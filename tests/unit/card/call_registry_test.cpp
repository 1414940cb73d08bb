// SPDX-License-Identifier: GPL-2.0-only
#include "card/call_registry.h"

#include <gtest/gtest.h>

#include <vector>

namespace zelk {
namespace {

// libpri's list of records; the addresses of these stand for theirs.
class CallRegistry : public ::testing::Test {
 protected:
  q931_call* Record(size_t index) { return reinterpret_cast<q931_call*>(&storage[index]); }
  void Update(const std::vector<size_t>& list) {
    registry.Reserve();
    const auto next = [&](q931_call* record) {
      for (size_t i = 0; i + 1 < list.size(); ++i) {
        if (Record(list[i]) == record) {
          return Record(list[i + 1]);
        }
      }
      return static_cast<q931_call*>(nullptr);
    };
    registry.Update(list.empty() ? nullptr : Record(list.front()), next);
  }
  CCallHandle Handle(size_t index) { return registry.HandleOf(Record(index)); }

  std::vector<uint64_t> storage = std::vector<uint64_t>(300);
  CCallRegistry registry;
};

TEST_F(CallRegistry, KnowsNothingAtFirst) {
  EXPECT_EQ(Handle(0), nullptr);
  EXPECT_EQ(registry.RecordOf(nullptr), nullptr);
  EXPECT_EQ(registry.RecordOf(CCallHandle(7)), nullptr);
}

TEST_F(CallRegistry, EveryRecordHasAHandleOfItsOwn) {
  Update({0, 1, 2});
  EXPECT_NE(Handle(0), nullptr);
  EXPECT_NE(Handle(0), Handle(1));
  EXPECT_NE(Handle(1), Handle(2));
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(registry.RecordOf(Handle(i)), Record(i));
  }
}

TEST_F(CallRegistry, AHandleStaysWhileItsRecordDoes) {
  Update({0, 1, 2});
  const CCallHandle kept = Handle(2);
  Update({0, 2});
  Update({2, 3});
  EXPECT_EQ(Handle(2), kept);
  EXPECT_EQ(Handle(0), nullptr);
  EXPECT_EQ(Handle(1), nullptr);
  EXPECT_NE(Handle(3), kept);
}

TEST_F(CallRegistry, ARecordInUseAgainHasANewHandle) {
  Update({0, 1});
  const CCallHandle before = Handle(0);
  Update({1});
  Update({1, 0});
  EXPECT_NE(Handle(0), nullptr);
  EXPECT_NE(Handle(0), before);
  EXPECT_EQ(registry.RecordOf(before), nullptr);
}

TEST_F(CallRegistry, ARecordFreedAndInUseAgainBetweenTwoLooksHasANewHandle) {
  Update({0, 1, 2});
  const CCallHandle before = Handle(0);
  const CCallHandle other = Handle(1);
  Update({1, 2, 0});
  EXPECT_NE(Handle(0), before);
  EXPECT_EQ(Handle(1), other);
}

TEST_F(CallRegistry, AllMayGoAtOnce) {
  Update({0, 1, 2});
  const CCallHandle gone = Handle(1);
  Update({});
  EXPECT_EQ(registry.RecordOf(gone), nullptr);
  Update({1});
  EXPECT_NE(Handle(1), gone);
}

TEST_F(CallRegistry, HandlesOfTwoControllersNeverMeet) {
  Update({0});
  const CCallHandle first = Handle(0);
  registry = CCallRegistry();
  Update({0});
  EXPECT_NE(Handle(0), first);
}

TEST_F(CallRegistry, TakesAsManyCallsAsThereAre) {
  std::vector<size_t> list;
  for (size_t i = 0; i < storage.size(); ++i) {
    list.push_back(i);
    Update(list);
  }
  for (size_t i = 0; i < storage.size(); ++i) {
    EXPECT_EQ(registry.RecordOf(Handle(i)), Record(i));
  }
}

}  // namespace
}  // namespace zelk
