// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

namespace node {

// Where the sounds and recordings of this host are. Thread: the node's.
class CSounds {
 public:
  explicit CSounds(std::string folder) : files(std::move(folder)) {}

  // The file of this name in the folder of the host.
  std::string FileOf(const std::string& name) const { return files + "/" + name; }

 private:
  const std::string files;
};

}  // namespace node
