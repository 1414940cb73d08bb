/* SPDX-License-Identifier: GPL-2.0-only */

/* Places one call and hangs up when it is connected, with events from the queue: 0 when all of it happened in time. */
#include <stdio.h>
#include <zelk/ZelkApi.h>
#include <zelk/ZelkQueue.h>

static int WaitFor(uint32_t code) {
  ZelkQueueEvent event;
  while (ZELKQ_WaitEvents(&event, 1, 15000) == 1) {
    if (event.channel == 0 && event.event == code) {
      return 1;
    }
  }
  return 0;
}

static int WaitReady(void) {
  uint32_t state = 0;
  while (ZELKQ_GetNumber(0, ZELK_INFO_CHANNELSTATE, &state) == 0 && state != ZELK_CHANNEL_READY) {
    if (!WaitFor(ZELK_EVENT_CHANNEL_STATE)) {
      return 0;
    }
  }
  return state == ZELK_CHANNEL_READY;
}

int main(void) {
  int good = 0;
  if (ZELKQ_GetVersion() >= ZELKQ_VERSION && ZELKQ_Start() == 0) {
    good = WaitReady() && ZELK_OpenChannel(0) && ZELK_Dial(0, "5551234", "8001000") && WaitFor(ZELK_EVENT_CONNECTED) &&
           ZELK_Hangup(0) && WaitFor(ZELK_EVENT_DISCONNECTED);
    ZELKQ_Stop();
  }
  puts(good ? "a call was made" : "NO call was made");
  return good ? 0 : 1;
}
