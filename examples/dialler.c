/* SPDX-License-Identifier: GPL-2.0-only */
/* Dials the numbers of a list, plays a WAV file to who answers and writes down what became of each. */
#include <errno.h>
#include <getopt.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <zelk/ZelkApi.h>

#define FAIL(code, ...) (fprintf(stderr, "dialler: " __VA_ARGS__), exit(code))
enum { kAtOnce, kGiveUp, kTries, kRetryWait, kClearing = 60, kMost = 100000, kNoCause = -1, kGoesOn = -2, kLost = -3 };
static int values[] = {2, 30, 3, 60};
static struct Number {
  char digits[32];
  int tries;
  time_t due;                /* of the next try */
} numbers[kMost + 1];        /* in the order of dialling: those of the list, then those that are tried again */
static int put, taken, left; /* into the numbers, out of them; without a result */
static atomic_bool connected[ZELK_MAX_CHANNELS]; /* what the library's threads have told of a channel's call */
static atomic_int ends[ZELK_MAX_CHANNELS];       /* kGoesOn, kLost, or what DISCONNECTED says: a cause or kNoCause */
static struct Call {                             /* what main knows of it */
  struct Number number;
  const char* result; /* null: neither answered nor given up yet */
  time_t limit;       /* of the wait for an answer, then for the end of the prompt; 0: no call */
} calls[ZELK_MAX_CHANNELS];
static sem_t told;
static volatile sig_atomic_t stopped;

/* Runs on threads that have a whole card to serve: what there is to do is left to main. */
static void ZELK_CALL OnEvent(int32_t channel, uint32_t code, int32_t param) {
  connected[channel] |= code == ZELK_EVENT_CONNECTED;
  if (code == ZELK_EVENT_DISCONNECTED || (code == ZELK_EVENT_CHANNEL_STATE && param == 0)) {
    ends[channel] = code == ZELK_EVENT_DISCONNECTED ? param : kLost;
  }
  sem_post(&told);
}

static void OnSignal(int number) {
  stopped = number;
  sem_post(&told); /* the one way to wake somebody that a signal handler has */
}

static FILE* Open(const char* path, const char* mode) {
  FILE* file = fopen(path, mode);
  if (file == NULL) {
    FAIL(1, "%s: %s\n", path, strerror(errno));
  }
  return file;
}

static void ReadNumbers(FILE* file, const char* path) {
  char line[4096];
  for (int row = 1; fgets(line, sizeof line, file) != NULL; ++row) {
    line[strcspn(line, ",\r\n")] = '\0';
    const bool isNumber = *line != '\0' && (row > 1 || strcmp(line, "number") != 0);
    if (isNumber && (strlen(line) > 31 || line[strspn(line, "0123456789*#+")] != '\0' || put == kMost)) {
      FAIL(1, "%s:%d: not 1 to 31 digits, or one number too many\n", path, row);
    }
    strcpy(numbers[put].digits, line);
    put += isNumber;
  }
}

/* A number that was busy is tried again, and one that was lost with its trunk; any other has its result. */
static void Finish(int32_t channel, struct Call* call, FILE* results) {
  const int end = ends[channel] == kGoesOn ? kNoCause : ends[channel];
  const char* refused = end == 17 ? "busy" : end == 18 || end == 19 ? "no-answer" : "failed";
  const char* result = end == kLost ? "lost" : call->result != NULL ? call->result : refused;
  const char* name = ZELK_DisconnectReasonToString(end);
  struct Number number = call->number;
  ZELK_StopPlay(channel); /* what is left must not be heard in the next call */
  call->limit = 0;
  if (++number.tries < values[kTries] && (end == kLost || strcmp(result, "busy") == 0)) {
    number.due = time(NULL) + values[kRetryWait];
    numbers[put++ % kMost] = number;
  } else {
    printf("channel %d: %s %s, %s\n", channel, number.digits, result, name);
    fprintf(results, "%s,%s,%d,%d,%s\n", number.digits, result, number.tries, end == kLost ? kNoCause : end, name);
    --left;
  }
}

/* What there is to do on a channel, as far as its call has come. */
static void Serve(int32_t channel, struct Call* call, const char* prompt, FILE* results) {
  const time_t now = time(NULL);
  const bool isFree = call->limit == 0, isConnected = connected[channel];
  if (isFree && taken < put && numbers[taken % kMost].due <= now && left + taken - put < values[kAtOnce] &&
      ZELK_GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) == ZELK_CHANNEL_READY) {
    connected[channel] = false;
    ends[channel] = kGoesOn;
    *call = (struct Call){.number = numbers[taken++ % kMost], .limit = now + values[kGiveUp]};
    printf("channel %d: dialling %s\n", channel, call->number.digits);
    if (!ZELK_Dial(channel, call->number.digits, NULL)) {
      ZELK_Reject(channel); /* frees the channel, which the request may have taken */
      ends[channel] = kLost;
    }
  } else if (!isFree && isConnected && call->result == NULL) {
    call->result = "answered";
    ZELK_PlayFile(channel, prompt);
    call->limit = now + ZELK_PlayTimeLeft(channel) / 1000;
  } else if (!isFree && (ends[channel] != kGoesOn || now >= call->limit + kClearing)) {
    Finish(channel, call, results);
  } else if (!isFree && (isConnected ? ZELK_PlayTimeLeft(channel) == 0 : now >= call->limit)) {
    call->result = isConnected ? call->result : "no-answer";
    ZELK_Hangup(channel); /* DISCONNECTED follows, but for a card that has gone without a word */
  }
}

int main(int argc, char** argv) {
  static const struct option known[] = {
      {"at-once", 1, NULL, 0}, {"give-up", 1, NULL, 0}, {"tries", 1, NULL, 0}, {"retry-wait", 1, NULL, 0}, {0}};
  bool isGood = true;
  for (int option, index; (option = getopt_long(argc, argv, "", known, &index)) != -1;) {
    isGood &= option == 0 && (values[index] = atoi(optarg)) >= (index != kRetryWait);
  }
  if (!isGood || argc - optind != 3) {
    FAIL(2, "usage: NUMBERS.csv RESULTS.csv PROMPT.wav [--at-once N] [--give-up S] [--tries N] [--retry-wait S]\n");
  }
  ReadNumbers(Open(argv[optind], "r"), argv[optind]);
  fclose(Open(argv[optind + 2], "rb"));
  FILE* results = Open(argv[optind + 1], "w");
  fputs("number,result,tries,cause,name\n", results);
  sem_init(&told, 0, 0);
  signal(SIGINT, OnSignal);
  signal(SIGTERM, OnSignal);
  ZELK_SetEventCallback(OnEvent);
  if (!ZELK_Init() || ZELK_GetChannelCount() == 0) {
    FAIL(1, "no card found\n");
  }
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    ZELK_OpenChannel(channel);
    ZELK_SetChannelInfo(channel, ZELK_SET_ALLOWINCOMING, 0);
  }
  printf("dialling %d numbers\n", left = put);
  while (left > 0 && !stopped) {
    for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
      Serve(channel, &calls[channel], argv[optind + 2], results);
    }
    fflush(NULL);                                                /* lines are seen at once, in a pipe or a file too */
    sem_timedwait(&told, &(struct timespec){time(NULL) + 1, 0}); /* times are looked at each second */
  }
  ZELK_Shutdown();
  return left > 0 && fprintf(stderr, "dialler: %d numbers are left\n", left) > 0;
}
