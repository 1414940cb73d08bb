// SPDX-License-Identifier: GPL-2.0-only
#include "platform/memory/shared_page.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/temp_dir.h"

namespace zelk {
namespace {

constexpr size_t kBytes = 10000;

TEST(SharedPage, WhatIsWrittenStandsInTheFile) {
  const CTempDir dir;
  CSharedPage page;
  EXPECT_EQ(page.Data(), nullptr);
  ASSERT_TRUE(page.Map(dir.Path("p"), kBytes));
  EXPECT_EQ(ReadAll(dir.Path("p")), std::string(kBytes, '\0'));
  std::memcpy(page.Data(), "hello", 5);
  EXPECT_EQ(ReadAll(dir.Path("p")).substr(0, 6), std::string("hello\0", 6));
  page.Leave();
  EXPECT_EQ(page.Data(), nullptr);
  EXPECT_EQ(ReadAll(dir.Path("p")).substr(0, 5), "hello");
}

TEST(SharedPage, AFileThatIsThereIsTakenOver) {
  const CTempDir dir;
  for (const size_t size : {size_t{3}, 3 * kBytes}) {
    const std::string path = dir.Write("p" + std::to_string(size), std::string(size, 'x'));
    CSharedPage page;
    ASSERT_TRUE(page.Map(path, kBytes));
    EXPECT_EQ(ReadAll(path), std::string(kBytes, '\0'));
    page.Leave();
  }
}

TEST(SharedPage, MappingAgainChangesNothing) {
  const CTempDir dir;
  CSharedPage page;
  ASSERT_TRUE(page.Map(dir.Path("p"), kBytes));
  std::memcpy(page.Data(), "hello", 5);
  void* const before = page.Data();
  EXPECT_TRUE(page.Map(dir.Path("p"), kBytes));
  EXPECT_EQ(page.Data(), before);
  EXPECT_EQ(ReadAll(dir.Path("p")).substr(0, 5), "hello");
  page.Leave();
  page.Leave();
  ASSERT_TRUE(page.Map(dir.Path("p"), kBytes));
  EXPECT_EQ(ReadAll(dir.Path("p")), std::string(kBytes, '\0'));
  page.Leave();
}

TEST(SharedPage, WhatIsNoFileIsRefused) {
  const CTempDir dir;
  CSharedPage page;
  EXPECT_FALSE(page.Map(dir.Path("none/p"), kBytes));
  EXPECT_FALSE(page.Map(dir.Path(""), kBytes));
  EXPECT_EQ(page.Data(), nullptr);
}

TEST(SharedPage, ADiskWithoutRoomIsRefused) {
  const CTempDir dir;
  CSharedPage page;
  EXPECT_FALSE(page.Map(dir.Path("p"), size_t{1} << 62));
  EXPECT_EQ(page.Data(), nullptr);
}

TEST(SharedPage, TellsItsProcess) {
  EXPECT_NE(OwnProcessNumber(), 0U);
}

}  // namespace
}  // namespace zelk
