// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "fleet/names.h"
#include "node/asks.h"

namespace node {

// Sounds by name: files of the host's folder, and the fleet's own from its bucket, each fetched once for as long as it
// stays the same there. Thread: the node's.
class CSounds {
 public:
  // The file that can be played, or why there is none; neither when the servers do not answer.
  using Ready = std::function<void(const std::string& file, const std::string& trouble)>;

  CSounds(CAsks& toAsks, const fleet::SNames& fleetNames, std::string folder)
      : asks(toAsks), names(fleetNames), files(std::move(folder)) {}

  // The file of this name in the folder of the host.
  std::string FileOf(const std::string& name) const { return files + "/" + name; }
  // A name in a folder: nothing that leads out of it.
  static bool IsName(const std::string& name) {
    return !name.empty() && name.front() != '.' && name.find('/') == std::string::npos;
  }
  // Calls ready, at once or later.
  void Find(const std::string& name, const Ready& ready);

 private:
  struct SFetch {
    std::string hash;
    size_t parts = 0;
    std::string bytes;
    size_t next = 0;
  };

  void Look(const std::string& name, const Ready& ready);
  void Fetch(const std::string& name, const std::shared_ptr<SFetch>& fetch, const Ready& ready);
  void Keep(const std::string& name, const SFetch& fetch, const Ready& ready);
  std::string CachedFile(const std::string& hash) const { return files + "/.sounds/" + hash + ".wav"; }

  CAsks& asks;
  const fleet::SNames& names;
  const std::string files;
};

}  // namespace node
