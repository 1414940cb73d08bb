// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>
#include <vector>

#include "conversation.h"
#include "doctor/core/rules.h"
#include "doctor/core/wire_observer.h"

namespace doctor::test {

// A connection whose trunks are set up; nothing was said on them yet.
inline trace::test::CConversation Begun(int trunks = 1) {
  trace::test::CConversation talk;
  talk.Open();
  talk.SetUp(trunks);
  return talk;
}

// "fault hdlc-errors: SENTENCE", without what is only measured.
inline std::vector<std::string> Said(const Findings& findings) {
  std::vector<std::string> said;
  for (const SFinding& finding : findings) {
    if (finding.severity != ESeverity::kMeasured) {
      said.push_back(std::string(SeverityName(finding.severity)) + " " + finding.rule + ": " + finding.sentence);
    }
  }
  return said;
}

// What is measured alone, in the same form.
inline std::vector<std::string> Measured(const Findings& findings) {
  std::vector<std::string> said;
  for (const SFinding& finding : findings) {
    if (finding.severity == ESeverity::kMeasured) {
      said.push_back(std::string(finding.rule) + ": " + finding.sentence);
    }
  }
  return said;
}

// The facts of a capture with these packets.
inline SWireFacts FactsOf(const trace::test::Wire& packets) {
  trace::CCaptureFile file(trace::test::Stream(trace::test::PcapFile(packets)), "test.pcap");
  return CWireObserver().Run(file, 0);
}

}  // namespace doctor::test
