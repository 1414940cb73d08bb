// SPDX-License-Identifier: GPL-2.0-only
#include <filesystem>
#include <fstream>

#include "native_module.h"
#include "support/temp_dir.h"
#include "system_fixture.h"

// Where the library has its files: beside itself, under whatever path it was loaded.
namespace {

namespace fs = std::filesystem;

// The library loaded from a copy in a folder of the test's own, by a path of the test's choice.
struct SLoadedLibrary {
  explicit SLoadedLibrary(const std::string& path) : module(OpenModule(path)) {}
  ~SLoadedLibrary() { CloseModule(module); }
  SLoadedLibrary(const SLoadedLibrary&) = delete;
  SLoadedLibrary& operator=(const SLoadedLibrary&) = delete;

  const Module module;
  const decltype(&ZELK_Init) init = FindFunction<decltype(&ZELK_Init)>(module, "ZELK_Init");
  const decltype(&ZELK_Shutdown) shutdown = FindFunction<decltype(&ZELK_Shutdown)>(module, "ZELK_Shutdown");
};

class LoadPath : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (remote::CRemoteLibrary::Place() != nullptr) {
      GTEST_SKIP() << "the library is in another process, which has a directory of its own";
    }
  }
  void TearDown() override { fs::current_path(start); }

  static void CopyLibrary(const fs::path& folder) {
    fs::create_directories(folder);
    fs::copy_file(support::CZelkLibrary::File(), folder / "libZelkApi-64.so");
  }

  // Opens and closes a card of one trunk.
  static void Run(const SLoadedLibrary& library) {
    cardsim::CSimulator sim(cardsim::SSimulatorConfig::WithTrunks({1}));
    sim.Start();
    ASSERT_TRUE(library.init());
    EXPECT_TRUE(sim.Card(0).WaitUp(std::chrono::seconds(30)));
    library.shutdown();
  }

  // A line that is there only when the ini file was read.
  static bool HasLine(const fs::path& log) {
    return zelk::ReadAll(log.string()).find(":READREG: CardNo=0 LinkNo=0") != std::string::npos;
  }

  static constexpr const char* kIni = "[Debug]\nLevel=0\n[General]\nHdlcLog=1\n";
  const fs::path start = fs::current_path();
  const zelk::CTempDir home;
  const zelk::CTempDir elsewhere;
};

TEST_P(LoadPath, a_relative_one_counts_from_the_directory_at_the_loading) {
  const fs::path folder = fs::path(home.Path()) / "lib";
  CopyLibrary(folder);
  home.Write("lib/libZelkApi.ini", kIni);
  fs::current_path(fs::path(home.Path()) / GetParam());
  {
    const SLoadedLibrary library((fs::path(GetParam()) == "lib" ? "./" : "lib/") + std::string("libZelkApi-64.so"));
    fs::current_path(elsewhere.Path());
    Run(library);
  }
  EXPECT_TRUE(HasLine(folder / "libZelkApi.log"));
  EXPECT_TRUE(fs::exists(folder / "zelk-100001-1.hdlc"));
  EXPECT_TRUE(fs::is_empty(elsewhere.Path()));
}

INSTANTIATE_TEST_SUITE_P(Directories, LoadPath, testing::Values("lib", "."),
                         [](const testing::TestParamInfo<const char*>& name) {
                           return std::string(name.param) == "lib" ? "the_librarys_own" : "the_one_above";
                         });

class LongLoadPath : public LoadPath {};

// The path of the module is cut to 259 characters, and the names of its files are made of what is left.
TEST_F(LongLoadPath, is_cut_to_259_characters) {
  constexpr size_t kMost = 259;
  const fs::path outer = fs::path(home.Path()) / std::string(100, 'a');
  const fs::path folder = outer / std::string(150, 'b');
  CopyLibrary(folder);
  const std::string path = (folder / "libZelkApi-64.so").string();
  ASSERT_GT(path.size(), kMost);
  const std::string stem = path.substr(0, kMost - 6);
  std::ofstream(stem + ".ini") << kIni;
  {
    const SLoadedLibrary library(path);
    Run(library);
  }
  EXPECT_TRUE(HasLine(stem + ".log"));
  EXPECT_TRUE(fs::exists(outer / "zelk-100001-1.hdlc"));
  EXPECT_FALSE(fs::exists(folder / "libZelkApi.log"));
}

}  // namespace
