// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/program/examine.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "common/wire.h"
#include "doctor/core/d_channel_file.h"
#include "doctor/core/rules.h"
#include "doctor/core/wire_observer.h"
#include "doctor/program/library_files.h"
#include "doctor/program/machine.h"
#include "trace/core/hdlc_file.h"
#include "trace/core/packet.h"
#include "trace/core/trace_error.h"
#include "trace/live/live_capture.h"

namespace doctor {
namespace {

SMachineFacts LookAtMachine() {
  SMachineFacts machine;
  machine.adapters = AdapterAddresses();
  machine.holders = tool::UdpWildcardHolders(tool::kCardPort);
  machine.receiveBufferMost = ReceiveBufferMost();
  return machine;
}

std::optional<SWireFacts> LookAtWire(const SOptions& options, Findings& findings) {
  std::optional<SWireFacts> wire;
  try {
    const auto read = [&](trace::CCaptureFile& file) {
      wire = CWireObserver().Run(file, options.trunks);
      return trace::EExit::kDone;
    };
    if (!options.adapter.empty()) {
      trace::CaptureLive({options.adapter, options.seconds}, read);
    } else if (trace::CHdlcFile::IsOne(options.capture)) {
      Append(findings, DChannelRules(ReadDChannelFile(options.capture, false)));
    } else if (!options.capture.empty()) {
      trace::CCaptureFile file(options.capture);
      read(file);
    }
  } catch (const trace::CTraceError& error) {
    findings.push_back(Find("capture-unreadable", std::string(error.what()) + "."));
  }
  return wire;
}

// Of all cards that were seen; none when of one it is not known.
Serials SerialsOf(const std::optional<SWireFacts>& wire, const std::optional<SLibraryFacts>& library) {
  Serials serials;
  if (library && library->page && library->pageNotLive.empty()) {
    for (const trace::SPageCard& card : library->page->cards) {
      serials[card.serial] = static_cast<int>(card.trunks.size());
    }
  }
  if (wire) {
    for (const auto& [address, card] : wire->cards) {
      if (card.serial == 0) {
        return {};
      }
      serials[card.serial] = static_cast<int>(card.trunks.size());
    }
  }
  return serials;
}

std::vector<std::uint32_t> AddressesOf(const std::optional<SWireFacts>& wire,
                                       const std::optional<SLibraryFacts>& library) {
  std::vector<std::uint32_t> addresses;
  if (wire) {
    for (const auto& [address, card] : wire->cards) {
      addresses.push_back(address);
    }
  }
  if (library && library->page && library->pageNotLive.empty()) {
    for (const trace::SPageCard& card : library->page->cards) {
      addresses.push_back(card.address);
    }
  }
  std::sort(addresses.begin(), addresses.end());
  addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
  return addresses;
}

Findings Probe(const SMachineFacts& machine, const std::optional<SLibraryFacts>& library) {
  const bool isRunning = library && library->page && library->pageNotLive.empty();
  if (!machine.holders.empty() || isRunning) {
    return {Find("probe-refused", "A library runs on this machine, so no probe is sent.")};
  }
  Findings findings;
  std::vector<std::string> asked;
  bool isAnswered = false;
  for (const SAdapterAddress& adapter : machine.adapters.value_or(std::vector<SAdapterAddress>())) {
    const std::string name = adapter.adapter + " (" + trace::AddressText(adapter.address) + ")";
    const SProbed probed = ProbeCards(adapter);
    if (!probed.fault.empty()) {
      findings.push_back(Find("probe-failed", "The network of " + name + " cannot be asked: " + probed.fault + "."));
      continue;
    }
    asked.push_back(name);
    for (const std::uint32_t card : probed.cards) {
      isAnswered = true;
      findings.push_back(Find("probe-card", "A card at " + trace::AddressText(card) + " answers at " + name + "."));
    }
  }
  if (!isAnswered && !asked.empty()) {
    findings.push_back(Find("probe-no-card", "No card answers a probe.", asked));
  }
  return findings;
}

// Of the files beside a library what the capture does not say too.
void LookAtDChannels(const std::vector<std::string>& files, Findings& findings) {
  std::set<std::pair<std::string, std::string>> said;  // rule and trunk
  for (const SFinding& finding : findings) {
    said.emplace(finding.rule, finding.trunk);
  }
  for (const std::string& file : files) {
    try {
      for (SFinding& finding : DChannelRules(ReadDChannelFile(file, true))) {
        if (finding.trunk.empty() || said.count({finding.rule, finding.trunk}) == 0) {
          findings.push_back(std::move(finding));
        }
      }
    } catch (const trace::CTraceError& error) {
      findings.push_back(Find("capture-unreadable", std::string(error.what()) + "."));
    }
  }
}

Findings LookAtFiles(const SLibraryFacts& library, const Serials& serials) {
  Findings findings = FolderRules(library);
  Append(findings, IniRules(library, serials));
  Append(findings, PageRules(library));
  if (library.log) {
    Append(findings, LogRules(*library.log));
  }
  return findings;
}

}  // namespace

Findings Examine(const SOptions& options) {
  Findings findings;
  std::optional<SLibraryFacts> library;
  if (!options.library.empty()) {
    library = LookAtLibrary(options.library);
  }
  const std::optional<SWireFacts> wire = LookAtWire(options, findings);
  if (library) {
    Append(findings, LookAtFiles(*library, SerialsOf(wire, library)));
  }
  if (!options.log.empty()) {
    Append(findings, LogRules(LookAtLog(options.log)));
  }
  // A capture and a log may be of another machine.
  const bool isFileAlone = !library && options.adapter.empty() && !(options.capture.empty() && options.log.empty());
  if (!isFileAlone || options.probe) {
    const SMachineFacts machine = LookAtMachine();
    Append(findings, AdapterRules(machine, AddressesOf(wire, library)));
    Append(findings, HolderRules(machine));
    if (options.probe) {
      Append(findings, Probe(machine, library));
    }
  }
  if (wire) {
    Append(findings, WireRules(*wire));
  }
  if (library) {
    LookAtDChannels(library->dChannelFiles, findings);
  }
  return findings;
}

}  // namespace doctor
