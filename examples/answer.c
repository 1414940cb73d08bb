/* SPDX-License-Identifier: GPL-2.0-only */
#include <pthread.h>
#include <stdbool.h>
#include <stdio.h>
#include <zelk/ZelkApi.h>

typedef struct {
  int32_t channel;
  uint32_t code;
  int32_t param;
} Event;

/* Events on their way from the library's threads to main. No function of the library is called under this lock. */
enum { kRoom = 8 * ZELK_MAX_CHANNELS, kEnter = 0 };
static Event queue[kRoom];
static unsigned first, count;
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t filled = PTHREAD_COND_INITIALIZER;

/* Runs on threads that have a whole card to serve: what there is to do is left to main. */
static void ZELK_CALL OnEvent(int32_t channel, uint32_t code, int32_t param) {
  pthread_mutex_lock(&lock);
  if (count < kRoom) {
    queue[(first + count++) % kRoom] = (Event){channel, code, param};
  }
  pthread_cond_signal(&filled);
  pthread_mutex_unlock(&lock);
}

static Event NextEvent(void) {
  pthread_mutex_lock(&lock);
  while (count == 0) {
    pthread_cond_wait(&filled, &lock);
  }
  const Event event = queue[first];
  first = (first + 1) % kRoom;
  --count;
  pthread_mutex_unlock(&lock);
  return event;
}

static void Handle(int32_t channel, uint32_t code, int32_t param) {
  static bool playing[ZELK_MAX_CHANNELS];
  if (code == ZELK_EVENT_INCOMING_CALL) {
    printf("channel %d: call from %s\n", channel, ZELK_GetChannelInfoString(channel, ZELK_INFO_CLI));
    ZELK_Answer(channel);
  } else if (code == ZELK_EVENT_CONNECTED && !playing[channel]) {
    playing[channel] = ZELK_PlayFile(channel, "prompt.wav");
    if (!playing[channel]) {
      ZELK_Hangup(channel);
    }
  } else if (code == ZELK_EVENT_PLAY_DONE && playing[channel]) {
    ZELK_Hangup(channel);
  } else if (code == ZELK_EVENT_DISCONNECTED || (code == ZELK_EVENT_CHANNEL_STATE && param == 0)) {
    ZELK_StopPlay(channel); /* what is left must not be heard in the next call */
    playing[channel] = false;
    if (code == ZELK_EVENT_DISCONNECTED) {
      printf("channel %d: %s\n", channel, ZELK_DisconnectReasonToString(param));
    }
  }
}

static void* AwaitEnter(void* unused) {
  getchar();
  OnEvent(0, kEnter, 0);
  return unused;
}

int main(void) {
  ZELK_SetEventCallback(OnEvent);
  if (!ZELK_Init() || ZELK_GetChannelCount() == 0) {
    fprintf(stderr, "no card found\n");
    return 1;
  }
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    ZELK_OpenChannel(channel);
  }
  puts("waiting for calls, Enter ends");
  pthread_t keyboard;
  if (pthread_create(&keyboard, NULL, AwaitEnter, NULL) == 0) {
    for (Event event = NextEvent(); event.code != kEnter; event = NextEvent()) {
      Handle(event.channel, event.code, event.param);
    }
    pthread_join(keyboard, NULL);
  }
  ZELK_Shutdown();
  return 0;
}
