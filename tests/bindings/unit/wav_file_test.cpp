// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "formats/g711.h"
#include "support/temp_dir.h"
#include "zelk/cpp/WavFile.hpp"

namespace {

using zelkapi::WavError;
using zelkapi::WavFile;
using Reason = zelkapi::WavError::Reason;

std::string Little(uint32_t value, size_t size) {
  std::string bytes;
  for (size_t i = 0; i < size; ++i) {
    bytes += static_cast<char>(value >> 8 * i);
  }
  return bytes;
}

struct SForm {
  uint32_t tag = 1;
  uint32_t channels = 1;
  uint32_t rate = 8000;
  uint32_t bits = 16;
};

std::string Chunk(const std::string& name, const std::string& body) {
  return name + Little(static_cast<uint32_t>(body.size()), 4) + body + std::string(body.size() % 2, '\0');
}

std::string Format(const SForm& form) {
  const uint32_t align = form.channels * form.bits / 8;
  return Chunk("fmt ", Little(form.tag, 2) + Little(form.channels, 2) + Little(form.rate, 4) +
                           Little(form.rate * align, 4) + Little(align, 2) + Little(form.bits, 2));
}

std::string Riff(const std::string& chunks) {
  return "RIFF" + Little(static_cast<uint32_t>(chunks.size()) + 4, 4) + "WAVE" + chunks;
}

class WavFileTest : public testing::Test {
 protected:
  std::string Make(const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  std::string Bytes() const {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // Why it cannot be read; nothing when it can.
  std::string Why(const std::string& bytes, Reason reason) {
    try {
      WavFile::read(Make(bytes));
    } catch (const WavError& error) {
      EXPECT_EQ(error.reason(), reason) << error.what();
      return error.what();
    }
    return {};
  }

  zelk::CTempDir folder;
  std::string path = folder.Path("sound.wav");
};

TEST_F(WavFileTest, ReadsEveryCodingAsAlaw) {
  const std::string all = [] {
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
      bytes += static_cast<char>(i);
    }
    return bytes;
  }();
  const std::vector<uint8_t> alaw = WavFile::read(Make(Riff(Format({6, 1, 8000, 8}) + Chunk("data", all))));
  const std::vector<uint8_t> mulaw = WavFile::read(Make(Riff(Format({7, 1, 8000, 8}) + Chunk("data", all))));
  const std::vector<uint8_t> bytes = WavFile::read(Make(Riff(Format({1, 1, 8000, 8}) + Chunk("data", all))));
  ASSERT_EQ(alaw.size(), 256U);
  ASSERT_EQ(mulaw.size(), 256U);
  ASSERT_EQ(bytes.size(), 256U);
  for (size_t i = 0; i < 256; ++i) {
    EXPECT_EQ(alaw[i], i);
    EXPECT_EQ(mulaw[i], zelk::LinearToALaw(zelk::MuLawToLinear(static_cast<uint8_t>(i))));
    if (i > 0) {
      EXPECT_EQ(bytes[i], zelk::LinearToALaw(static_cast<int16_t>((static_cast<int>(i) - 128) * 256)));
    }
  }
}

// The library's own tables say what is right; -32768 apart, which it codes as the smallest sample.
TEST_F(WavFileTest, CodesSamplesAsTheLibraryDoes) {
  for (int sample = -32767; sample <= 32767; ++sample) {
    ASSERT_EQ(zelkapi::linearToAlaw(sample), zelk::LinearToALaw(static_cast<int16_t>(sample))) << sample;
  }
  EXPECT_EQ(zelkapi::linearToAlaw(-32768), zelkapi::linearToAlaw(-32767));
  for (int code = 0; code < 256; ++code) {
    ASSERT_EQ(zelkapi::alawToLinear(static_cast<uint8_t>(code)), zelk::ALawToLinear(static_cast<uint8_t>(code)));
    ASSERT_EQ(zelkapi::mulawToLinear(static_cast<uint8_t>(code)), zelk::MuLawToLinear(static_cast<uint8_t>(code)));
  }
}

TEST_F(WavFileTest, PassesOverOtherChunks) {
  const std::string file = Riff(Chunk("LIST", "odd") + Format({}) + Chunk("fact", "1234") +
                                Chunk("data", Little(0x1000, 2) + Little(0xF000, 2)) + Chunk("id3 ", "x"));
  EXPECT_EQ(WavFile::read(Make(file)),
            (std::vector<uint8_t>{zelkapi::linearToAlaw(0x1000), zelkapi::linearToAlaw(-0x1000)}));
}

TEST_F(WavFileTest, KnowsTheExtensibleForm) {
  const std::string format = Chunk("fmt ", Little(0xFFFE, 2) + Little(1, 2) + Little(8000, 4) + Little(16000, 4) +
                                               Little(2, 2) + Little(16, 2) + Little(22, 2) + Little(16, 2) +
                                               Little(4, 4) + Little(1, 2) + std::string(14, '\0'));
  EXPECT_EQ(WavFile::read(Make(Riff(format + Chunk("data", Little(0, 2))))), std::vector<uint8_t>{0xD5});
}

TEST_F(WavFileTest, SaysWhyAFileCannotBePlayed) {
  const std::string data = Chunk("data", "1234");
  EXPECT_EQ(Why(Riff(Format({1, 2, 44100, 16}) + data), Reason::NotLineSound),
            path + ": not 8000 Hz mono, but 44100 Hz with 2 channels");
  EXPECT_EQ(Why(Riff(Format({1, 1, 16000, 16}) + data), Reason::NotLineSound),
            path + ": not 8000 Hz mono, but 16000 Hz with 1 channel");
  EXPECT_NE(Why(Riff(Format({1, 2, 8000, 16}) + data), Reason::NotLineSound), "");
  EXPECT_EQ(Why(Riff(Format({3, 1, 8000, 32}) + data), Reason::UnknownCoding),
            path + ": a coding that is not known: format 3 of 32 bits");
  EXPECT_NE(Why(Riff(Format({1, 1, 8000, 24}) + data), Reason::UnknownCoding), "");
  EXPECT_NE(Why(Riff(Format({6, 1, 8000, 16}) + data), Reason::UnknownCoding), "");
  EXPECT_NE(Why("", Reason::NotWav), "");
  EXPECT_NE(Why("no sound at all, but a text", Reason::NotWav), "");
  EXPECT_NE(Why(Riff(data), Reason::NotWav), "");
  EXPECT_NE(Why(Riff(Chunk("fmt ", "short")), Reason::NotWav), "");
  EXPECT_NE(Why(Riff(Format({})), Reason::CutShort), "");
  EXPECT_NE(Why(Riff(Format({}) + Chunk("data", "odd")), Reason::CutShort), "");
}

TEST_F(WavFileTest, SaysWhereverAFileWasCutShort) {
  const std::string whole = Riff(Format({}) + Chunk("LIST", "12") + Chunk("data", std::string(400, '\1')));
  for (size_t length = 40; length < whole.size(); ++length) {
    ASSERT_NE(Why(whole.substr(0, length), Reason::CutShort), "") << length;
  }
  EXPECT_EQ(Why(whole, Reason::CutShort), "");
  // Sizes that no file has take no memory.
  EXPECT_NE(Why(Riff(Format({}) + "data" + Little(0xFFFFFFFF, 4) + "12"), Reason::CutShort), "");
  EXPECT_NE(Why(Riff("LIST" + Little(0xFFFFFFFF, 4) + "12"), Reason::CutShort), "");
}

TEST_F(WavFileTest, SaysWhatCannotBeRead) {
  for (const std::string& file : {path, folder.Path(), std::string("/dev/zero"), std::string()}) {
    try {
      WavFile::read(file);
      ADD_FAILURE() << file;
    } catch (const WavError& error) {
      EXPECT_EQ(error.reason(), Reason::Unreadable);
    }
  }
}

TEST_F(WavFileTest, WritesWhatItReads) {
  std::vector<uint8_t> sound(801);
  for (size_t i = 0; i < sound.size(); ++i) {
    sound[i] = static_cast<uint8_t>(i * 7);
  }
  for (const WavFile::Coding coding : {WavFile::Coding::Alaw, WavFile::Coding::Linear16}) {
    WavFile file(path, coding);
    file.write(sound.data(), 300);
    file.write(sound.data() + 300, 501);
    EXPECT_EQ(file.milliseconds(), 100U);
    file.close();
    EXPECT_EQ(WavFile::read(path), sound);
    EXPECT_THROW(file.write(sound), WavError);
  }
}

TEST_F(WavFileTest, HasTheHeaderOfItsSound) {
  {
    WavFile file(path);
    file.write({0x55, 0xD5, 0x54});
  }
  EXPECT_EQ(Bytes(), "RIFF" + Little(40, 4) + "WAVEfmt " + Little(16, 4) + Little(6, 2) + Little(1, 2) +
                         Little(8000, 4) + Little(8000, 4) + Little(1, 2) + Little(8, 2) + "data" + Little(3, 4) +
                         "\x55\xD5\x54" + std::string(1, '\0'));
}

TEST_F(WavFileTest, IsWholeAfterASync) {
  WavFile file(path);
  file.write(std::vector<uint8_t>(160, 0x2A));
  EXPECT_TRUE(WavFile::read(path).empty()) << "the header says so";
  file.sync();
  EXPECT_EQ(WavFile::read(path), std::vector<uint8_t>(160, 0x2A));
  file.write(std::vector<uint8_t>(160, 0x2B));
  file.close();
  EXPECT_EQ(WavFile::read(path).size(), 320U);
}

TEST_F(WavFileTest, ADiskThatIsFullIsSaid) {
  EXPECT_THROW(WavFile("/dev/full"), WavError);
  EXPECT_THROW(WavFile("/nonexistent/folder/file.wav"), WavError);
}

// A limit of the process stands for the end of the disk: what fits is written.
TEST_F(WavFileTest, WhatAFullDiskTookCanBePlayed) {
  WavFile file(path);
  signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit limit{44 + 500, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &limit);
  const std::vector<uint8_t> second(400, 0x2A);
  file.write(second);
  EXPECT_THROW(file.write(second), WavError);
  EXPECT_THROW(file.write(second), WavError);
  setrlimit(RLIMIT_FSIZE, &before);
  file.close();
  EXPECT_EQ(WavFile::read(path), std::vector<uint8_t>(500, 0x2A));
}

}  // namespace
