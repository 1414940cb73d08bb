/* SPDX-License-Identifier: GPL-2.0-only */
/* A menu for every caller. Usage: ivr FOLDER [--wait SECONDS]; the folder holds the prompts, menu.wav and six more. */
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
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

/* Where a channel's caller is: not there, about to be answered, or at a prompt. */
enum { kNobody, kOffered, kMenu, kHours, kBranches, kNorth, kSouth, kWrong, kGoodbye, kPlaces };
static const char* const names[] = {"", "", "menu", "hours", "branches", "north", "south", "wrong", "goodbye"};
static char paths[kPlaces][4096];
static int places[ZELK_MAX_CHANNELS], wrong[ZELK_MAX_CHANNELS]; /* wrong: digits without a good one between them */

/* What a digit does: it plays a prompt and leads to a place, which speaks for itself. The last is for all others. */
static const struct Choice {
  int place, digit, prompt, next;
} choices[] = {{kMenu, '1', kHours, kMenu},
               {kMenu, '2', 0, kBranches},
               {kMenu, '0', 0, kGoodbye},
               {kBranches, '1', kNorth, kBranches},
               {kBranches, '2', kSouth, kBranches},
               {kBranches, '*', 0, kMenu},
               {0, 0, kWrong, 0}};

/* Silence that is played while a digit is waited for: its PLAY_DONE is the time-out, and no clock is needed. */
static unsigned char silence[60 * ZELK_SAMPLE_RATE];
static int patience; /* how many of its seconds */

static void Play(int32_t channel, int prompt) {
  if (prompt != 0 && !ZELK_PlayFile(channel, paths[prompt])) { /* reads the disk: nothing for a callback */
    fprintf(stderr, "ivr: %s: cannot be played, error %u\n", paths[prompt], (unsigned)ZELK_GetLastError(channel));
    ZELK_Hangup(channel);
  }
}

/* The prompt of a place follows what is played already. PLAY_DONE comes once, when the silence after it is over. */
static void Speak(int32_t channel, int place) {
  places[channel] = place = wrong[channel] < 3 ? place : kGoodbye;
  Play(channel, place);
  ZELK_PlayBuffer(channel, silence, place == kGoodbye ? ZELK_BLOCK_BYTES : (uint32_t)patience * ZELK_SAMPLE_RATE);
}

static void Enter(int32_t channel, int digit) {
  const struct Choice* choice = choices;
  while (choice->digit != 0 && (choice->place != places[channel] || choice->digit != digit)) {
    ++choice;
  }
  wrong[channel] = choice->digit != 0 ? 0 : wrong[channel] + 1;
  ZELK_StopPlay(channel);
  Play(channel, choice->prompt);
  Speak(channel, choice->digit != 0 ? choice->next : places[channel]);
}

static void Handle(int32_t channel, uint32_t code, int32_t param) {
  const int place = places[channel];
  if (code == ZELK_EVENT_INCOMING_CALL) {
    printf("channel %d: call from %s\n", channel, ZELK_GetChannelInfoString(channel, ZELK_INFO_CLI));
    places[channel] = kOffered;
    wrong[channel] = 0;
    ZELK_Answer(channel);
  } else if (code == ZELK_EVENT_CONNECTED && place == kOffered) {
    Speak(channel, kMenu);
  } else if (code == ZELK_EVENT_DTMF && (place == kMenu || place == kBranches)) {
    Enter(channel, param);
  } else if (code == ZELK_EVENT_PLAY_DONE && place == kGoodbye && ZELK_PlayTimeLeft(channel) == 0) {
    ZELK_Hangup(channel);
  } else if (code == ZELK_EVENT_PLAY_DONE && place >= kMenu && ZELK_PlayTimeLeft(channel) == 0) {
    ++wrong[channel];
    Speak(channel, place);
  } else if (code == ZELK_EVENT_DISCONNECTED || (code == ZELK_EVENT_CHANNEL_STATE && param == 0)) {
    ZELK_StopPlay(channel); /* what is left must not be heard in the next call */
    if (place != kNobody) {
      const char* reason = code == ZELK_EVENT_DISCONNECTED ? ZELK_DisconnectReasonToString(param) : "trunk lost";
      printf("channel %d: ended, %s\n", channel, reason);
    }
    places[channel] = kNobody;
  }
}

int main(int argc, char** argv) {
  patience = argc == 2 ? 5 : argc == 4 && strcmp(argv[2], "--wait") == 0 ? atoi(argv[3]) : 0;
  if (patience < 1 || patience > 60) {
    fprintf(stderr, "usage: ivr FOLDER [--wait SECONDS], 60 seconds at most\n");
    return 2;
  }
  for (int prompt = kMenu; prompt < kPlaces; ++prompt) {
    snprintf(paths[prompt], sizeof paths[prompt], "%s/%s.wav", argv[1], names[prompt]);
    FILE* file = fopen(paths[prompt], "rb");
    if (file == NULL || fclose(file) != 0) {
      fprintf(stderr, "ivr: %s cannot be read\n", paths[prompt]);
      return 1;
    }
  }
  memset(silence, 0xD5, sizeof silence);
  setvbuf(stdout, NULL, _IONBF, 0); /* lines are seen at once, in a pipe too */
  sem_init(&filled, 0, 0);
  signal(SIGINT, OnSignal);
  signal(SIGTERM, OnSignal);
  ZELK_SetEventCallback(OnEvent);
  if (!ZELK_Init() || ZELK_GetChannelCount() == 0) {
    fprintf(stderr, "ivr: no card found\n");
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
  return 0;
}
