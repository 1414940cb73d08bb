// SPDX-License-Identifier: GPL-2.0-only

// Whose code a task runs: the library's, what calls it or is called by it, or the simulated system's.
#pragma once

namespace zelk::sim {

class CScheduler;
struct STask;

// For the length of a block: the running task is inside the simulated system, whose memory never runs out.
class CInSystem {
 public:
  explicit CInSystem(const CScheduler* scheduler);
  ~CInSystem();
  CInSystem(const CInSystem&) = delete;
  CInSystem& operator=(const CInSystem&) = delete;

 private:
  STask* const task;
};

// For the length of a block: the running task is in the library, as in an export, or out of it, as in a callback.
class CSide {
 public:
  explicit CSide(bool isInLibrary);
  ~CSide();
  CSide(const CSide&) = delete;
  CSide& operator=(const CSide&) = delete;

 private:
  STask* const task;
  const bool before;
};

}  // namespace zelk::sim
