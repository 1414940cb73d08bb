/* SPDX-License-Identifier: GPL-2.0-only */

/* Places one call and hangs up when it is connected: 0 when all of it happened within its time. */
#include <stdio.h>
#include <time.h>
#include <zelk/ZelkApi.h>

#if defined(_WIN32)
#include <windows.h>
static void Pause(void) {
  Sleep(10);
}
#else
static void Pause(void) {
  nanosleep(&(struct timespec){0, 10000000}, NULL);
}
#endif

static volatile int connected;
static volatile int ended;

static void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t param) {
  (void)param;
  if (channel == 0 && event == ZELK_EVENT_CONNECTED) {
    connected = 1;
  } else if (channel == 0 && event == ZELK_EVENT_DISCONNECTED) {
    ended = 1;
  }
}

static int WaitReady(void) {
  const time_t end = time(NULL) + 15;
  while (time(NULL) < end && ZELK_GetChannelInfo(0, ZELK_INFO_CHANNELSTATE) != ZELK_CHANNEL_READY) {
    Pause();
  }
  return ZELK_GetChannelInfo(0, ZELK_INFO_CHANNELSTATE) == ZELK_CHANNEL_READY;
}

static int WaitFor(const volatile int* happened) {
  const time_t end = time(NULL) + 15;
  while (time(NULL) < end && !*happened) {
    Pause();
  }
  return *happened;
}

int main(void) {
  int good = 0;
  ZELK_SetEventCallback(OnEvent);
  if (ZELK_Init() && WaitReady() && ZELK_OpenChannel(0) && ZELK_Dial(0, "5551234", "8001000") && WaitFor(&connected)) {
    ZELK_Hangup(0);
    good = WaitFor(&ended);
  }
  ZELK_Shutdown();
  puts(good ? "a call was made" : "NO call was made");
  return good ? 0 : 1;
}
