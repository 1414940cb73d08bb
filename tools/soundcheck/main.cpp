// SPDX-License-Identifier: GPL-2.0-only
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>

#include "cardsim/audio/wav_file.h"
#include "cardsim/base/bytes.h"

namespace {

// How many samples from the start of `part` stand at `whole + offset` unchanged.
size_t Agreement(const cardsim::Bytes& whole, size_t offset, const cardsim::Bytes& part) {
  const size_t most = std::min(part.size(), whole.size() - offset);
  const auto first = whole.begin() + static_cast<std::ptrdiff_t>(offset);
  return static_cast<size_t>(
      std::mismatch(part.begin(), part.begin() + static_cast<std::ptrdiff_t>(most), first).first - part.begin());
}

// Where the two first differ, at the place where they agree longest: what a person needs to look for the fault.
int ReportDifference(const cardsim::Bytes& played, const cardsim::Bytes& recorded) {
  size_t best = 0;
  size_t bestOffset = 0;
  for (size_t offset = 0; offset < recorded.size(); ++offset) {
    const size_t same = Agreement(recorded, offset, played);
    if (same > best) {
      best = same;
      bestOffset = offset;
    }
  }
  std::cout << "DIFFERENT: the recording agrees with the first " << best << " of " << played.size()
            << " samples played, from offset " << bestOffset << " on\n";
  return 1;
}

int Check(const std::string& playedPath, const std::string& recordedPath) {
  const cardsim::Bytes played = cardsim::ReadWav(playedPath);
  const cardsim::Bytes recorded = cardsim::ReadWav(recordedPath);
  if (played.empty()) {
    std::cout << "DIFFERENT: " << playedPath << " holds no sound to compare\n";
    return 1;
  }
  const auto at =
      std::search(recorded.begin(), recorded.end(), std::boyer_moore_horspool_searcher(played.begin(), played.end()));
  if (at == recorded.end()) {
    return ReportDifference(played, recorded);
  }
  std::cout << "SAME: " << played.size() << " samples of " << playedPath << " stand in " << recordedPath
            << " unchanged, from sample " << at - recorded.begin() << " on\n";
  return 0;
}

int Run(int argc, char** argv) {
  CLI::App app("Checks that a recording holds everything that was played, A-law sample for A-law sample");
  std::string played;
  std::string recorded;
  app.add_option("played", played, "WAV file that one side played")->required()->check(CLI::ExistingFile);
  app.add_option("recorded", recorded, "WAV file that the other side recorded")->required()->check(CLI::ExistingFile);
  CLI11_PARSE(app, argc, argv);
  return Check(played, recorded);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zelk-soundcheck: %s\n", error.what());
    return 2;
  }
}
