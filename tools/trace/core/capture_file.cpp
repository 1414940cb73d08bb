// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/capture_file.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "trace/core/trace_error.h"

namespace trace {
namespace {

// Far beyond any clock; nanoseconds of it still fit.
constexpr std::int64_t kLatestSecond = std::int64_t{1} << 33;

Time TimeOf(const pcap_pkthdr& header) {
  const auto seconds = std::clamp(static_cast<std::int64_t>(header.ts.tv_sec), std::int64_t{0}, kLatestSecond);
  const auto nanoseconds = std::clamp(static_cast<std::int64_t>(header.ts.tv_usec), std::int64_t{0}, kSecond - 1);
  return seconds * kSecond + nanoseconds;
}

}  // namespace

void CCaptureFile::SClose::operator()(pcap* handle) const {
  pcap_close(handle);
}

CCaptureFile::CCaptureFile(const std::string& path) : name(path == "-" ? "standard input" : path) {
  std::FILE* stream = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  if (stream == nullptr) {
    throw CTraceError(EExit::kBadInput, name + ": cannot be opened (" + std::strerror(errno) + ")");
  }
  Open(stream);
}

CCaptureFile::CCaptureFile(std::FILE* stream, const std::string& streamName) : name(streamName) {
  Open(stream);
}

void CCaptureFile::Open(std::FILE* stream) {
  char message[PCAP_ERRBUF_SIZE] = "";
  file.reset(pcap_fopen_offline_with_tstamp_precision(stream, PCAP_TSTAMP_PRECISION_NANO, message));
  if (file == nullptr) {
    if (stream != stdin) {
      std::fclose(stream);
    }
    throw CTraceError(EExit::kBadInput, name + ": is no pcap or pcapng file (" + message + ")");
  }
}

bool CCaptureFile::Next(SCaptured& packet) {
  pcap_pkthdr* header = nullptr;
  const u_char* bytes = nullptr;
  const int result = fault.empty() ? pcap_next_ex(file.get(), &header, &bytes) : PCAP_ERROR_BREAK;
  if (result != 1) {
    if (result == PCAP_ERROR) {
      fault = name + ": packet " + std::to_string(packets + 1) + " cannot be read (" + pcap_geterr(file.get()) +
              "); this is what stands before it";
    }
    return false;
  }
  packet = {++packets, TimeOf(*header), ByteView(bytes, header->caplen)};
  return true;
}

int CCaptureFile::LinkType() const {
  return pcap_datalink(file.get());
}

std::string CCaptureFile::LinkTypeName() const {
  const char* text = pcap_datalink_val_to_name(LinkType());
  return text == nullptr ? std::to_string(LinkType()) : text;
}

}  // namespace trace
