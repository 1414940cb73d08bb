/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * The start and the end of it all.
 */
#ifndef ZELK_CPP_LIBRARY_HPP
#define ZELK_CPP_LIBRARY_HPP

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "zelk/ZelkApi.h"
#include "zelk/cpp/Channel.hpp"
#include "zelk/cpp/Error.hpp"
#include "zelk/cpp/Hub.hpp"

namespace zelkapi {

/**
 * The library from its start to its shut-down: one at a time in a process. The queues of events and sound are filled
 * from the start on. Destroy it on a thread of the application, never in code that runs on a thread of the library: it
 * waits for those. In a child made by fork it does nothing any more.
 */
class Library {
 public:
  /** Starts, which may take seconds; throws AlreadyRunning, StartFailed. Without a card there are no channels. */
  Library() : Library(Handlers{}) {}

  /** The same, with code that runs on threads of the library: for what cannot wait for a thread of the application. */
  explicit Library(Handlers handlers) {
    switch (detail::Hub::get().start(std::move(handlers))) {
      case detail::Hub::Start::AlreadyRunning:
        throw AlreadyRunning();
      case detail::Hub::Start::InitFailed:
        throw StartFailed("the telephony library cannot start here");
      case detail::Hub::Start::Forked:
        throw StartFailed("the telephony library belongs to the process that this one was forked from");
      case detail::Hub::Start::Done:
        break;
    }
  }
  // NOLINTNEXTLINE(bugprone-exception-escape): only a lock that is broken throws, and nothing holds after that
  ~Library() { detail::Hub::get().stop(); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  /** Ends waits and waits for calls that are inside, then shuts down; further calls throw NotRunning. */
  void shutdown() { detail::Hub::get().stop(); }

  /** How many channels there are. */
  int channelCount() const {
    const detail::Pass pass;
    return ZELK_GetChannelCount();
  }

  /** Throws BadChannel for a number that no channel has. */
  Channel channel(int number) const {
    if (number < 0 || number >= channelCount()) {
      throw BadChannel(number);
    }
    return Channel(number);
  }

  /** All of them, in the order of their numbers. */
  std::vector<Channel> channels() const {
    const int count = channelCount();
    std::vector<Channel> all;
    all.reserve(static_cast<std::size_t>(count));
    for (int number = 0; number < count; ++number) {
      all.emplace_back(number);
    }
    return all;
  }

  /** What happened. Stays valid after the shut-down, when it is empty. */
  Events& events() noexcept { return detail::Hub::get().events; }

  /** Received sound. Stays valid after the shut-down, when it keeps none. */
  Sound& sound() noexcept { return detail::Hub::get().sound; }

  /** The name of an ITU-T Q.850 cause. */
  static std::string causeName(int cause) { return ZELK_DisconnectReasonToString(cause); }
};

}  // namespace zelkapi

#endif
