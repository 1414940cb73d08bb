/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * WAV files of the line's sound.
 */
#ifndef ZELK_CPP_WAV_FILE_HPP
#define ZELK_CPP_WAV_FILE_HPP

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "zelk/ZelkApi.h"
#include "zelk/cpp/Alaw.hpp"
#include "zelk/cpp/Error.hpp"

namespace zelkapi {

/** A WAV file that cannot be played or written: why, by name. */
class WavError : public Error {
 public:
  /** Its name. */
  enum class Reason {
    Unreadable,    /**< not there, not allowed, no file, or the disk failed */
    NotWav,        /**< no RIFF/WAVE file with a format and samples */
    NotLineSound,  /**< not 8000 Hz mono */
    UnknownCoding, /**< neither 16-bit nor 8-bit linear, A-law or mu-law */
    CutShort,      /**< the file ends before its sound does */
    NotWritten     /**< the disk is full or failed, or the file would pass 4 GB */
  };

  /** The file and what is wrong with it. */
  WavError(Reason what, const std::filesystem::path& file, const std::string& text)
      : Error(file.string() + ": " + text), why(what) {}
  /** Why. */
  Reason reason() const noexcept { return why; }

 private:
  Reason why;
};

/**
 * Reads a WAV file as the line's A-law, and writes one block after another. One thread at a time; disks are slow, so
 * not on threads of the library.
 */
class WavFile {
 public:
  /** How samples stand in a file that is written. */
  enum class Coding {
    Alaw,    /**< a byte a sample, as it came from the line */
    Linear16 /**< two bytes a sample, for programs that do not know A-law */
  };

  /** The sound of a file of 8000 Hz mono (16-bit or 8-bit linear, A-law or mu-law) as A-law; throws WavError. */
  static std::vector<std::uint8_t> read(const std::filesystem::path& path) { return Reader(path).read(); }

  /** Makes a new file, over one that is there; throws WavError. */
  explicit WavFile(const std::filesystem::path& path, Coding howCoded = Coding::Alaw) : name(path), coding(howCoded) {
    file.pubsetbuf(nullptr, 0);  // what the disk does not take shows at once
    if (file.open(path, std::ios::out | std::ios::binary | std::ios::trunc) == nullptr) {
      throw WavError(WavError::Reason::NotWritten, name, "cannot be made");
    }
    if (!writeHeader()) {
      throw WavError(WavError::Reason::NotWritten, name, "cannot be written");
    }
  }
  WavFile(const WavFile&) = delete;
  WavFile& operator=(const WavFile&) = delete;
  ~WavFile() { finish(); }

  /** Adds A-law. Throws WavError when the disk does not take all of it; what it took is in the file when it is closed.
   */
  void write(const std::uint8_t* alaw, std::size_t length) {
    const std::vector<std::uint8_t> samples = encoded(alaw, length);
    const std::size_t room = kMostBytes - dataBytes;
    if (isClosed || samples.size() > room) {
      throw WavError(WavError::Reason::NotWritten, name, isClosed ? "is closed already" : "would pass 4 GB");
    }
    dataBytes += put(samples.data(), samples.size(), dataBytes);
    if (!isWhole) {
      throw WavError(WavError::Reason::NotWritten, name, "the disk does not take it");
    }
  }
  /** The same. */
  void write(const std::vector<std::uint8_t>& alaw) { write(alaw.data(), alaw.size()); }

  /** Makes the file whole as far as it is: should the program end without close, this much can be played. */
  void sync() {
    if (!isClosed && !writeHeader()) {
      throw WavError(WavError::Reason::NotWritten, name, "cannot be written");
    }
  }

  /** Ends the file; throws WavError when the disk does not take it. Nothing when it is closed already. */
  void close() {
    if (!isClosed && !finish()) {
      throw WavError(WavError::Reason::NotWritten, name, "cannot be ended");
    }
  }

  /** The sound so far. */
  std::size_t milliseconds() const { return dataBytes / bytesOfSample() / ZELK_BYTES_PER_MS; }

 private:
  static constexpr std::size_t kHeaderBytes = 44;
  static constexpr std::uint32_t kMostBytes = (std::numeric_limits<std::uint32_t>::max)() - 64;
  static constexpr unsigned kLinearTag = 1;
  static constexpr unsigned kAlawTag = 6;
  static constexpr unsigned kMulawTag = 7;
  static constexpr unsigned kExtensibleTag = 0xFFFE;

  // Reads a file from its start to its samples.
  class Reader {
   public:
    explicit Reader(const std::filesystem::path& path) : name(path), file(path, std::ios::binary) {
      std::error_code error;
      if (!file || !std::filesystem::is_regular_file(path, error)) {
        fail(WavError::Reason::Unreadable, "cannot be opened as a file");
      }
      left = std::filesystem::file_size(path, error);
    }

    std::vector<std::uint8_t> read() {
      const std::string head = text(12, WavError::Reason::NotWav);
      if (head.substr(0, 4) != "RIFF" || head.substr(8) != "WAVE") {
        fail(WavError::Reason::NotWav, "no WAV file");
      }
      for (;;) {
        const std::string id = text(4, hasFormat ? WavError::Reason::CutShort : WavError::Reason::NotWav);
        const std::uint32_t size = number(text(4, WavError::Reason::CutShort), 0, 4);
        if (id == "data") {
          return samples(size);
        }
        const std::string chunk = text(size, WavError::Reason::CutShort);
        if (id == "fmt ") {
          takeFormat(chunk);
        }
        text(size % 2 < left ? size % 2 : 0, WavError::Reason::CutShort);
      }
    }

   private:
    [[noreturn]] void fail(WavError::Reason reason, const std::string& why) const { throw WavError(reason, name, why); }

    static std::uint32_t number(const std::string& bytes, std::size_t at, std::size_t size) {
      std::uint32_t value = 0;
      for (std::size_t i = size; i-- > 0;) {
        value = value << 8 | static_cast<std::uint8_t>(bytes[at + i]);
      }
      return value;
    }

    // Sizes are the file's claim: nothing larger than the file is asked for.
    std::string text(std::size_t size, WavError::Reason whenShort) {
      if (size > left) {
        fail(whenShort, whenShort == WavError::Reason::NotWav ? "no WAV file" : "cut short");
      }
      std::string bytes(size, '\0');
      if (!file.read(&bytes[0], static_cast<std::streamsize>(size))) {
        fail(WavError::Reason::Unreadable, "cannot be read");
      }
      left -= size;
      return bytes;
    }

    void takeFormat(const std::string& chunk) {
      if (chunk.size() < 16) {
        fail(WavError::Reason::NotWav, "no WAV file: its format is too short");
      }
      tag = number(chunk, 0, 2);
      if (tag == kExtensibleTag && chunk.size() >= 26) {
        tag = number(chunk, 24, 2);
      }
      const std::uint32_t channels = number(chunk, 2, 2);
      const std::uint32_t rate = number(chunk, 4, 4);
      bits = number(chunk, 14, 2);
      if (channels != 1 || rate != ZELK_SAMPLE_RATE) {
        fail(WavError::Reason::NotLineSound, "not 8000 Hz mono, but " + std::to_string(rate) + " Hz with " +
                                                 std::to_string(channels) + " channel" + (channels == 1 ? "" : "s"));
      }
      const bool isLinear = tag == kLinearTag && (bits == 16 || bits == 8);
      const bool isCompanded = (tag == kAlawTag || tag == kMulawTag) && bits == 8;
      if (!isLinear && !isCompanded) {
        fail(WavError::Reason::UnknownCoding,
             "a coding that is not known: format " + std::to_string(tag) + " of " + std::to_string(bits) + " bits");
      }
      hasFormat = true;
    }

    std::vector<std::uint8_t> samples(std::uint32_t size) {
      if (!hasFormat) {
        fail(WavError::Reason::NotWav, "no WAV file: no format in front of its samples");
      }
      const std::string bytes = text(size, WavError::Reason::CutShort);
      if (size % (bits / 8) != 0) {
        fail(WavError::Reason::CutShort, "cut short in the middle of a sample");
      }
      std::vector<std::uint8_t> alaw(size / (bits / 8));
      for (std::size_t i = 0; i < alaw.size(); ++i) {
        alaw[i] = sample(bytes, i);
      }
      return alaw;
    }

    std::uint8_t sample(const std::string& bytes, std::size_t index) const {
      if (bits == 16) {
        return linearToAlaw(static_cast<std::int16_t>(number(bytes, 2 * index, 2)));
      }
      const auto byte = static_cast<std::uint8_t>(bytes[index]);
      if (tag == kLinearTag) {
        return linearToAlaw((byte - 128) * 256);
      }
      return tag == kAlawTag ? byte : linearToAlaw(mulawToLinear(byte));
    }

    std::filesystem::path name;
    std::ifstream file;
    std::uintmax_t left = 0;
    std::uint32_t tag = 0;
    std::uint32_t bits = 0;
    bool hasFormat = false;
  };

  std::size_t bytesOfSample() const { return coding == Coding::Alaw ? 1 : 2; }

  std::vector<std::uint8_t> encoded(const std::uint8_t* alaw, std::size_t length) const {
    if (coding == Coding::Alaw) {
      return {alaw, alaw + length};
    }
    std::vector<std::uint8_t> linear;
    linear.reserve(2 * length);
    for (std::size_t i = 0; i < length; ++i) {
      addNumber(linear, static_cast<std::uint16_t>(alawToLinear(alaw[i])), 2);
    }
    return linear;
  }

  static void addNumber(std::vector<std::uint8_t>& bytes, std::uint32_t value, int size) {
    for (int i = 0; i < size; ++i) {
      bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    }
  }

  static void addText(std::vector<std::uint8_t>& bytes, const char* text) {
    for (; *text != 0; ++text) {
      bytes.push_back(static_cast<std::uint8_t>(*text));
    }
  }

  bool writeHeader() {
    const auto sampleBytes = static_cast<std::uint32_t>(bytesOfSample());
    const std::uint32_t size = dataBytes - dataBytes % sampleBytes;
    std::vector<std::uint8_t> header;
    addText(header, "RIFF");
    addNumber(header, size + size % 2 + static_cast<std::uint32_t>(kHeaderBytes) - 8, 4);
    addText(header, "WAVE");
    addText(header, "fmt ");
    addNumber(header, 16, 4);
    addNumber(header, coding == Coding::Alaw ? kAlawTag : kLinearTag, 2);
    addNumber(header, 1, 2);
    addNumber(header, ZELK_SAMPLE_RATE, 4);
    addNumber(header, ZELK_SAMPLE_RATE * sampleBytes, 4);
    addNumber(header, sampleBytes, 2);
    addNumber(header, 8 * sampleBytes, 2);
    addText(header, "data");
    addNumber(header, size, 4);
    return putAt(header.data(), header.size(), 0) == header.size();
  }

  // Bytes of the sound that stood already when these begin.
  std::uint32_t put(const std::uint8_t* bytes, std::size_t size, std::uint32_t at) {
    const std::size_t taken = putAt(bytes, size, kHeaderBytes + at);
    isWhole = taken == size;
    return static_cast<std::uint32_t>(taken);
  }

  std::size_t putAt(const std::uint8_t* bytes, std::size_t size, std::size_t at) {
    if (file.pubseekpos(static_cast<std::streamoff>(at), std::ios::out) == std::streampos(std::streamoff(-1))) {
      return 0;
    }
    const std::streamsize taken = file.sputn(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    return taken < 0 ? 0 : static_cast<std::size_t>(taken);
  }

  // A chunk has an even length: a byte of its own follows an odd one.
  bool finish() {
    if (isClosed) {
      return true;
    }
    isClosed = true;
    const std::uint8_t pad = 0;
    const bool isPadded = dataBytes % 2 == 0 || coding != Coding::Alaw || putAt(&pad, 1, kHeaderBytes + dataBytes) == 1;
    const bool hasHeader = writeHeader();
    return file.close() != nullptr && isPadded && hasHeader;
  }

  std::filesystem::path name;
  Coding coding;
  std::filebuf file;
  std::uint32_t dataBytes = 0;
  bool isWhole = true;
  bool isClosed = false;
};

}  // namespace zelkapi

#endif
