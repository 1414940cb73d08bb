// SPDX-License-Identifier: GPL-2.0-only
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fleet/commands.h"
#include "fleet/sound_entry.h"

namespace fleet {

namespace {

std::string ReadSound(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!file || bytes.empty() || bytes.size() > kMostSoundBytes) {
    throw CLinkError(path + " has " + std::to_string(bytes.size()) + " bytes; a sound of the fleet has 1 to " +
                     std::to_string(kMostSoundBytes) + ", a longer one belongs in --files of the hosts");
  }
  return bytes;
}

void Put(kvStore* store, const std::string& key, const std::string& value) {
  uint64_t revision = 0;
  Check(kvStore_Put(&revision, store, key.c_str(), value.data(), static_cast<int>(value.size())), "the sound");
}

}  // namespace

int RunSound(const SLinkOptions& link, const SNames& names, const std::vector<std::string>& files) {
  CLink connection(link, [](SMail&& /*mail*/) {});
  kvStore* store = nullptr;
  Check(js_KeyValue(&store, connection.JetStream(), names.sounds.c_str()),
        "no bucket " + names.sounds + " (made by zelk-fleet init)");
  for (const std::string& path : files) {
    const std::string bytes = ReadSound(path);
    SSoundEntry entry{Sha256(bytes), 0};
    for (size_t at = 0; at < bytes.size(); at += kSoundPart) {
      Put(store, entry.hash + "." + std::to_string(entry.parts++), bytes.substr(at, kSoundPart));
    }
    // Last of all: whoever finds the name finds the parts.
    const std::string name = std::filesystem::path(path).filename();
    Put(store, SoundKey(name), TextOf(entry));
    std::printf("%s: %zu bytes, %s\n", name.c_str(), bytes.size(), entry.hash.c_str());
  }
  kvStore_Destroy(store);
  return 0;
}

}  // namespace fleet
