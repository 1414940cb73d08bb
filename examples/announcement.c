/* SPDX-License-Identifier: GPL-2.0-only */

/* Answers every call, plays an A-law WAV file and hangs up. Usage: announcement PROMPT.wav */
#include <errno.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zelk/ZelkApi.h>

typedef struct {
  int32_t channel;
  uint32_t code;
  int32_t param;
} Event;

/* Events on their way from the library's threads to main. No function of the library is called under this lock. */
enum { kRoom = 8 * ZELK_MAX_CHANNELS };
static Event queue[kRoom];
static unsigned put, taken; /* counted since the start */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static sem_t filled;
static volatile sig_atomic_t stopped;

/* Runs on threads that have a whole card to serve: what there is to do is left to main. */
static void ZELK_CALL OnEvent(int32_t channel, uint32_t code, int32_t param) {
  pthread_mutex_lock(&lock);
  if (put - taken < kRoom) {
    queue[put++ % kRoom] = (Event){channel, code, param};
    sem_post(&filled);
  }
  pthread_mutex_unlock(&lock);
}

static void OnSignal(int number) {
  (void)number;
  stopped = 1;
  sem_post(&filled); /* the one way to wake somebody that a signal handler has */
}

/* The last samples of a play are sent after PLAY_DONE: 20 ms of silence follow them, so that the prompt is heard whole.
 */
enum { kTail = ZELK_BLOCK_BYTES, kSilence = 0xD5 };
static unsigned char* prompt;
static uint32_t promptLength;

/* The samples of an A-law WAV file of 8000 Hz, mono, and the tail behind them. */
static bool ReadPrompt(const char* path) {
  unsigned char head[16];
  bool isALaw = false;
  FILE* file = fopen(path, "rb");
  bool goesOn = file != NULL && fread(head, 1, 12, file) == 12 && memcmp(head, "RIFF", 4) == 0;
  while (goesOn && prompt == NULL && fread(head, 1, 8, file) == 8) {
    const uint32_t size = head[4] | (uint32_t)head[5] << 8 | (uint32_t)head[6] << 16 | (uint32_t)head[7] << 24;
    if (memcmp(head, "data", 4) == 0) {
      prompt = malloc((size_t)size + kTail);
      promptLength = size + kTail;
      goesOn = isALaw && prompt != NULL && fread(prompt, 1, size, file) == size;
    } else if (memcmp(head, "fmt ", 4) == 0 && size >= 16) {
      goesOn = fread(head, 1, 16, file) == 16 && fseek(file, (long)(size - 16), SEEK_CUR) == 0;
      isALaw = memcmp(head, "\6\0\1\0\x40\x1F\0\0", 8) == 0; /* format 6, 1 channel, 8000 a second */
    } else {
      goesOn = fseek(file, (long)(size + size % 2), SEEK_CUR) == 0;
    }
  }
  if (!goesOn || prompt == NULL) {
    fprintf(stderr, "announcement: %s: %s\n", path, file ? "not a WAV file, A-law, 8000 Hz, mono" : strerror(errno));
    return false;
  }
  fclose(file);
  memset(prompt + promptLength - kTail, kSilence, kTail);
  return true;
}

static void Handle(int32_t channel, uint32_t code, int32_t param) {
  static bool inCall[ZELK_MAX_CHANNELS], playing[ZELK_MAX_CHANNELS];
  if (code == ZELK_EVENT_INCOMING_CALL) {
    printf("channel %d: call from %s\n", channel, ZELK_GetChannelInfoString(channel, ZELK_INFO_CLI));
    inCall[channel] = true;
    ZELK_Answer(channel);
  } else if (code == ZELK_EVENT_CONNECTED && inCall[channel] && !playing[channel]) {
    playing[channel] = ZELK_PlayBuffer(channel, prompt, promptLength);
    if (!playing[channel]) {
      ZELK_Hangup(channel);
    }
  } else if (code == ZELK_EVENT_PLAY_DONE && playing[channel] && ZELK_PlayTimeLeft(channel) == 0) {
    ZELK_Hangup(channel);
  } else if (code == ZELK_EVENT_DISCONNECTED || (code == ZELK_EVENT_CHANNEL_STATE && param == 0)) {
    ZELK_StopPlay(channel); /* what is left must not be heard in the next call */
    if (inCall[channel]) {
      const char* reason = code == ZELK_EVENT_DISCONNECTED ? ZELK_DisconnectReasonToString(param) : "trunk lost";
      printf("channel %d: ended, %s\n", channel, reason);
    }
    inCall[channel] = playing[channel] = false;
  }
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: announcement PROMPT.wav\n");
    return 2;
  }
  if (!ReadPrompt(argv[1])) {
    return 1;
  }
  setvbuf(stdout, NULL, _IONBF, 0); /* lines are seen at once, in a pipe too */
  sem_init(&filled, 0, 0);
  signal(SIGINT, OnSignal);
  signal(SIGTERM, OnSignal);
  ZELK_SetEventCallback(OnEvent);
  if (!ZELK_Init() || ZELK_GetChannelCount() == 0) {
    fprintf(stderr, "announcement: no card found\n");
    return 1;
  }
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    ZELK_OpenChannel(channel);
  }
  printf("waiting for calls on %d channels, Ctrl-C ends\n", ZELK_GetChannelCount());
  while (sem_wait(&filled) == 0 && !stopped) {
    pthread_mutex_lock(&lock);
    const Event event = queue[taken++ % kRoom];
    pthread_mutex_unlock(&lock);
    Handle(event.channel, event.code, event.param);
  }
  ZELK_Shutdown();
  free(prompt);
  return 0;
}
