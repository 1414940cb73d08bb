// SPDX-License-Identifier: GPL-2.0-only
#include <filesystem>
#include <regex>
#include <sstream>
#include <thread>

#include "system_fixture.h"

// The log file beside the library, as its reader sees it.
namespace {

namespace fs = std::filesystem;
using cardsim::Call;
using namespace std::chrono_literals;

constexpr uint16_t kRegister = 0x1006;

class LogFile : public CSystemTest {
 protected:
  std::vector<std::string> Lines() {
    std::vector<std::string> lines;
    std::istringstream text(app->zelk.LogText());
    for (std::string line; std::getline(text, line);) {
      lines.push_back(line);
    }
    return lines;
  }

  bool Has(const std::string& text) { return app->zelk.LogText().find(text) != std::string::npos; }

  // Makes the library write one line of the detail class that carries this number.
  void CauseLine(unsigned number) { Card().SendRegisterValue(0, static_cast<uint16_t>(number), 0); }

  static std::string CausedLine(unsigned number) {
    char text[40];
    std::snprintf(text, sizeof text, "Reg[0x%04X] = 00 ", number);
    return text;
  }

  // The numbers of the caused lines in the order of the file.
  std::vector<unsigned> CausedNumbers() {
    std::vector<unsigned> numbers;
    const std::regex form("Reg\\[0x([0-9A-F]{4})\\] = 00 \r$");
    for (const std::string& line : Lines()) {
      std::smatch match;
      if (std::regex_search(line, match, form)) {
        numbers.push_back(static_cast<unsigned>(std::stoul(match[1], nullptr, 16)));
      }
    }
    return numbers;
  }

  void ExpectAllInOrder(unsigned count) {
    std::vector<unsigned> expected(count);
    for (unsigned i = 0; i < count; ++i) {
      expected[i] = i;
    }
    EXPECT_EQ(CausedNumbers(), expected);
  }

  // Lines of every class: a register, an error of a line, a call's progress, and in the end a call that fails.
  void CauseEveryClass() {
    ASSERT_TRUE(app->zelk.OpenChannel(5));
    ASSERT_TRUE(app->zelk.Dial(5, "123", nullptr));
    ASSERT_TRUE(app->WaitEvent(5, ZELK_EVENT_CONNECTED, kSoon));
    app->zelk.Hangup(5);
    ASSERT_TRUE(app->WaitEvent(5, ZELK_EVENT_DISCONNECTED, kSoon));
    Card().SendHdlcError(0, 2);
    CauseLine(kRegister);
    Card().TakeLayer2Down(0);
    ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSoon, 3)) << "up at the start, down, up again";
    // A card that is closed and cannot be opened again has no trunk to call on.
    Card().SetListening(false);
    Card().Announce();
    ASSERT_TRUE(Card().Seen().WaitConnected(false, kSoon));
    EXPECT_FALSE(app->zelk.Dial(5, "123", nullptr));
    ASSERT_TRUE(app->zelk.WaitLog(kFailed)) << app->zelk.LogText();
  }

  static constexpr const char* kFailed = "   5 :Dial() -> new call failed\r\n";
  static constexpr const char* kRegisterLine = "   G :READREG: CardNo=0 LinkNo=0, Reg[0x1006] = 00 \r\n";
  static constexpr const char* kErrorLine = "   G :Card 0: Trunk 0 - HDLC CRC Error\r\n";
  static constexpr const char* kUpLine = "   G :Card 0: Trunk 0 - DCHANNEL UP\r\n";
  static constexpr const char* kDownLine = "   G :Card 0: Trunk 0 - DCHANNEL DOWN\r\n";
  static constexpr const char* kProgressLine = "   5 :Call Status Alerting\r\n";
};

TEST_F(LogFile, every_line_has_its_date_its_channel_or_g_and_ends_in_cr_lf) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=0\n"));
  ASSERT_NO_FATAL_FAILURE(CauseEveryClass());
  const std::regex form("\\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d (  G|[ \\d]{2}\\d) :[^\r]+\r");
  for (const std::string& line : Lines()) {
    EXPECT_TRUE(std::regex_match(line, form)) << line;
  }
}

TEST_F(LogFile, levels_0_and_1_have_every_class) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=1\n"));
  ASSERT_NO_FATAL_FAILURE(CauseEveryClass());
  for (const char* line : {kRegisterLine, kErrorLine, kUpLine, kDownLine, kProgressLine}) {
    EXPECT_TRUE(Has(line)) << line;
  }
  EXPECT_TRUE(Has("Reg[0x1006] = 5A \r\n")) << "the register that start-up asks for";
}

TEST_F(LogFile, a_level_that_is_no_number_is_level_0) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=most\n"));
  EXPECT_TRUE(app->zelk.WaitLog("READREG: CardNo=0 LinkNo=0, Reg[0x1006] = 5A \r\n"));
}

TEST_F(LogFile, level_2_leaves_out_the_detail) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=2\n"));
  ASSERT_NO_FATAL_FAILURE(CauseEveryClass());
  for (const char* line : {kErrorLine, kUpLine, kDownLine}) {
    EXPECT_TRUE(Has(line)) << line;
  }
  EXPECT_FALSE(Has("READREG"));
  EXPECT_FALSE(Has("Call Status Alerting"));
}

TEST_F(LogFile, level_3_writes_only_what_is_always_written) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=3\n"));
  ASSERT_NO_FATAL_FAILURE(CauseEveryClass());
  for (const std::string& line : Lines()) {
    const bool isAlways = (line + "\n").find(kFailed) != std::string::npos ||
                          line.find("   G :Debug Message: Card[0] Link[0]: ") != std::string::npos;
    EXPECT_TRUE(isAlways) << line;
  }
}

TEST_F(LogFile, the_card_of_trunk_lines_is_the_number_of_trunks_before_it) {
  ASSERT_NO_FATAL_FAILURE(Start({2, 1}, "[Debug]\nLevel=1\n"));
  Card(1).SendHdlcError(0, 3);
  EXPECT_TRUE(app->zelk.WaitLog("  G :Card 2: Trunk 0 - HDLC ABORT Error\r\n")) << app->zelk.LogText();
  EXPECT_TRUE(app->zelk.WaitLog("  G :Card 2: Trunk 0 - DCHANNEL UP\r\n"));
  EXPECT_TRUE(app->zelk.WaitLog("  G :READREG: CardNo=2 LinkNo=0, Reg[0x1006] = 5A \r\n"));
  EXPECT_TRUE(app->zelk.WaitLog("  G :READREG: CardNo=0 LinkNo=1, Reg[0x1006] = 5A \r\n"));
}

TEST_F(LogFile, a_file_that_is_deleted_while_the_library_runs_is_made_anew) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=0\nFlushImmediate=1\n"));
  CauseLine(1);
  ASSERT_TRUE(app->zelk.WaitLog(CausedLine(1)));
  fs::remove(app->zelk.LogPath());
  CauseLine(2);
  ASSERT_TRUE(app->zelk.WaitLog(CausedLine(2)));
  EXPECT_FALSE(Has(CausedLine(1)));
}

TEST_F(LogFile, loses_no_line_while_its_folder_is_gone_for_five_seconds) {
  constexpr unsigned kLines = 250;
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=0\nFlushImmediate=1\n"));
  const std::string folder = app->zelk.Folder();
  const std::string away = folder + "-away";
  CauseLine(0);
  ASSERT_TRUE(app->zelk.WaitLog(CausedLine(0)));
  fs::rename(folder, away);
  for (unsigned i = 1; i < kLines; ++i) {
    CauseLine(i);
    support::LetPass(20ms);  // the folder's absence is to last, with lines all through it
  }
  EXPECT_FALSE(fs::exists(app->zelk.LogPath()));
  fs::rename(away, folder);
  CauseLine(kLines);
  ASSERT_TRUE(app->zelk.WaitLog(CausedLine(kLines), 40000)) << app->zelk.LogText();
  ExpectAllInOrder(kLines + 1);
}

TEST_F(LogFile, a_burst_of_lines_is_written_whole_and_in_order) {
  constexpr unsigned kLines = 5000;
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=0\n"));
  ASSERT_TRUE(app->zelk.WaitLog("= 5A "));
  cardsim::Bytes burst{0xFF};
  for (unsigned i = 0; i < kLines; ++i) {
    burst.insert(burst.end(), {0x02, 0x00, static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8), 0x00});
  }
  Card().SendControl(burst);
  ASSERT_TRUE(app->zelk.WaitLog(CausedLine(kLines - 1), 20000));
  ExpectAllInOrder(kLines);
}

TEST_F(LogFile, what_is_pending_is_written_when_the_library_is_unloaded) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=0\nFlushImmediate=1\n"));
  // Up means that the library has handled everything before it; the writer still gathers for 100 ms.
  for (unsigned i = 0; i < 100; ++i) {
    CauseLine(i);
  }
  Card().TakeLayer2Down(0);
  ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSoon));
  app->zelk.Unload();
  ExpectAllInOrder(100);
}

}  // namespace
