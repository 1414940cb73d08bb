// SPDX-License-Identifier: GPL-2.0-only

// The fuzz targets without a fuzzer: every seed, every input of the repository's corpus, then mutations of the seeds
// that are the same in every run.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <random>

#include "fuzz/target.h"

namespace zelk::fuzz {

static void PrintTo(const STarget& target, std::ostream* out) {
  *out << target.name;
}

namespace {

constexpr uint8_t kTelling[] = {0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF};

class CMutator {
 public:
  Bytes Mutate(Bytes bytes, const Bytes& other) {
    for (uint32_t i = 0; i <= Draw(4); ++i) {
      Change(bytes, other);
    }
    return bytes;
  }

 private:
  size_t Draw(size_t bound) { return bound == 0 ? 0 : random() % bound; }

  void Change(Bytes& bytes, const Bytes& other) {
    const size_t at = Draw(bytes.size());
    const auto place = bytes.begin() + static_cast<ptrdiff_t>(at);
    if (bytes.empty()) {
      bytes.push_back(static_cast<uint8_t>(random()));
      return;
    }
    switch (Draw(6)) {
      case 0:
        *place = static_cast<uint8_t>(random());
        return;
      case 1:
        *place = kTelling[Draw(sizeof kTelling)];
        return;
      case 2:
        *place = static_cast<uint8_t>(*place ^ 1U << Draw(8));
        return;
      case 3:
        bytes.erase(place, place + static_cast<ptrdiff_t>(1 + Draw(std::min<size_t>(8, bytes.size() - at))));
        return;
      case 4:
        bytes.insert(place, 1 + Draw(8), static_cast<uint8_t>(random()));
        return;
      default:
        bytes.resize(at);
        bytes.insert(bytes.end(), other.begin() + static_cast<ptrdiff_t>(Draw(other.size())), other.end());
    }
  }

  std::mt19937 random{20240229};  // the same numbers in every run
};

std::string HexOf(const Bytes& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : bytes) {
    text += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return text;
}

// The inputs that the repository keeps of a target, a line of hexadecimal digits each.
std::vector<Bytes> KeptInputs(const std::string& target) {
  std::ifstream file(std::filesystem::path(ZELK_FUZZ_CORPUS) / target);
  std::vector<Bytes> inputs;
  for (std::string line; std::getline(file, line);) {
    Bytes input;
    for (size_t at = 0; line[0] != '#' && at + 1 < line.size(); at += 2) {
      input.push_back(static_cast<uint8_t>(std::stoi(line.substr(at, 2), nullptr, 16)));
    }
    inputs.push_back(std::move(input));
  }
  return inputs;
}

void RunOne(const STarget& target, const Bytes& input) {
  try {
    target.run(input.data(), input.size());
  } catch (const std::exception& broken) {
    ADD_FAILURE() << broken.what() << "; input " << HexOf(input);
  }
}

class FuzzTargets : public testing::TestWithParam<STarget> {};

TEST_P(FuzzTargets, KeepTheirPromisesForSeedsAndMutations) {
  const std::vector<Bytes> seeds = GetParam().seeds();
  ASSERT_FALSE(seeds.empty());
  RunOne(GetParam(), {});
  for (const Bytes& seed : seeds) {
    RunOne(GetParam(), seed);
  }
  CMutator mutator;
  for (size_t i = 0; i < GetParam().mutations && !HasFailure(); ++i) {
    RunOne(GetParam(), mutator.Mutate(seeds[i % seeds.size()], seeds[i * 7 % seeds.size()]));
  }
}

TEST_P(FuzzTargets, KeepTheirPromisesForTheKeptInputs) {
  const std::vector<Bytes> inputs = KeptInputs(GetParam().name);
  ASSERT_GT(inputs.size(), 3U) << "no corpus";
  for (const Bytes& input : inputs) {
    RunOne(GetParam(), input);
  }
}

INSTANTIATE_TEST_SUITE_P(Inputs, FuzzTargets, testing::ValuesIn(Targets()),
                         [](const auto& target) { return std::string(target.param.name); });

}  // namespace
}  // namespace zelk::fuzz
