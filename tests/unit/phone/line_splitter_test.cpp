// SPDX-License-Identifier: GPL-2.0-only
#include "phone/line_splitter.h"

#include <gtest/gtest.h>

namespace phone {
namespace {

// Lines as they come out, one that is too long as "TOO LONG".
std::vector<std::string> Split(const std::string& bytes, size_t atATime) {
  CLineSplitter splitter;
  std::deque<SInputLine> lines;
  for (size_t at = 0; at < bytes.size(); at += atATime) {
    splitter.Feed(std::string_view(bytes).substr(at, atATime), lines);
  }
  splitter.End(lines);
  std::vector<std::string> texts;
  for (const SInputLine& line : lines) {
    texts.push_back(line.isTooLong ? "TOO LONG" : line.text);
  }
  return texts;
}

TEST(LineSplitter, EndsOfLinesAreThoseOfEverySystem) {
  const std::vector<std::string> lines = {"one", "", "two\rthree", std::string("a\0b", 3), "last"};
  const std::string bytes = std::string("one\n\r\ntwo\rthree\r\na\0b\nlast", 25);
  for (const size_t atATime : {1U, 2U, 3U, 100U}) {
    EXPECT_EQ(Split(bytes, atATime), lines) << atATime;
  }
  EXPECT_TRUE(Split("", 1).empty());
  EXPECT_EQ(Split("x\n", 1), std::vector<std::string>{"x"});
}

TEST(LineSplitter, WhatIsTooLongIsDroppedToItsEndAndTheNextIsRead) {
  const std::string longest(CLineSplitter::kLongest, 'x');
  const std::vector<std::string> lines = {longest, "TOO LONG", "next", "TOO LONG"};
  for (const size_t atATime : {size_t{1000}, size_t{4096}, size_t{1000000}}) {
    EXPECT_EQ(Split(longest + "\n" + longest + "y\nnext\n" + longest + longest, atATime), lines) << atATime;
  }
}

}  // namespace
}  // namespace phone
