// SPDX-License-Identifier: GPL-2.0-only

// What a log line costs the thread that writes it, beside spdlog's asynchronous logger: a queue of 8192 lines, a caller
// that waits when it is full (it never is: what is queued goes out between the bursts), the same line in the file.
#include "runtime/log.h"

#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <barrier>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBurst = 4096;  // lines of all callers together
constexpr size_t kQueue = 8192;
constexpr const char* kText = "Dial() -> new call setup failed";

std::string Folder() {
  static const std::string folder = [] {
    std::string path = (std::filesystem::temp_directory_path() / "zelk-bench-log-XXXXXX").string();
    return std::string(mkdtemp(path.data()));
  }();
  return folder;
}

// A log under test. Settle comes after every burst, untimed.
class ILogger {
 public:
  virtual ~ILogger() = default;
  virtual void Line() = 0;
  virtual void Formatted(unsigned card, unsigned trunk) = 0;
  virtual void Settle() = 0;
};

class CLibraryLog : public ILogger {
 public:
  CLibraryLog() { zelk::Log().Start(path); }
  ~CLibraryLog() override {
    zelk::Log().Stop();
    std::filesystem::remove(path);
  }
  void Line() override { zelk::LogLine(kText, 12); }
  void Formatted(unsigned card, unsigned trunk) override {
    zelk::LogFormat(zelk::ELogClass::kAlways, zelk::kGeneralLine, "Card %u: Trunk %u - %s", card, trunk, "DCHANNEL UP");
  }
  // Its thread writes every 100 ms. Long before what waits reaches the limit, a stop writes all of it.
  void Settle() override {
    if (++bursts % 32 == 0) {
      zelk::Log().Stop();
      std::filesystem::resize_file(path, 0);
      zelk::Log().Start(path);
    }
  }

 private:
  const std::string path = Folder() + "/library.log";
  int bursts = 0;
};

class CSpdlog : public ILogger {
 public:
  CSpdlog() {
    spdlog::init_thread_pool(kQueue, 1);
    pool = spdlog::thread_pool();
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true);
    logger = std::make_shared<spdlog::async_logger>("bench", sink, pool, spdlog::async_overflow_policy::block);
    logger->set_formatter(std::make_unique<spdlog::pattern_formatter>(
        "%d/%m/%Y %H:%M:%S  12 :%v", spdlog::pattern_time_type::local, std::string("\r\n")));
  }
  ~CSpdlog() override {
    logger.reset();
    pool.reset();
    spdlog::shutdown();
    std::filesystem::remove(path);
  }
  void Line() override { logger->info(kText); }
  void Formatted(unsigned card, unsigned trunk) override {
    logger->info("Card {}: Trunk {} - {}", card, trunk, "DCHANNEL UP");
  }
  void Settle() override {
    while (pool->queue_size() > 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

 private:
  const std::string path = Folder() + "/spdlog.log";
  std::shared_ptr<spdlog::details::thread_pool> pool;
  std::shared_ptr<spdlog::async_logger> logger;
};

double Seconds(const std::function<void()>& act) {
  const auto start = Clock::now();
  act();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Callers that write at the same time, this thread among them; Burst gives the mean of their times.
class CCallers {
 public:
  CCallers(int count, std::function<void()> burst)
      : times(static_cast<size_t>(count)), gate(count), act(std::move(burst)) {
    for (int i = 1; i < count; ++i) {
      threads.emplace_back([this, i] { Follow(static_cast<size_t>(i)); });
    }
  }
  ~CCallers() {
    isOver = true;
    gate.arrive_and_wait();
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  CCallers(const CCallers&) = delete;
  CCallers& operator=(const CCallers&) = delete;

  double Burst() {
    gate.arrive_and_wait();
    times[0] = Seconds(act);
    gate.arrive_and_wait();
    double sum = 0;
    for (const double time : times) {
      sum += time;
    }
    return sum / static_cast<double>(times.size());
  }

 private:
  void Follow(size_t i) {
    while (true) {
      gate.arrive_and_wait();
      if (isOver) {
        return;
      }
      times[i] = Seconds(act);
      gate.arrive_and_wait();
    }
  }

  std::vector<double> times;
  std::barrier<> gate;
  std::function<void()> act;
  bool isOver = false;  // written and read around the gate
  std::vector<std::thread> threads;
};

template <class Logger>
void Run(benchmark::State& state, int callers, bool isFormatted) {
  Logger logger;
  const int lines = kBurst / callers;
  CCallers all(callers, [&] {
    for (int i = 0; i < lines; ++i) {
      if (isFormatted) {
        logger.Formatted(3, static_cast<unsigned>(i) % 8);
      } else {
        logger.Line();
      }
    }
  });
  for (auto turn : state) {
    (void)turn;
    state.SetIterationTime(all.Burst());
    logger.Settle();
  }
  state.SetItemsProcessed(state.iterations() * lines);
}

template <class Logger>
void Register(const std::string& subject) {
  for (const int callers : {1, 4}) {
    const std::string suffix =
        callers == 1 ? "/" : std::string("-").append(std::to_string(callers)).append("-callers/");
    for (const bool isFormatted : {false, true}) {
      const std::string name = std::string(isFormatted ? "log/formatted" : "log/line").append(suffix).append(subject);
      benchmark::RegisterBenchmark(name.c_str(), [callers, isFormatted](benchmark::State& state) {
        Run<Logger>(state, callers, isFormatted);
      })->UseManualTime();
    }
  }
}

const bool registered = [] {
  Register<CLibraryLog>("library");
  Register<CSpdlog>("spdlog");
  return true;
}();

}  // namespace
