// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>

#include "trace/core/control_decoder.h"

namespace trace {

// A frame of a D-channel as it goes into the file.
struct SExported {
  std::string card;  // serial number, or address
  std::uint32_t serial = 0;
  int trunk = 0;  // from 0
  bool isLibraryNetwork = false;
  SControl frame;
};

// Job: writes D-channels as pcapng of link type 177 (LAPD behind Linux's 16-byte pseudo-header): an interface a trunk,
// named SERIAL-TRUNK, direction and bad FCS in the flags of each packet.
//
//   pseudo-header: packet type (0 received, 4 sent by the library), 20FD, 0006, then 8 bytes of address, 0030
//   address:       1 where the library is the network side; trunk from 1; serial number (4 bytes); 2 bytes of 0
//   (numbers of more than one byte have their high byte first; frames are without FCS)
//
// Thread: one. The stream is its owner's, who looks whether all was written.
class CPcapngWriter {
 public:
  explicit CPcapngWriter(std::ostream& stream);
  void Write(const SExported& exported);

 private:
  std::uint32_t InterfaceOf(const SExported& exported);
  void WriteBlock(std::uint32_t type, const Bytes& body);

  std::ostream& out;
  std::map<std::string, std::uint32_t> interfaces;  // by name
};

}  // namespace trace
