// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>
#include <vector>

namespace fleet {

// The servers of a list with commas between them, each as nats://host:port or tls://host:port. Throws
// std::invalid_argument with one sentence for one that is none, and for one elsewhere that would be reached without
// TLS, unless that is allowed.
std::vector<std::string> ReadServers(const std::string& list, bool usesTls, bool allowsPlain);

}  // namespace fleet
