// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "common/bytes.h"

struct pcap;

namespace trace {

using tool::Bytes;
using tool::ByteView;

// Nanoseconds since 1970, UTC.
using Time = std::int64_t;
inline constexpr Time kMillisecond = 1'000'000;
inline constexpr Time kSecond = 1000 * kMillisecond;

// A packet as the file has it. The bytes are valid until the next one is read.
struct SCaptured {
  std::uint64_t number = 0;  // in the file, from 1
  Time time = 0;
  ByteView bytes;
};

// Job: reads a pcap or pcapng file, packet by packet. Thread: one. Owns the file. The constructors throw CTraceError
// for a file that is none; a file that makes no sense from a packet on ends there, and Fault says so.
class CCaptureFile {
 public:
  // "-" is standard input.
  explicit CCaptureFile(const std::string& path);
  // Takes the stream over, also when it throws.
  CCaptureFile(std::FILE* stream, const std::string& streamName);

  // False at the end.
  bool Next(SCaptured& packet);
  // A DLT_ number of libpcap, and its name.
  int LinkType() const;
  std::string LinkTypeName() const;
  const std::string& Name() const { return name; }
  std::uint64_t Packets() const { return packets; }
  // Empty, or one sentence about the packet at which the file ends too early.
  const std::string& Fault() const { return fault; }

 private:
  struct SClose {
    void operator()(pcap* handle) const;
  };

  void Open(std::FILE* stream);

  std::string name;
  std::unique_ptr<pcap, SClose> file;
  std::uint64_t packets = 0;
  std::string fault;
};

}  // namespace trace
