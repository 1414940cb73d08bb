/* SPDX-License-Identifier: GPL-2.0-only */
/* Answers every call and records what the caller says, a WAV file a call. Usage: recorder FOLDER */
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <zelk/ZelkApi.h>

typedef struct {
  int32_t channel, param;
  uint32_t code; /* an event's, or kSound */
  uint8_t sound[ZELK_BLOCK_BYTES];
} Item;

/* Events and sound on their way to main, in one order. A channel brings 50 blocks a second, so 240 of them leave the
 * disk four seconds to write one. The last places are for events. No function of the library runs under this lock. */
enum { kSound = 0, kRoom = 65536, kRoomForSound = kRoom - 8 * ZELK_MAX_CHANNELS };
static Item queue[kRoom];
static atomic_uint put, taken, lost;                     /* counted since the start */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; /* among those who put */
static sem_t filled;
static volatile sig_atomic_t stopped;
static atomic_bool wanted[ZELK_MAX_CHANNELS]; /* channels whose sound goes into the queue */

static void Put(int32_t channel, uint32_t code, int32_t param, const void* sound, uint32_t length) {
  pthread_mutex_lock(&lock);
  if (put - taken < (code == kSound ? kRoomForSound : kRoom)) {
    Item* item = &queue[put++ % kRoom];
    *item = (Item){.channel = channel, .param = param, .code = code};
    memcpy(item->sound, sound, length);
    sem_post(&filled);
  } else {
    ++lost;
  }
  pthread_mutex_unlock(&lock);
}

static void ZELK_CALL OnEvent(int32_t channel, uint32_t code, int32_t param) {
  Put(channel, code, param, "", 0);
}

/* Runs for every channel every 20 ms, on the thread that keeps all of them supplied. */
static void ZELK_CALL OnRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  if (wanted[channel]) {
    Put((int32_t)channel, kSound, 0, data, length);
  }
}

static void OnSignal(int number) {
  (void)number;
  stopped = 1;
  sem_post(&filled); /* the one way to wake somebody that a signal handler has */
}

/* The recording of a channel's call. Its name ends in .part while the call lasts, then in .wav. */
typedef struct {
  bool goesOn;
  FILE* file; /* null when it could not be made: the call goes on without */
  char part[4096];
} Recording;
static Recording recordings[ZELK_MAX_CHANNELS];

static void Begin(int32_t channel, Recording* call, const char* folder) {
  char stamp[32];
  struct timespec now;
  const char* number = ZELK_GetChannelInfoString(channel, ZELK_INFO_CLI);
  const int digits = (int)strspn(number, "0123456789*#+"); /* what the network sends must not become a path */
  printf("channel %d: call from %s\n", channel, number);
  clock_gettime(CLOCK_REALTIME, &now);
  strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", gmtime(&now.tv_sec));
  snprintf(call->part, sizeof call->part, "%s/%s-%03d_%d_%.*s.part", folder, stamp, (int)(now.tv_nsec / 1000000),
           channel, digits > 0 ? digits : 7, digits > 0 ? number : "unknown");
  call->file = fopen(call->part, "wb");
  if (call->file == NULL || fseek(call->file, ZELK_RAW_HEADER_BYTES, SEEK_SET) != 0) {
    perror(call->part);
  }
  call->goesOn = true;
  wanted[channel] = call->file != NULL;
  ZELK_Answer(channel);
}

static void End(int32_t channel, Recording* call, const char* reason) {
  char whole[4096];
  printf("channel %d: ended, %s\n", channel, reason);
  if (call->file != NULL && fclose(call->file) != 0 && wanted[channel]) {
    perror(call->part);
  }
  wanted[channel] = call->goesOn = false;
  snprintf(whole, sizeof whole, "%.*s.wav", (int)strlen(call->part) - 5, call->part);
  if (ZELK_ConvertRawToWaveFile(call->part, ZELK_FORMAT_ALAW) == 0 && rename(call->part, whole) == 0) {
    printf("channel %d: recorded %s\n", channel, whole);
  }
}

static void Handle(const Item* item, const char* folder) {
  const int32_t channel = item->channel;
  Recording* call = &recordings[channel];
  const bool isDown = item->code == ZELK_EVENT_CHANNEL_STATE && item->param == 0;
  if (item->code == ZELK_EVENT_INCOMING_CALL) {
    Begin(channel, call, folder);
  } else if (call->goesOn && (item->code == ZELK_EVENT_DISCONNECTED || isDown)) {
    End(channel, call, isDown ? "trunk lost" : ZELK_DisconnectReasonToString(item->param));
  } else if (item->code == kSound && wanted[channel] && fwrite(item->sound, ZELK_BLOCK_BYTES, 1, call->file) != 1) {
    perror(call->part); /* the disk is full: what was written stays, the call goes on */
    wanted[channel] = false;
  }
}

int main(int argc, char** argv) {
  char probe[4096];
  if (argc != 2) {
    fprintf(stderr, "usage: recorder FOLDER\n");
    return 2;
  }
  snprintf(probe, sizeof probe, "%s/recorder.part", argv[1]);
  FILE* file = fopen(probe, "wb");
  if (file == NULL || fclose(file) != 0 || remove(probe) != 0) {
    perror(argv[1]);
    return 1;
  }
  setvbuf(stdout, NULL, _IONBF, 0); /* lines are seen at once, in a pipe too */
  sem_init(&filled, 0, 0);
  signal(SIGINT, OnSignal);
  signal(SIGTERM, OnSignal);
  ZELK_SetEventCallback(OnEvent);
  ZELK_SetRecordCallback(OnRecord);
  if (!ZELK_Init() || ZELK_GetChannelCount() == 0) {
    fprintf(stderr, "recorder: no card found\n");
    return 1;
  }
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    ZELK_OpenChannel(channel);
  }
  printf("waiting for calls on %d channels, Ctrl-C ends\n", ZELK_GetChannelCount());
  for (; sem_wait(&filled) == 0 && !stopped; ++taken) {
    Handle(&queue[taken % kRoom], argv[1]);
  }
  ZELK_Shutdown();
  for (int32_t channel = 0; channel < ZELK_MAX_CHANNELS; ++channel) {
    if (recordings[channel].goesOn) {
      End(channel, &recordings[channel], "recorder stopped");
    }
  }
  printf("the disk was too slow for %u blocks\n", lost);
  return 0;
}
