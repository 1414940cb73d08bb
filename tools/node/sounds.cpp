// SPDX-License-Identifier: GPL-2.0-only
#include "node/sounds.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "fleet/sound_entry.h"
#include "node/replies.h"

namespace node {

void CSounds::Find(const std::string& name, const Ready& ready) {
  std::error_code failed;
  if (!IsName(name)) {
    ready("", "\"" + name + "\" is no name of a sound");
  } else if (std::filesystem::is_regular_file(FileOf(name), failed)) {
    ready(FileOf(name), "");
  } else {
    Look(name, ready);
  }
}

void CSounds::Look(const std::string& name, const Ready& ready) {
  const std::string stream = "KV_" + names.sounds;
  asks.Ask(GetSubject(stream), LastOfSubject("$KV." + names.sounds + "." + fleet::SoundKey(name)),
           [this, name, ready](const SReply& reply) {
             const SFound found = FoundOf(reply);
             if (found.kind == SFound::EKind::kFailed) {
               ready("", "");
               return;
             }
             try {
               if (found.kind != SFound::EKind::kThere) {
                 throw std::invalid_argument("neither this host nor the fleet has the sound " + name);
               }
               const fleet::SSoundEntry entry = fleet::ParseSoundEntry(found.data);
               std::error_code failed;
               if (std::filesystem::is_regular_file(CachedFile(entry.hash), failed)) {
                 ready(CachedFile(entry.hash), "");
                 return;
               }
               const auto fetch = std::make_shared<SFetch>();
               fetch->hash = entry.hash;
               fetch->parts = entry.parts;
               Fetch(name, fetch, ready);
             } catch (const std::invalid_argument& error) {
               ready("", error.what());
             }
           });
}

void CSounds::Fetch(const std::string& name, const std::shared_ptr<SFetch>& fetch, const Ready& ready) {
  if (fetch->next == fetch->parts) {
    Keep(name, *fetch, ready);
    return;
  }
  const std::string key = "$KV." + names.sounds + "." + fetch->hash + "." + std::to_string(fetch->next++);
  asks.Ask(GetSubject("KV_" + names.sounds), LastOfSubject(key), [this, name, fetch, ready](const SReply& reply) {
    const SFound found = FoundOf(reply);
    if (found.kind != SFound::EKind::kThere) {
      ready("", found.kind == SFound::EKind::kFailed ? "" : "a part of the sound " + name + " is not there");
      return;
    }
    fetch->bytes += found.data;
    Fetch(name, fetch, ready);
  });
}

void CSounds::Keep(const std::string& name, const SFetch& fetch, const Ready& ready) {
  if (fleet::Sha256(fetch.bytes) != fetch.hash) {
    ready("", "the sound " + name + " is damaged");
    return;
  }
  const std::string file = CachedFile(fetch.hash);
  const std::string half = file + ".new";  // never half a sound under its own name
  std::error_code failed;
  std::filesystem::create_directories(files + "/.sounds", failed);
  {
    std::ofstream out(half, std::ios::binary);
    out << fetch.bytes;
    if (!out.flush()) {
      ready("", "the sound " + name + " cannot be kept in " + files);
      return;
    }
  }
  std::filesystem::rename(half, file, failed);
  ready(failed ? "" : file, failed ? "the sound " + name + " cannot be kept in " + files : "");
}

}  // namespace node
