// SPDX-License-Identifier: GPL-2.0-only
#include "examples/example_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "support/wav_bytes.h"

std::vector<std::string> CExampleTest::command;

CExampleTest::CExampleTest(int audioBuffers) {
  const std::filesystem::path library(ZELK_LIBRARY_PATH);
  const std::string link = folder.Path(library.filename().string());
  std::filesystem::create_symlink(library, link);
  folder.Write("libZelkApi.ini", "[General]\nAudioBuffers=" + std::to_string(audioBuffers) + "\n");
  setenv("ZELKAPI_LIBRARY", link.c_str(), 1);
  static const char* const before = std::getenv("LD_LIBRARY_PATH");
  static const std::string others = before == nullptr ? "" : std::string(":") + before;
  setenv("LD_LIBRARY_PATH", (folder.Path() + others).c_str(), 1);
}

void CExampleTest::TearDown() {
  if (HasFailure() && example != nullptr) {
    ADD_FAILURE() << "the example's output:\n"
                  << example->Output() << "its errors:\n"
                  << example->Errors() << "the library's log:\n"
                  << LogText();
  }
  example.reset();
  sim.reset();
}

void CExampleTest::StartCards(const std::vector<int>& trunksOfCards) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks(trunksOfCards));
  sim->Start();
  // Sound does not depend on how busy the machine is.
  for (size_t card = 0; card < sim->CardCount(); ++card) {
    sim->Card(card).Audio().SetWaitForReplies(true);
  }
}

void CExampleTest::StartExample(const Words& arguments) {
  Words words = command;
  words.insert(words.end(), arguments.begin(), arguments.end());
  example = std::make_unique<CExampleProcess>(words);
}

void CExampleTest::StartServing(const Words& arguments, const std::vector<int>& trunksOfCards) {
  StartCards(trunksOfCards);
  StartExample(arguments);
  ASSERT_TRUE(example->WaitLine("waiting for calls on", kSlow));
  for (size_t card = 0; card < sim->CardCount(); ++card) {
    ASSERT_TRUE(sim->Card(card).WaitUp(kSlow));
  }
}

void CExampleTest::EndInGoodOrder() {
  example->Interrupt();
  ASSERT_TRUE(example->WaitEnd(kSoon));
  EXPECT_EQ(example->ExitCode(), 0);
  EXPECT_EQ(example->Errors(), "");
}

void CExampleTest::ExpectRefused(const Words& arguments, int exitCode, const std::string& error) {
  StartExample(arguments);
  ASSERT_TRUE(example->WaitEnd(kSoon));
  EXPECT_EQ(example->ExitCode(), exitCode);
  EXPECT_NE(example->Errors().find(error), std::string::npos) << error;
}

CExampleTest::Call CExampleTest::Connect(cardsim::SCallRequest request) {
  Call call = Card().PlaceCall(std::move(request));
  EXPECT_TRUE(call->WaitState(cardsim::ESimCallState::kConnected, kSoon));
  return call;
}

void CExampleTest::LoseTrunk(int trunk) {
  const size_t before = CountInLog("DCHANNEL DOWN");
  Card().LoseLayer2(trunk);
  EXPECT_TRUE(support::Eventually([&] { return CountInLog("DCHANNEL DOWN") > before; }, kSlow));
}

void CExampleTest::MendTrunk(int trunk) {
  const size_t before = CountInLog("DCHANNEL UP");
  Card().CutLine(trunk, false);
  EXPECT_TRUE(support::Eventually([&] { return CountInLog("DCHANNEL UP") > before; }, kSlow));
  EXPECT_TRUE(Card().WaitUp(kSlow));
}

std::string CExampleTest::WritePrompt(const std::string& name, const Bytes& sound) const {
  constexpr uint32_t kALaw = 6;
  const wav::Bytes file = wav::File(kALaw, 8, sound);
  return folder.Write(name, {reinterpret_cast<const char*>(file.data()), file.size()});
}

CExampleTest::Bytes CExampleTest::Sound(int ms, std::uint32_t seed) {
  Bytes sound = cardsim::RenderTestPattern(static_cast<size_t>(ms) * kBytesPerMs, seed);
  sound.front() = sound.back() = 0;
  return sound;
}

CExampleTest::Bytes CExampleTest::WithoutSilence(Bytes heard) {
  constexpr std::uint8_t kIdleByte = 0x54;  // what a line carries after sound was stopped
  const auto isSound = [](std::uint8_t sample) { return sample != cardsim::kSilence && sample != kIdleByte; };
  heard.erase(std::find_if(heard.rbegin(), heard.rend(), isSound).base(), heard.end());
  heard.erase(heard.begin(), std::find_if(heard.begin(), heard.end(), isSound));
  return heard;
}
