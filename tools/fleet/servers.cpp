// SPDX-License-Identifier: GPL-2.0-only
#include "fleet/servers.h"

#include <charconv>
#include <stdexcept>

namespace fleet {

namespace {

struct SServer {
  bool isTls = false;
  std::string host;
  uint16_t port = 4222;
};

SServer Read(const std::string& text) {
  SServer server;
  std::string rest = text;
  const size_t scheme = text.find("://");
  if (scheme != std::string::npos) {
    server.isTls = text.substr(0, scheme) == "tls";
    if (!server.isTls && text.substr(0, scheme) != "nats") {
      throw std::invalid_argument("server \"" + text + "\": an address begins with nats:// or tls://");
    }
    rest = text.substr(scheme + 3);
  }
  if (rest.find('@') != std::string::npos) {
    throw std::invalid_argument("server \"" + text + "\": names and passwords have options of their own");
  }
  const size_t colon = rest.rfind(':');
  const bool hasPort = colon != std::string::npos && rest.find(']', colon) == std::string::npos;
  server.host = hasPort ? rest.substr(0, colon) : rest;
  if (hasPort) {
    const char* end = rest.data() + rest.size();
    const auto read = std::from_chars(rest.data() + colon + 1, end, server.port);
    if (read.ec != std::errc() || read.ptr != end || server.port == 0) {
      throw std::invalid_argument("server \"" + text + "\": " + rest.substr(colon + 1) + " is no port");
    }
  }
  if (server.host.empty() || server.host.find_first_of(" /\\?#") != std::string::npos) {
    throw std::invalid_argument("server \"" + text + "\" has no host");
  }
  return server;
}

bool IsHere(const std::string& host) {
  const bool isAddress = host.find_first_not_of("0123456789.") == std::string::npos;
  return host == "localhost" || host == "[::1]" || (isAddress && host.rfind("127.", 0) == 0);
}

}  // namespace

std::vector<std::string> ReadServers(const std::string& list, bool usesTls, bool allowsPlain) {
  std::vector<std::string> servers;
  for (size_t begin = 0; begin <= list.size();) {
    const size_t end = std::min(list.find(',', begin), list.size());
    const std::string text = list.substr(begin, end - begin);
    const SServer server = Read(text);
    if (!server.isTls && !usesTls && !allowsPlain && !IsHere(server.host)) {
      throw std::invalid_argument("server \"" + text +
                                  "\" is on another computer and would be reached without TLS: use tls:// or --tls, or "
                                  "--plain on a network that nobody else is on");
    }
    servers.push_back((server.isTls || usesTls ? "tls://" : "nats://") + server.host + ":" +
                      std::to_string(server.port));
    begin = end + 1;
  }
  return servers;
}

}  // namespace fleet
