// SPDX-License-Identifier: GPL-2.0-only
#include <filesystem>
#include <fstream>

#include "system_fixture.h"

namespace {

namespace fs = std::filesystem;

// The simulator as a program: what its exit code says.
class CardsimProgram : public testing::Test {
 protected:
  void SetUp() override {
    bin = fs::read_symlink("/proc/self/exe").parent_path();
    if (!fs::exists(bin / "zelk-cardsim") || !fs::exists(bin / "zelk-phone")) {
      GTEST_SKIP() << "the programs are not built in " << bin;
    }
  }

  static int Run(const std::string& command) {
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string Cardsim(const std::string& options) const {
    return "'" + (bin / "zelk-cardsim").string() + "' " + options + " > /dev/null 2>&1";
  }

  fs::path bin;
};

TEST_F(CardsimProgram, fails_when_none_of_the_calls_was_connected) {
  EXPECT_EQ(Run(Cardsim("--seconds 0.2")), 0);
  EXPECT_EQ(Run(Cardsim("--seconds 0.2 --calls-per-second 100")), 2);
  EXPECT_EQ(Run(Cardsim("--seconds 0.2 --calls 3")), 2);
}

TEST_F(CardsimProgram, ends_well_when_the_calls_asked_for_were_answered) {
  const support::CZelkLibrary library;  // its folder has the telephone's library
  if (!fs::exists(fs::path(library.Folder()) / "libZelkApi-64.so")) {
    GTEST_SKIP() << "the library under test is another system's";
  }
  // One call that the far end clears, then the end of both.
  EXPECT_EQ(Run("LD_LIBRARY_PATH='" + library.Folder() + "'; export LD_LIBRARY_PATH; '" +
                (bin / "zelk-cardsim").string() + "' --calls 1 --calls-per-second 10 --hold 200 --seconds 60 > '" +
                library.Folder() + "/card.txt' & card=$!; while ! grep -q '^card 1:' '" + library.Folder() +
                "/card.txt'; do kill -0 $card || exit 90; done; '" + (bin / "zelk-phone").string() +
                "' answer --wait 30 > /dev/null || exit 91; wait $card"),
            0);
}

}  // namespace
