// SPDX-License-Identifier: GPL-2.0-only

// Cards for the load program, all in one process: they let a library find and open them, or send to an echo at once,
// and exchange audio packets at the pace of their lines. Lines on the input: "begin" and "end" of a measurement, after
// which one line of JSON says what it was like; the end of the input ends the program.
#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "load/audio_side.h"
#include "load/control_side.h"

namespace {

constexpr int64_t kRestNs = 200000000;  // after the end of a window, for the replies that are under way

enum class EOrder { kNone, kBegin, kEnd, kQuit };

struct SOptions {
  std::string library;    // the address of whoever answers
  std::string broadcast;  // of discovery; empty for an echo
  uint16_t echoPort = 0;
  std::string sound;  // idle, voice, numbered
  std::vector<std::string> addresses;
  std::vector<uint32_t> trunks;
};

SOptions ReadOptions(int count, char** arguments) {
  if (count < 6) {
    throw std::runtime_error("usage: load_card LIBRARY BROADCAST|ECHO-PORT idle|voice|numbered ADDRESS TRUNKS ...");
  }
  SOptions options;
  options.library = arguments[1];
  const std::string place = arguments[2];
  if (place.find('.') == std::string::npos) {
    options.echoPort = static_cast<uint16_t>(std::stoi(place));
  } else {
    options.broadcast = place;
  }
  options.sound = arguments[3];
  for (int i = 4; i + 1 < count; i += 2) {
    options.addresses.emplace_back(arguments[i]);
    options.trunks.push_back(static_cast<uint32_t>(std::stoi(arguments[i + 1])));
  }
  return options;
}

class CCards {
 public:
  explicit CCards(SOptions cardOptions) : options(std::move(cardOptions)) {
    uint32_t channel = 0;
    for (size_t card = 0; card < options.addresses.size(); ++card) {
      const uint32_t trunks = options.trunks[card];
      const size_t period = FramesPeriod(trunks) / options.addresses.size();
      lines.push_back(std::make_unique<load::CAudioLine>(
          load::CAudioLine::SOptions{options.addresses[card], trunks, options.echoPort != 0,
                                     options.sound == "numbered", static_cast<uint16_t>(channel),
                                     static_cast<int64_t>(period * card)},
          MakeSound(trunks, static_cast<uint16_t>(channel))));
      channel += trunks * 30;
    }
    if (options.echoPort == 0) {
      std::vector<load::CControlSide::SCard> cards;
      for (size_t card = 0; card < lines.size(); ++card) {
        cards.push_back({options.addresses[card], static_cast<uint8_t>(options.trunks[card])});
      }
      control = std::make_unique<load::CControlSide>(cards, options.broadcast);
    }
  }

  void Run(const std::atomic<EOrder>& order, std::atomic<EOrder>& done) {
    for (;;) {
      FindTargets();
      load::CAudioLine* next = nullptr;
      for (const auto& line : lines) {
        if (line->IsSending() && (next == nullptr || line->Due() < next->Due())) {
          next = line.get();
        }
      }
      SleepUntil(next == nullptr ? load::NowNs(CLOCK_MONOTONIC) + 1000000 : next->Due());
      if (next != nullptr) {
        next->Send();
      }
      for (const auto& line : lines) {
        line->TakeReplies();
      }
      if (!Obey(order, done)) {
        return;
      }
    }
  }

 private:
  static size_t FramesPeriod(uint32_t trunks) { return load::FramesOf(trunks) * 125000; }

  static void SleepUntil(int64_t monotonicNs) {
    const timespec until{monotonicNs / 1000000000, monotonicNs % 1000000000};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
  }

  std::unique_ptr<load::ILineSound> MakeSound(uint32_t trunks, uint16_t channel) {
    if (options.sound == "numbered") {
      return load::MakeNumberedLines(trunks, channel);
    }
    if (options.sound == "idle") {
      return load::MakeIdleLines(trunks);
    }
    if (voicesOf[trunks] == nullptr) {
      voicesOf[trunks] = std::make_unique<load::CVoices>(trunks);
    }
    return voicesOf[trunks]->Lines();
  }

  void FindTargets() {
    for (size_t card = 0; card < lines.size() && found < lines.size(); ++card) {
      const auto port = control == nullptr ? static_cast<uint16_t>(options.echoPort + card) : control->AudioPort(card);
      if (!lines[card]->HasTarget() && port != 0) {
        lines[card]->SetTarget(options.library, port);
        lines[card]->Start(load::NowNs(CLOCK_MONOTONIC));
        ++found;
      }
    }
  }

  bool Obey(const std::atomic<EOrder>& order, std::atomic<EOrder>& done) {
    const EOrder wanted = order;
    if (wanted == EOrder::kQuit) {
      return false;
    }
    if (wanted == EOrder::kBegin && done != EOrder::kBegin) {
      for (const auto& line : lines) {
        line->Begin();
      }
      done = wanted;
    } else if (wanted == EOrder::kEnd && done == EOrder::kBegin) {
      for (const auto& line : lines) {
        line->End();
      }
      reportAt = load::NowNs(CLOCK_MONOTONIC) + kRestNs;
      done = wanted;
    } else if (reportAt != 0 && load::NowNs(CLOCK_MONOTONIC) >= reportAt) {
      reportAt = 0;
      Report();
    }
    return true;
  }

  void Report() {
    load::SExchange sum;
    load::SBlockCounts heard;
    for (const auto& line : lines) {
      const load::SExchange& one = line->Exchange();
      sum.sent += one.sent;
      sum.answered += one.answered;
      sum.repeated += one.repeated;
      sum.unexpected += one.unexpected;
      sum.delays.insert(sum.delays.end(), one.delays.begin(), one.delays.end());
      heard.Add(line->Sound());
    }
    std::sort(sum.delays.begin(), sum.delays.end());
    const auto percentile = [&sum](double part) {
      const auto last = static_cast<double>(sum.delays.size()) - 1;
      return sum.delays.empty() ? 0 : static_cast<double>(sum.delays[static_cast<size_t>(part * last)]) / 1000;
    };
    std::printf(
        "{\"sent\": %llu, \"answered\": %llu, \"repeated\": %llu, \"unexpected\": %llu, \"delay_us\": {\"p50\": %.1f, "
        "\"p99\": %.1f, \"p99.9\": %.1f, \"max\": %.1f}, \"heard\": %s}\n",
        Wide(sum.sent), Wide(sum.answered), Wide(sum.repeated), Wide(sum.unexpected), percentile(0.5), percentile(0.99),
        percentile(0.999), percentile(1), load::Text(heard).c_str());
    std::fflush(stdout);
  }

  static unsigned long long Wide(uint64_t value) { return value; }

  const SOptions options;
  std::unique_ptr<load::CVoices> voicesOf[9];
  std::vector<std::unique_ptr<load::CAudioLine>> lines;
  std::unique_ptr<load::CControlSide> control;
  size_t found = 0;
  int64_t reportAt = 0;
};

void Run(int count, char** arguments) {
  prctl(PR_SET_TIMERSLACK, 1);
  CCards cards(ReadOptions(count, arguments));
  std::puts("ready");
  std::fflush(stdout);
  std::atomic<EOrder> order{EOrder::kNone};
  std::atomic<EOrder> done{EOrder::kNone};
  std::thread worker([&] { cards.Run(order, done); });
  for (std::string line; std::getline(std::cin, line);) {
    order = line == "begin" ? EOrder::kBegin : EOrder::kEnd;
  }
  order = EOrder::kQuit;
  worker.join();
}

}  // namespace

int main(int count, char** arguments) {
  try {
    Run(count, arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "load_card: %s\n", error.what());
    return 1;
  }
  return 0;
}
