// SPDX-License-Identifier: GPL-2.0-only
#include "card/capture_file.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "platform/module.h"
#include "runtime/paths.h"

namespace zelk {
namespace {

constexpr SLocalTime kTime{2013, 5, 9, 14, 3, 7};

TEST(CaptureLine, HasDirectionTimeOffsetAndBytes) {
  const uint8_t frame[] = {0x02, 0x01, 0x7F};
  EXPECT_EQ(FormatCaptureLine('O', kTime, frame, 3), "O 2013-05-09 14:03:07 0000 02 01 7F \r\n");
}

TEST(CaptureLine, OfNoBytesHas29Characters) {
  const std::string line = FormatCaptureLine('I', kTime, nullptr, 0);
  EXPECT_EQ(line, "I 2013-05-09 14:03:07 0000 \r\n");
  EXPECT_EQ(line.size(), 29U);
}

TEST(CaptureLine, OfTheLongestFrameIsWhole) {
  const std::vector<uint8_t> frame(300, 0xAF);
  const std::string line = FormatCaptureLine('O', kTime, frame.data(), frame.size());
  EXPECT_EQ(line.size(), 29U + 900U);
  EXPECT_EQ(line.substr(line.size() - 5), "AF \r\n");
}

TEST(CapturePath, DoublesTheSeparator) {
  EXPECT_EQ(CapturePath("C:\\lib\\", '\\', 4711, 1), "C:\\lib\\\\zelk-4711-1.hdlc");
}

// The file a capture of this test program writes.
class CaptureFile : public testing::Test {
 protected:
  void SetUp() override {
    std::string module;
    ASSERT_TRUE(ModulePath(module));
    path = CapturePath(DerivePaths(module, kPathSeparator).directory, kPathSeparator, kSerial, 3);
    std::remove(path.c_str());
  }
  void TearDown() override { std::remove(path.c_str()); }
  std::string Content() const {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  static constexpr uint32_t kSerial = 4294900001U;
  std::string path;
};

TEST_F(CaptureFile, IsAppendedToByTheNextOpen) {
  CCaptureFile capture;
  const uint8_t frame[] = {0xAB};
  capture.Open(kSerial, 3);
  capture.Write('O', frame, 1);
  capture.Close();
  const std::string first = Content();
  EXPECT_EQ(first.size(), 32U);
  capture.Open(kSerial, 3);
  capture.Write('I', frame, 1);
  capture.Close();
  EXPECT_EQ(Content().size(), 64U);
  EXPECT_EQ(Content().substr(0, 32), first);
  EXPECT_EQ(Content()[32], 'I');
}

TEST_F(CaptureFile, ThatIsNotOpenWritesNothing) {
  CCaptureFile capture;
  const uint8_t frame[] = {0xAB};
  capture.Write('O', frame, 1);
  capture.Close();
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace zelk
