// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <string>

#include "examples/example_fixture.h"

// example_tests --scenario KIND -- COMMAND [ARGUMENT...]: one kind's scenario for one example.
namespace {

const std::map<std::string, std::string> kSuites{{"announcement", "Announcement"},
                                                 {"recorder", "Recorder"},
                                                 {"dialler", "Dialler"},
                                                 {"ivr", "Ivr"},
                                                 {"bridge", "Bridge"}};

int Usage() {
  std::cerr << "usage: example_tests --scenario announcement|recorder|dialler|ivr|bridge -- COMMAND [ARGUMENT...]\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const std::vector<std::string> words(argv, argv + argc);
  if (words.size() < 5 || words[1] != "--scenario" || words[3] != "--" || !kSuites.contains(words[2])) {
    return Usage();
  }
  CExampleTest::command.assign(words.begin() + 4, words.end());
  std::string& filter = testing::GTEST_FLAG(filter);
  filter = kSuites.at(words[2]) + (filter == "*" ? ".*" : "." + filter);
  const int result = RUN_ALL_TESTS();
  return testing::UnitTest::GetInstance()->test_to_run_count() == 0 ? Usage() : result;
}
