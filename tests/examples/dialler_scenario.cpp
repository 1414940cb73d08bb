// SPDX-License-Identifier: GPL-2.0-only
#include <map>
#include <mutex>
#include <sstream>

#include "examples/example_fixture.h"

// A dialler and whom it calls: they answer, hang up early, are busy once or always, ring for ever, do not exist, and
// lose their trunk.
namespace {

using cardsim::SAnswerPlan;

class Dialler : public CExampleTest {
 protected:
  struct SRow {
    std::string result;
    std::string tries;
    std::string cause;
    std::string name;
    bool operator==(const SRow&) const = default;
  };
  using Plans = std::map<std::string, std::vector<SAnswerPlan>>;

  const Bytes prompt = Sound(500, 1);
  const std::string list = folder.Path("numbers.csv");
  const std::string results = folder.Path("results.csv");

  Words Arguments(const Words& more = {}) {
    Words words{list, results, WritePrompt("prompt.wav", prompt)};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  // By number: what becomes of its first call, its second ...; the last plan goes for all that follow.
  void SetPlans(const Plans& plans) {
    Card().SetAnswerPlanner([this, plans](const cardsim::CCall& call) {
      const std::lock_guard guard(lock);
      most = std::max(most, ++active);
      const std::vector<SAnswerPlan>& own = plans.at(call.Called());
      return own[std::min(calls[call.Called()]++, own.size() - 1)];
    });
    Card().OnCallEnded([this](const Call&) {
      const std::lock_guard guard(lock);
      --active;
    });
  }
  size_t CallsTo(const std::string& number) {
    const std::lock_guard guard(lock);
    return calls[number];
  }
  int MostAtOnce() {
    const std::lock_guard guard(lock);
    return most;
  }

  // What is heard of the prompt whole but for what is on its way when the call is ended.
  void ExpectHeardPrompt(const Call& call) const {
    EXPECT_TRUE(call->Heard()->WaitContains(cardsim::ByteView(prompt).first(prompt.size() - 44), kSoon));
  }

  void ExpectDone() {
    ASSERT_TRUE(example->WaitEnd(kSlow));
    EXPECT_EQ(example->ExitCode(), 0);
    EXPECT_EQ(example->Errors(), "");
  }

  std::map<std::string, SRow> Results() const {
    std::istringstream lines(zelk::ReadAll(results));
    std::map<std::string, SRow> rows;
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(WithoutReturn(line), "number,result,tries,cause,name");
    while (std::getline(lines, line)) {
      std::istringstream fields(WithoutReturn(line));
      std::string number;
      SRow row;
      std::getline(fields, number, ',');
      std::getline(fields, row.result, ',');
      std::getline(fields, row.tries, ',');
      std::getline(fields, row.cause, ',');
      std::getline(fields, row.name);
      EXPECT_TRUE(rows.emplace(number, row).second) << number << " has two results";
    }
    return rows;
  }

 private:
  // Lines of CSV files may end in both.
  static std::string WithoutReturn(std::string line) {
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    return line;
  }

  std::mutex lock;
  std::map<std::string, size_t> calls;  // guarded by lock; by number
  int active = 0;                       // guarded by lock
  int most = 0;                         // guarded by lock
};

TEST_F(Dialler, SaysWhatItCannotDoWithout) {
  ExpectRefused({}, 2, "usage: ");
  ExpectRefused(Arguments({"--at-once"}), 2, "usage: ");
  ExpectRefused(Arguments({"--at-once", "none"}), 2, "usage: ");
  ExpectRefused(Arguments(), 1, list);
  for (const std::string bad : {"030x", "12345678901234567890123456789012"}) {
    folder.Write("numbers.csv", "0301\n\n" + bad + "\n");
    ExpectRefused(Arguments(), 1, list + ":3");
  }
  folder.Write("numbers.csv", "0301\n");
  ExpectRefused({list, results, folder.Path("missing.wav")}, 1, folder.Path("missing.wav"));
  ExpectRefused(Arguments(), 1, "no card found");
}

TEST_F(Dialler, WritesWhatBecameOfEachNumber) {
  folder.Write("numbers.csv", "number,name\n0301,answers\n0302,busy\n\n0303,rings\r\n0304\n0305\n0306\n0307\n");
  StartCards();
  const SAnswerPlan busy = SAnswerPlan::Refuse(17);
  SAnswerPlan impatient;
  impatient.farEnd.hangupAfter = std::chrono::milliseconds(100);
  SetPlans({{"0301", {{}}},
            {"0302", {busy, {}}},
            {"0303", {SAnswerPlan::NeverAnswer()}},
            {"0304", {SAnswerPlan::Refuse(1)}},
            {"0305", {busy}},
            {"0306", {SAnswerPlan::Refuse(21)}},
            {"0307", {impatient}}});
  StartExample(Arguments({"--at-once", "3", "--give-up", "2", "--tries", "2", "--retry-wait", "0"}));
  ASSERT_NO_FATAL_FAILURE(ExpectDone());
  const SRow answered{"answered", "1", "16", "NORMAL_CLEARING"};
  const std::map<std::string, SRow> expected{{"0301", answered},
                                             {"0302", {"answered", "2", "16", "NORMAL_CLEARING"}},
                                             {"0303", {"no-answer", "1", "16", "NORMAL_CLEARING"}},
                                             {"0304", {"failed", "1", "1", "UNALLOCATED"}},
                                             {"0305", {"busy", "2", "17", "USER_BUSY"}},
                                             {"0306", {"failed", "1", "21", "CALL_REJECTED"}},
                                             {"0307", answered}};
  for (const auto& [number, row] : Results()) {
    EXPECT_TRUE(expected.at(number) == row)
        << number << ": " << row.result << ", " << row.tries << ", " << row.cause << ", " << row.name;
    EXPECT_EQ(std::to_string(CallsTo(number)), row.tries) << number;
  }
  EXPECT_EQ(Results().size(), expected.size());
  EXPECT_EQ(MostAtOnce(), 3);
}

TEST_F(Dialler, PlaysThePromptToEachOfManyWhoAnswer) {
  std::string numbers;
  Plans plans;
  for (int number = 100; number < 120; ++number) {
    numbers += std::to_string(number) + "\n";
    plans[std::to_string(number)] = {{}};
  }
  folder.Write("numbers.csv", numbers);
  StartCards();
  SetPlans(plans);
  StartExample(Arguments({"--at-once", "10"}));
  for (size_t count = 0; count < plans.size(); ++count) {
    const Call call = Card().WaitCall(kSlow);
    ASSERT_NE(call, nullptr) << count;
    ExpectHeardPrompt(call);
  }
  ASSERT_NO_FATAL_FAILURE(ExpectDone());
  EXPECT_EQ(Results().size(), plans.size());
  EXPECT_EQ(MostAtOnce(), 10);
}

TEST_F(Dialler, DialsAgainWhoWasLostWithHisTrunk) {
  folder.Write("numbers.csv", "0301\n0302\n");
  StartCards({2});
  SetPlans({{"0301", {SAnswerPlan::NeverAnswer(), {}}}, {"0302", {SAnswerPlan::NeverAnswer(), {}}}});
  StartExample(Arguments({"--at-once", "1", "--retry-wait", "0"}));
  const Call lost = Card().WaitCall(kSlow);
  ASSERT_NE(lost, nullptr);
  ASSERT_TRUE(example->WaitLine("dialling 0301", kSoon));
  LoseTrunk(lost->trunk);
  // The first channel that reads READY is on the other trunk now.
  const Call other = Card().WaitCall(kSlow);
  ASSERT_NE(other, nullptr);
  EXPECT_NE(other->trunk, lost->trunk);
  EXPECT_TRUE(example->WaitLine("dialling 0302", kSlow));
  // One is ringing and what is left is not done: the program says so.
  example->Interrupt();
  ASSERT_TRUE(example->WaitEnd(kSoon));
  EXPECT_EQ(example->ExitCode(), 1);
  EXPECT_NE(example->Errors().find("left"), std::string::npos);
}

}  // namespace
