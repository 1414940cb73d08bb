// SPDX-License-Identifier: GPL-2.0-only

// Files that a usual disk does not have at will. On Linux the program's own flock takes the place of the system
// library's, and fails when a test asks for it; pipes, limits and holes are real.
#ifdef __linux__

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <filesystem>

#include "formats/wave_header.h"
#include "playback/file_player.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"
#include "wave_fixture.h"

namespace {

thread_local int failureOfLocks = 0;
thread_local int locksAsked = 0;

}  // namespace

extern "C" int flock(int descriptor, int operation) noexcept {
  ++locksAsked;
  if (failureOfLocks != 0) {
    errno = failureOfLocks;
    return -1;
  }
  return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}

namespace zelk {
namespace {

double ThreadCpuSeconds() {
  timespec used{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

class FileLock : public testing::Test {
 protected:
  uint32_t ConvertWithLockError(int error) {
    failureOfLocks = error;
    locksAsked = 0;
    const uint32_t result = ConvertRawToWaveFile(raw.Path(), 2);
    failureOfLocks = 0;
    EXPECT_EQ(locksAsked, 1);
    return result;
  }

  const wav::CTempFile raw{wav::Bytes(1044, 0x2A)};
};

TEST_F(FileLock, AFileSystemThatHasNoneConvertsAllTheSame) {
  for (const int error : {ENOLCK, ENOSYS, EOPNOTSUPP, EINVAL, EBADF}) {
    EXPECT_EQ(ConvertWithLockError(error), kErrorNone) << error;
    EXPECT_EQ(wav::File(6, 8, wav::Bytes(1000, 0x2A)), raw.Content()) << error;
  }
}

TEST_F(FileLock, OneThatAnotherHoldsIsAFileThatCannotBeOpened) {
  EXPECT_EQ(ConvertWithLockError(EWOULDBLOCK), kErrorFileOpen);
  EXPECT_EQ(raw.Content(), wav::Bytes(1044, 0x2A));
}

// The system lets the file grow to this size. What goes beyond fails, with a signal besides.
class CFileSizeLimit {
 public:
  explicit CFileSizeLimit(rlim_t bytes) : handler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit limit = before;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~CFileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
  }
  CFileSizeLimit(const CFileSizeLimit&) = delete;
  CFileSizeLimit& operator=(const CFileSizeLimit&) = delete;

 private:
  rlimit before{};
  void (*handler)(int);
};

TEST(FullDisk, TheSecondWriteThatFailsOrStaysShortGivesCode5) {
  for (const rlim_t room : {36U, 40U, 43U}) {
    const wav::CTempFile raw(wav::Bytes(10, 0x2A));
    uint32_t result = 99;
    {
      const CFileSizeLimit limit(room);
      result = ConvertRawToWaveFile(raw.Path(), 1);
    }
    EXPECT_EQ(result, kErrorFileWrite) << room;
    EXPECT_EQ(raw.Content().size(), room) << "the first write was whole";
  }
  const wav::CTempFile raw(wav::Bytes(10, 0x2A));
  const CFileSizeLimit limit(44);
  EXPECT_EQ(ConvertRawToWaveFile(raw.Path(), 1), kErrorNone) << "room for all of it";
}

class UnusualFile : public testing::Test {
 protected:
  // The code of playing a file; it is never accepted here.
  uint32_t ErrorOf(const std::string& path) {
    uint32_t code = 99;
    const double before = ThreadCpuSeconds();
    EXPECT_FALSE(PlayFile(wave, path.c_str(), code));
    cpuSeconds = ThreadCpuSeconds() - before;
    return code;
  }

  const CTempDir dir;
  wavetest::COwner owner;
  CWave wave{owner};
  double cpuSeconds = 0;
};

// A pipe that nobody writes to holds up whoever opens it, and whoever reads from it.
TEST_F(UnusualFile, ANamedPipeIsRefusedAtOnce) {
  const std::string pipe = dir.Path("pipe.wav");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(ErrorOf(pipe), kErrorFileOpen);
  EXPECT_EQ(ConvertRawToWaveFile(pipe.c_str(), 1), kErrorFileOpen);
}

TEST_F(UnusualFile, ADeviceIsRefused) {
  EXPECT_EQ(ErrorOf("/dev/zero"), kErrorFileOpen);
  EXPECT_EQ(ErrorOf("/dev/null"), kErrorFileOpen);
  EXPECT_EQ(ConvertRawToWaveFile("/dev/null", 1), kErrorFileOpen);
}

// Zeros are chunks of eight bytes, without name and content: these are 12 and a half million.
TEST_F(UnusualFile, AHundredMegabytesOfZerosAreSearchedInUnderASecond) {
  const std::string head = "RIFF\xFF\xFF\xFF\xFFWAVE";
  const std::string zeros(1U << 20, '\0');
  for (const std::string& start : {std::string(), head}) {
    const std::string path = dir.Path("zeros.wav");
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << start;
    for (int i = 0; i < 100; ++i) {
      file << zeros;
    }
    file.close();
    EXPECT_EQ(ErrorOf(path), kErrorFileOpen);
    EXPECT_LT(cpuSeconds, 1);
  }
}

TEST_F(UnusualFile, FourGigabytesOfHoleAreSearchedInUnderTwoSeconds) {
  for (const std::string& start : {std::string(), std::string("RIFF\xFF\xFF\xFF\xFFWAVE")}) {
    const std::string path = dir.Write("hole.wav", start);
    std::filesystem::resize_file(path, uint64_t{1} << 32);
    EXPECT_EQ(ErrorOf(path), kErrorFileOpen);
    EXPECT_LT(cpuSeconds, 2);
  }
}

}  // namespace
}  // namespace zelk

#endif
