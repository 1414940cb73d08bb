// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "card/pri_adapter.h"
#include "runtime/log.h"
#include "support/pri_pair.h"

namespace zelk {
namespace {

// What is logged from its construction to Text().
class CLogText {
 public:
  CLogText() : path((std::filesystem::temp_directory_path() / "zelk-pri-adapter-test.log").string()) {
    Log().Start(path);  // what was pending goes to the file, and the file goes
    Log().Stop();
    std::filesystem::remove(path);
    InstallPriMessageHook();
  }
  ~CLogText() { std::filesystem::remove(path); }
  CLogText(const CLogText&) = delete;
  CLogText& operator=(const CLogText&) = delete;

  std::string Text() const {
    Log().Start(path);
    Log().Stop();
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

 private:
  const std::string path;
};

// libpri takes them, says of each frame that it does not know how to send it, and never brings layer 2 up.
TEST(PriMessages, UnusualNodeTypesAreHandedOnAndStayDown) {
  for (const int node : {0, 3, 5, 10}) {
    const CLogText log;
    CPriSide side(node);
    ASSERT_NE(side.controller, nullptr) << node;
    SPriEvent event;
    const uint8_t sabme[] = {0x00, 0x01, 0x7F, 0, 0};
    EXPECT_FALSE(side.controller->Receive(sabme, sizeof sabme, event)) << node;
    EXPECT_TRUE(side.written.empty()) << node;
    const std::string text = log.Text();
    EXPECT_NE(text.find("SABME on a type " + std::to_string(node) + " node"), std::string::npos) << text;
  }
}

class CLabelledSide : public CPriSide {
 public:
  CLabelledSide() : CPriSide(kUserSide, kEuroIsdnE1, 1) {}
  uint32_t MessageCard() const override { return 4; }
};

TEST(PriMessages, WritesLibprisMessagesToTheLog) {
  const CLogText log;
  {
    CLabelledSide side;
    SPriEvent event;
    const uint8_t xid[] = {0x02, 0x01, 0xAF, 0, 0};
    side.controller->Receive(xid, sizeof xid, event);
  }
  const std::string text = log.Text();
  EXPECT_NE(text.find("  G :Debug Message: Card[4] Link[1]: !! XID frames not supported"), std::string::npos) << text;
}

}  // namespace
}  // namespace zelk
