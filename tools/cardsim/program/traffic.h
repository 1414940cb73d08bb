// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cardsim/card/simulator.h"
#include "cardsim/program/call_record.h"
#include "cardsim/program/options.h"

namespace cardsim {

struct SCallTotals {
  std::uint64_t offered = 0;
  std::uint64_t taken = 0;
  std::uint64_t connected = 0;
  std::uint64_t ended = 0;
  std::map<int, std::uint64_t> causes;
};

// Job: the program's callers and called parties: places calls at the wanted rate on idle timeslots in turn, answers
// those of the library by the options, and makes a record (and a WAV file) of every call that ended.
// Thread: the program's main thread, but for the two observers, which the signalling thread calls. Turn blocks as long
// as it writes files. The constructor throws std::runtime_error for a file that cannot be read or a directory that
// cannot be made, std::invalid_argument for a digit that is none; Turn throws std::runtime_error for a recording that
// cannot be written.
class CTraffic {
 public:
  CTraffic(CSimulator& simulator, const SOptions& programOptions);
  // Stops the simulator, whose signalling thread calls the observers.
  ~CTraffic() { sim.Stop(); }
  CTraffic(const CTraffic&) = delete;
  CTraffic& operator=(const CTraffic&) = delete;

  // Places what is due and takes in what has ended.
  void Turn(std::chrono::steady_clock::time_point now);
  // All calls wanted have been placed and have ended.
  bool IsDone() const;
  // Hangs up what is left, waits for the ends no longer than `timeout`.
  void Finish(std::chrono::milliseconds timeout);
  // Takes in what has ended since the last Turn, also what was lost when the simulator stopped.
  void TakeEnded();
  // Writes the files of --record-lines. Throws std::runtime_error for one that cannot be written.
  void SaveTimeslots() const;

  std::size_t Active() const;
  const SCallTotals& Totals(int card) const { return totals[static_cast<std::size_t>(card)]; }
  SCallTotals Sum() const;
  // Calls to the library were asked for, and none of them was connected.
  bool IsInVain() const;
  const std::vector<SCallRecord>& Records() const { return records; }

 private:
  struct SPlace {
    int card;
    int trunk;
    int timeslot;
  };

  struct SRecordedTimeslot {
    int card;
    int trunk;
    int timeslot;
    Recorder recorder;
  };

  void ListPlaces();
  void ListenToTimeslots();
  void PauseWhenDue(std::chrono::steady_clock::time_point now);
  bool PlaceNext();
  AudioSource Source() const;
  SFarEnd FarEnd() const;
  SAnswerPlan Plan() const;
  void OnEnded(const Call& call);
  void Record(const Call& call);
  std::string Save(const SCallRecord& record, const Bytes& samples) const;

  CSimulator& sim;
  const SOptions options;
  std::shared_ptr<const Bytes> sound;  // what every far end plays; null for silence
  std::vector<SPlace> places;
  std::size_t nextPlace = 0;
  std::chrono::steady_clock::time_point nextCall;
  std::chrono::steady_clock::time_point nextPause;
  std::vector<SRecordedTimeslot> timeslots;
  std::uint64_t placed = 0;
  std::map<const CCall*, Call> open;  // calls placed here that have not ended
  std::vector<SCallTotals> totals;
  std::vector<SCallRecord> records;

  mutable std::mutex lock;
  std::vector<Call> ended;  // guarded by lock
  std::vector<Call> taken;  // guarded by lock; calls from the library under way
};

}  // namespace cardsim
