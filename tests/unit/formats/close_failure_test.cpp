// SPDX-License-Identifier: GPL-2.0-only

// A close that fails (a full network disk, for example) cannot be had from a real file at will. On Linux the program's
// own close takes the place of the system library's, and fails when a test asks for it.
#ifdef __linux__

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "formats/wave_header.h"
#include "support/wav_bytes.h"

namespace {

thread_local int failureOfNextClose = 0;
thread_local std::vector<int> closed;
thread_local bool keepClosed = false;

}  // namespace

// As Linux does it: the number is free again whatever the result says.
extern "C" int close(int descriptor) {
  const auto result = static_cast<int>(syscall(SYS_close, descriptor));
  if (keepClosed) {
    closed.push_back(descriptor);
  }
  if (failureOfNextClose != 0) {
    errno = std::exchange(failureOfNextClose, 0);
    return -1;
  }
  return result;
}

namespace zelk {
namespace {

class CloseFailure : public testing::Test {
 protected:
  // Runs the conversion of a raw recording of 1044 bytes whose close reports this error.
  uint32_t ConvertWithCloseError(int error) {
    closed.clear();
    keepClosed = true;
    failureOfNextClose = error;
    const uint32_t result = ConvertRawToWaveFile(raw.Path(), 2);
    keepClosed = false;
    EXPECT_EQ(failureOfNextClose, 0) << "nothing was closed";
    failureOfNextClose = 0;
    return result;
  }

  const wav::CTempFile raw{wav::Bytes(1044, 0x2A)};
};

TEST_F(CloseFailure, GivesCode6WithTheHeaderWritten) {
  for (const int error : {EIO, ENOSPC, EDQUOT}) {
    EXPECT_EQ(ConvertWithCloseError(error), kErrorFileClose) << error;
    const wav::Bytes content = raw.Content();
    ASSERT_EQ(content.size(), 1044U);
    EXPECT_EQ(wav::Bytes(content.begin(), content.begin() + 4), wav::Text("RIFF"));
  }
}

// Another thread may have been given the number meanwhile: the second try must not close that thread's file.
TEST_F(CloseFailure, ANumberThatTheSystemTookBackIsNotClosedAgain) {
  ASSERT_EQ(ConvertWithCloseError(EIO), kErrorFileClose);
  EXPECT_EQ(closed.size(), 1U);
}

TEST_F(CloseFailure, AnInterruptedCloseHasClosed) {
  EXPECT_EQ(ConvertWithCloseError(EINTR), kErrorNone);
  EXPECT_EQ(closed.size(), 1U);
}

TEST_F(CloseFailure, TheNextConversionSucceeds) {
  ASSERT_EQ(ConvertWithCloseError(EIO), kErrorFileClose);
  EXPECT_EQ(ConvertRawToWaveFile(raw.Path(), 2), kErrorNone);
}

}  // namespace
}  // namespace zelk

#endif
