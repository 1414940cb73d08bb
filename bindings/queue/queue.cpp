// SPDX-License-Identifier: GPL-2.0-only

// The functions of zelk/ZelkQueue.h over the classes of zelk/Zelk.hpp: each checks its arguments, passes the gate and
// turns what is thrown into a result.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>

#include "zelk/Zelk.hpp"
#include "zelk/ZelkQueue.h"

namespace {

using zelkapi::Events;
using zelkapi::Sound;
using zelkapi::detail::Hub;

static_assert(Events::kRoom == ZELKQ_EVENT_ROOM && Sound::kMostBlocks == ZELKQ_MOST_BLOCKS);
static_assert(int{ZELK_BLOCK_BYTES} == int{ZELKQ_BLOCK_BYTES});
static_assert(zelkapi::kOverflow == static_cast<std::uint32_t>(ZELKQ_EVENT_OVERFLOW));
static_assert(zelkapi::kForever.count() == ZELKQ_FOREVER);
static_assert(sizeof(ZelkQueueEvent) == 32, "bindings read it by its offsets");

// Runs between the start and the stop; what it throws becomes a result.
template <class Result = std::int32_t, class Run>
Result inside(Run run) noexcept {
  try {
    const zelkapi::detail::Pass pass;
    return run(Hub::get());
  } catch (const zelkapi::NotRunning&) {
    return ZELKQ_STOPPED;
  } catch (const zelkapi::NotRecording&) {
    return ZELKQ_NO_RING;
  } catch (const zelkapi::Error&) {
    return ZELKQ_BAD_ARGUMENT;
  } catch (...) {
    return ZELKQ_NO_MEMORY;
  }
}

void checkChannel(std::int32_t channel) {
  if (channel < 0 || channel >= ZELK_GetChannelCount()) {
    throw zelkapi::BadChannel(channel);
  }
}

void check(bool isGood) {
  if (!isGood) {
    throw zelkapi::BadArgument("ZELKQ");
  }
}

void copy(const zelkapi::Event& from, ZelkQueueEvent& to) {
  to = {from.sequence, from.timeUs, from.channel, from.code, from.param, 0};
}

std::int32_t waitEvents(Hub& hub, ZelkQueueEvent* events, std::size_t room, std::int32_t timeoutMs) {
  std::array<zelkapi::Event, 64> some;
  std::size_t taken = 0;
  std::chrono::milliseconds timeout(timeoutMs);
  while (taken < room) {
    const std::size_t count = hub.events.take(some.data(), (std::min)(some.size(), room - taken), timeout);
    for (std::size_t i = 0; i < count; ++i) {
      copy(some[i], events[taken++]);
    }
    if (count < some.size()) {
      break;
    }
    timeout = std::chrono::milliseconds(0);
  }
  return taken == 0 && !hub.events.isRunning() ? std::int32_t{ZELKQ_STOPPED} : static_cast<std::int32_t>(taken);
}

std::int32_t copyText(const char* text, char* buffer, std::int32_t size) {
  if (text == nullptr) {
    if (size > 0) {
      buffer[0] = 0;
    }
    return ZELKQ_NO_TEXT;
  }
  const std::size_t length = std::strlen(text);
  if (size > 0) {
    const std::size_t copied = (std::min)(length, static_cast<std::size_t>(size) - 1);
    std::memcpy(buffer, text, copied);
    buffer[copied] = 0;
  }
  return static_cast<std::int32_t>(length);
}

}  // namespace

std::int32_t ZELKQ_CALL ZELKQ_Start(void) {
  try {
    switch (Hub::get().start()) {
      case Hub::Start::Done:
        return 0;
      case Hub::Start::AlreadyRunning:
        return ZELKQ_ALREADY_STARTED;
      case Hub::Start::InitFailed:
        return ZELKQ_INIT_FAILED;
      case Hub::Start::Forked:
        return ZELKQ_FORKED;
    }
    return ZELKQ_INIT_FAILED;
  } catch (...) {
    return ZELKQ_NO_MEMORY;
  }
}

std::int32_t ZELKQ_CALL ZELKQ_Stop(void) {
  try {
    return Hub::get().stop() ? 0 : std::int32_t{ZELKQ_STOPPED};
  } catch (...) {
    return ZELKQ_NO_MEMORY;
  }
}

std::int32_t ZELKQ_CALL ZELKQ_WaitEvents(ZelkQueueEvent* events, std::int32_t room, std::int32_t timeoutMs) {
  return inside([=](Hub& hub) {
    check(events != nullptr && room > 0);
    return waitEvents(hub, events, static_cast<std::size_t>(room), timeoutMs);
  });
}

std::int32_t ZELKQ_CALL ZELKQ_Wake(void) {
  return inside([](Hub& hub) {
    hub.events.wake();
    hub.sound.wake();
    return 0;
  });
}

std::int32_t ZELKQ_CALL ZELKQ_GetText(std::int32_t channel, std::uint32_t key, char* buffer, std::int32_t size) {
  return inside([=](Hub& hub) {
    check(size >= 0 && (buffer != nullptr || size == 0));
    checkChannel(channel);
    const std::lock_guard<std::mutex> held(hub.informationLock());
    return copyText(ZELK_GetChannelInfoString(channel, key), buffer, size);
  });
}

std::int32_t ZELKQ_CALL ZELKQ_GetNumber(std::int32_t channel, std::uint32_t key, std::uint32_t* value) {
  return inside([=](Hub& hub) {
    check(value != nullptr);
    checkChannel(channel);
    const std::lock_guard<std::mutex> held(hub.informationLock());
    *value = ZELK_GetChannelInfo(channel, key);
    return 0;
  });
}

std::int32_t ZELKQ_CALL ZELKQ_SetRing(std::int32_t channel, std::int32_t blocks) {
  return inside([=](Hub& hub) {
    check(blocks >= 0 && blocks <= ZELKQ_MOST_BLOCKS);
    checkChannel(channel);
    hub.sound.drop(channel);  // also when there is no memory for another
    if (blocks > 0) {
      hub.sound.keep(channel, static_cast<std::size_t>(blocks));
    }
    return 0;
  });
}

std::int32_t ZELKQ_CALL ZELKQ_ReadBlocks(std::int32_t channel, std::uint8_t* data, std::int32_t blocks,
                                         std::uint64_t* lost) {
  return inside([=](Hub& hub) {
    check(data != nullptr && blocks > 0);
    checkChannel(channel);
    std::uint64_t missing = 0;
    const std::size_t taken = hub.sound.read(channel, data, static_cast<std::size_t>(blocks), missing);
    if (lost != nullptr) {
      *lost = missing;
    }
    return static_cast<std::int32_t>(taken);
  });
}

std::int32_t ZELKQ_CALL ZELKQ_WaitBlocks(std::int32_t blocks, std::int32_t* channels, std::int32_t room,
                                         std::int32_t timeoutMs) {
  return inside([=](Hub& hub) {
    check(channels != nullptr && room > 0 && blocks > 0);
    const std::size_t found = hub.sound.wait(static_cast<std::size_t>(blocks), channels, static_cast<std::size_t>(room),
                                             std::chrono::milliseconds(timeoutMs));
    return found == 0 && !hub.events.isRunning() ? std::int32_t{ZELKQ_STOPPED} : static_cast<std::int32_t>(found);
  });
}

std::int64_t ZELKQ_CALL ZELKQ_GetLost(std::int32_t channel) {
  return inside<std::int64_t>([=](Hub& hub) -> std::int64_t {
    if (channel == ZELKQ_NO_CHANNEL) {
      return static_cast<std::int64_t>(hub.events.lost());
    }
    checkChannel(channel);
    return static_cast<std::int64_t>(hub.sound.lost(channel));
  });
}

std::int32_t ZELKQ_CALL ZELKQ_GetVersion(void) {
  return ZELKQ_VERSION;
}
