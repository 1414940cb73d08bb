// SPDX-License-Identifier: GPL-2.0-only
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <thread>

#include "system_fixture.h"

// A system that gives the library no thread or no descriptor.
namespace {

using cardsim::EControlType;
using namespace std::chrono_literals;

// While it lives no thread starts in this process: the stack of a new one would be larger than the address space.
class CNoThreads {
 public:
  CNoThreads() {
    pthread_getattr_default_np(&before);
    pthread_attr_t huge;
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, size_t{1} << 47);
    EXPECT_EQ(pthread_setattr_default_np(&huge), 0);
    pthread_attr_destroy(&huge);
  }
  ~CNoThreads() {
    pthread_setattr_default_np(&before);
    pthread_attr_destroy(&before);
  }
  CNoThreads(const CNoThreads&) = delete;
  CNoThreads& operator=(const CNoThreads&) = delete;

 private:
  pthread_attr_t before{};
};

// While it lives no descriptor is opened in this process.
class CNoDescriptors {
 public:
  CNoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before);
    const int lowestFree = dup(STDIN_FILENO);
    close(lowestFree);
    const rlimit none{static_cast<rlim_t>(lowestFree), before.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  }
  ~CNoDescriptors() { setrlimit(RLIMIT_NOFILE, &before); }
  CNoDescriptors(const CNoDescriptors&) = delete;
  CNoDescriptors& operator=(const CNoDescriptors&) = delete;

 private:
  rlimit before{};
};

class Scarcity : public CSystemTest {
 protected:
  void SetUp() override {
    if (remote::CRemoteLibrary::Place() != nullptr) {
      GTEST_SKIP() << "the limits are this process's, and the library is in another";
    }
  }
};

TEST_F(Scarcity, without_a_listener_thread_init_fails_and_a_later_one_works) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
  sim->Start();
  app = std::make_unique<support::CApplication>();
  {
    const CNoThreads none;
    EXPECT_FALSE(app->zelk.Init());
    EXPECT_EQ(app->zelk.GetChannelCount(), 0);
    EXPECT_TRUE(Card().Seen().WaitConnected(false, kSoon));
  }
  app->zelk.Shutdown();
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  EXPECT_EQ(app->zelk.GetChannelCount(), 30);
  EXPECT_TRUE(app->zelk.WaitLog("DCHANNEL UP"));
}

TEST_F(Scarcity, without_a_thread_the_log_waits_in_memory_for_the_next_one) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=0\nFlushImmediate=1\n"));
  ASSERT_TRUE(app->zelk.WaitLog("DCHANNEL UP"));
  const auto cause = [this](uint16_t number) { Card().SendRegisterValue(0, number, 0xEE); };
  {
    const CNoThreads none;
    EXPECT_TRUE(app->zelk.Init()) << "a library without a log works";
  }
  const std::string before = app->zelk.LogText();
  cause(0x2001);
  cause(0x2002);
  // What the library sends after a frame of the exchange shows that it has read the values before it.
  Card().TakeLayer2Down(0);
  ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSoon, 2));
  EXPECT_EQ(app->zelk.LogText(), before);
  ASSERT_TRUE(app->zelk.Init());
  cause(0x2003);
  ASSERT_TRUE(app->zelk.WaitLog("Reg[0x2003] = EE ")) << app->zelk.LogText();
  const std::string log = app->zelk.LogText();
  const size_t first = log.find("Reg[0x2001] = EE ");
  const size_t second = log.find("Reg[0x2002] = EE ");
  ASSERT_NE(first, std::string::npos) << log;
  ASSERT_NE(second, std::string::npos) << log;
  EXPECT_LT(first, second);
  EXPECT_LT(second, log.find("Reg[0x2003] = EE "));
}

TEST_F(Scarcity, without_a_thread_the_log_is_written_at_the_unloading) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=0\n"));
  {
    const CNoThreads none;
    EXPECT_TRUE(app->zelk.Init());
  }
  Card().SendRegisterValue(0, 0x2001, 0xEE);
  Card().TakeLayer2Down(0);
  ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSoon, 2));
  EXPECT_EQ(app->zelk.LogText().find("Reg[0x2001]"), std::string::npos);
  app->zelk.Unload();
  EXPECT_NE(app->zelk.LogText().find("Reg[0x2001] = EE "), std::string::npos) << app->zelk.LogText();
}

// A card without its control thread is not opened and the next announcement opens it.
TEST_F(Scarcity, a_card_without_its_control_thread_waits_for_an_announcement) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  {
    const CNoThreads none;
    const auto begin = std::chrono::steady_clock::now();
    Card().Announce();
    ASSERT_TRUE(app->zelk.WaitLog("Card reopen has failed\r\n")) << app->zelk.LogText();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s) << "nobody waits for information that nobody would read";
    EXPECT_TRUE(Card().Seen().WaitConnected(false, kSoon));
  }
  Card().Announce();
  ASSERT_TRUE(app->zelk.WaitLog("Card reopen has Succeeded\r\n")) << app->zelk.LogText();
  ASSERT_TRUE(Card().WaitUp(kSlow));
  EXPECT_TRUE(app->WaitAllReady(kSlow));
}

// A card without its audio threads is not opened and the next announcement opens it.
TEST_F(Scarcity, a_card_without_its_audio_threads_waits_for_an_announcement) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  Card().SetAnswerInformation(false);
  Card().ClearSeen();
  Card().Announce();
  // The control thread asks, so it runs; the audio's threads are started once the card has answered.
  ASSERT_TRUE(Card().Seen().WaitMessage(EControlType::kInformationRequest, kSoon));
  {
    const CNoThreads none;
    Card().SetAnswerInformation(true);
    ASSERT_TRUE(app->zelk.WaitLog("Card reopen has failed\r\n")) << app->zelk.LogText();
    EXPECT_TRUE(Card().Seen().WaitConnected(false, kSoon));
    EXPECT_FALSE(Card().Seen().WaitMessage(EControlType::kStart, 0ms));
  }
  Card().Announce();
  ASSERT_TRUE(app->zelk.WaitLog("Card reopen has Succeeded\r\n")) << app->zelk.LogText();
  ASSERT_TRUE(Card().WaitUp(kSlow));
  EXPECT_TRUE(app->WaitAllReady(kSlow));
}

// Adapters that cannot be listed leave a library without channels and without listener.
TEST_F(Scarcity, adapters_that_cannot_be_listed_leave_no_channels_or_listener) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer needs descriptors of its own to look at an object";
#endif
  app = std::make_unique<support::CApplication>();
  {
    const CNoDescriptors none;
    EXPECT_TRUE(app->zelk.Init());
  }
  EXPECT_EQ(app->zelk.GetChannelCount(), 0);
  EXPECT_FALSE(HasListener());
  EXPECT_TRUE(app->zelk.Init()) << "initialised already";
  EXPECT_FALSE(HasListener());
  app->zelk.Shutdown();
  EXPECT_TRUE(app->zelk.Init());
  EXPECT_TRUE(WaitListener());
}

}  // namespace
