/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * What the classes of zelk/Zelk.hpp throw.
 */
#ifndef ZELK_CPP_ERROR_HPP
#define ZELK_CPP_ERROR_HPP

#include <stdexcept>
#include <string>

namespace zelkapi {

/** Base of everything that is thrown here, memory that ran out apart. what() is a text for people. */
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/** The library is not running: before a Library was made, after its shut-down, in a child made by fork. */
class NotRunning : public Error {
 public:
  NotRunning() : Error("the telephony library is not running") {}
};

/** A second Library beside one that is there. */
class AlreadyRunning : public Error {
 public:
  AlreadyRunning() : Error("the telephony library is in use: one Library at a time") {}
};

/** The library could not be started. */
class StartFailed : public Error {
 public:
  using Error::Error;
};

/** No channel has this number. */
class BadChannel : public Error {
 public:
  /** The number that was asked for. */
  explicit BadChannel(int number) : Error("there is no channel " + std::to_string(number)) {}
};

/** An argument that the line would take for something else, or not at all. */
class BadArgument : public Error {
 public:
  using Error::Error;
};

/** The channel's sound is not kept (Channel::recordOn). */
class NotRecording : public Error {
 public:
  /** The channel that was asked for. */
  explicit NotRecording(int number) : Error("the sound of channel " + std::to_string(number) + " is not kept") {}
};

}  // namespace zelkapi

#endif
