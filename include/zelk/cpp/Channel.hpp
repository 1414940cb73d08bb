/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * A channel and its calls.
 */
#ifndef ZELK_CPP_CHANNEL_HPP
#define ZELK_CPP_CHANNEL_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zelk/ZelkApi.h"
#include "zelk/cpp/Error.hpp"
#include "zelk/cpp/Hub.hpp"
#include "zelk/cpp/WavFile.hpp"

namespace zelkapi {

/**
 * One voice channel: a small value that can be copied. Any thread; what the functions of zelk/ZelkApi.h say of threads
 * and callbacks holds here. Each function throws NotRunning after the shut-down and BadChannel for a number that no
 * channel has; the library is not called then. What a call may meet in daily work (the channel is taken, the trunk is
 * down) is a result, not an exception.
 */
class Channel {
 public:
  /** Any number: whether there is such a channel shows with its use. */
  explicit Channel(int channelNumber) : channel(channelNumber) {}

  /** Its place in the table of channels. */
  int number() const noexcept { return channel; }
  /** The same channel. */
  friend bool operator==(const Channel& a, const Channel& b) noexcept { return a.channel == b.channel; }
  /** Another channel. */
  friend bool operator!=(const Channel& a, const Channel& b) noexcept { return a.channel != b.channel; }

  /** Opens for playing and for calls that the network offers without naming a channel. */
  bool open() const { return call(ZELK_OpenChannel); }
  /** Closes; queued sound is dropped, a call goes on. */
  void close() const { call(ZELK_CloseChannel); }

  /**
   * Places a call; see ZELK_Dial for what follows.
   * @param called   at most 31 characters of digits, *, # and +; throws BadArgument for others
   * @param calling  the own number shown; none: the one given last on this channel
   * @return false when the channel or its trunk cannot
   */
  [[nodiscard]] bool dial(const std::string& called, const std::optional<std::string>& calling = {}) const {
    checkNumber(called);
    if (calling) {
      checkNumber(*calling);
    }
    return call(ZELK_Dial, called.c_str(), calling ? calling->c_str() : nullptr);
  }
  /** Accepts the offered call, see ZELK_Answer. */
  bool answer() const { return call(ZELK_Answer); }
  /** Refuses the offered call: false, see ZELK_Reject. True, and nothing done, when it is connected. */
  bool reject() const { return call(ZELK_Reject); }
  /** Ends the call, see ZELK_Hangup. */
  bool hangup() const { return call(ZELK_Hangup); }

  /** Queues A-law behind what is queued; false without memory. */
  bool play(const std::uint8_t* alaw, std::size_t length) const {
    if (length > (std::numeric_limits<std::uint32_t>::max)()) {
      throw BadArgument("4 GB of sound at once are too much");
    }
    return call(ZELK_PlayBuffer, static_cast<const void*>(alaw), static_cast<std::uint32_t>(length));
  }
  /** The same. */
  bool play(const std::vector<std::uint8_t>& alaw) const { return play(alaw.data(), alaw.size()); }
  /** Queues a WAV file; throws WavError, which says why it cannot be played. Reads a disk: WavFile::read it once. */
  bool playFile(const std::filesystem::path& path) const {
    checkThere();
    return play(WavFile::read(path));
  }
  /** Drops what is queued and silences the line. */
  void stopPlay() const { call(ZELK_StopPlay); }
  /** How much is queued, see ZELK_PlayTimeLeft. */
  std::chrono::milliseconds playTimeLeft() const { return std::chrono::milliseconds(call(ZELK_PlayTimeLeft)); }

  /** Keeps the received sound, at most so many blocks of 20 ms (Sound::keep). */
  void recordOn(std::size_t blocks) const {
    const detail::Pass pass;
    check();
    detail::Hub::get().sound.keep(channel, blocks);
  }
  /** Keeps it no longer. */
  void recordOff() const {
    const detail::Pass pass;
    check();
    detail::Hub::get().sound.drop(channel);
  }
  /** Takes what was kept, without waiting (Sound::read). */
  Blocks readSound(std::size_t mostBlocks = Sound::kMostBlocks) const {
    const detail::Pass pass;
    check();
    return detail::Hub::get().sound.read(channel, mostBlocks);
  }

  /** A text, copied under the lock that all texts and numbers are asked for under; "" for a key that has none. */
  std::string text(ZelkInfo key) const {
    const detail::Pass pass;
    check();
    const std::lock_guard<std::mutex> held(detail::Hub::get().informationLock());
    const char* const words = ZELK_GetChannelInfoString(channel, key);
    return words != nullptr ? words : "";
  }
  /** A number, under the same lock; 0 for a key that has none. */
  std::uint32_t info(ZelkInfo key) const {
    const detail::Pass pass;
    check();
    const std::lock_guard<std::mutex> held(detail::Hub::get().informationLock());
    return ZELK_GetChannelInfo(channel, key);
  }
  /** Who calls. */
  std::string callingNumber() const { return text(ZELK_INFO_CLI); }
  /** Who was called. */
  std::string calledNumber() const { return text(ZELK_INFO_DLI); }
  /** From where the call was sent on. */
  std::string redirectingNumber() const { return text(ZELK_INFO_RLI); }
  /** The card's serial number. */
  std::uint32_t serialNumber() const { return info(ZELK_INFO_SERIALNO); }
  /** Trunk of the card, counted from 0. */
  std::uint32_t trunk() const { return info(ZELK_INFO_TRUNK); }
  /** E1 timeslot, 1-15 or 17-31. */
  std::uint32_t timeslot() const { return info(ZELK_INFO_TIMESLOT); }
  /** Whether it can be used. */
  ZelkChannelState state() const { return static_cast<ZelkChannelState>(info(ZELK_INFO_CHANNELSTATE)); }
  /** Whether and why the call was sent on. */
  ZelkCallType callType() const { return static_cast<ZelkCallType>(info(ZELK_INFO_CALLTYPE)); }
  /** Why the last function on this channel failed, whichever thread called it. */
  ZelkError lastError() const { return static_cast<ZelkError>(call(ZELK_GetLastError)); }

  /** Whether calls to the channel are offered or refused. */
  void allowIncoming(bool allowed) const { call(ZELK_SetChannelInfo, int{ZELK_SET_ALLOWINCOMING}, allowed ? 1 : 0); }

 private:
  static void checkNumber(std::string_view digits) {
    constexpr std::size_t kMostCharacters = 31;
    if (digits.size() > kMostCharacters) {
      throw BadArgument("a number has at most 31 characters");
    }
    if (digits.find_first_not_of("0123456789*#+") != std::string_view::npos) {
      throw BadArgument("a number is of digits, *, # and +");
    }
  }

  void check() const {
    if (channel < 0 || channel >= ZELK_GetChannelCount()) {
      throw BadChannel(channel);
    }
  }
  void checkThere() const {
    const detail::Pass pass;
    check();
  }

  template <class Function, class... Arguments>
  auto call(Function function, Arguments... arguments) const -> decltype(function(0, arguments...)) {
    const detail::Pass pass;
    check();
    return function(channel, arguments...);
  }

  int channel;
};

}  // namespace zelkapi

#endif
