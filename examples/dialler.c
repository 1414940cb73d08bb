/* SPDX-License-Identifier: GPL-2.0-only */
/* Dials the numbers of a list, plays a WAV file to who answers and writes down what became of each. Usage: dialler
 * NUMBERS.csv RESULTS.csv PROMPT.wav [--at-once N] [--give-up SECONDS] [--tries N] [--retry-wait SECONDS] */
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

enum { kAtOnce, kGiveUp, kTries, kRetryWait, kOptions };
static const struct option options[] = {{"at-once", 1, NULL, kAtOnce},
                                        {"give-up", 1, NULL, kGiveUp},
                                        {"tries", 1, NULL, kTries},
                                        {"retry-wait", 1, NULL, kRetryWait},
                                        {NULL, 0, NULL, 0}};
static int values[] = {2, 30, 3, 60};

enum { kMostNumbers = 100000 };
static struct Number {
  char digits[32];
  int tries;
  time_t due; /* of the next try; 0: is being dialled, or done with */
} numbers[kMostNumbers];
static int count, left, active;

/* A channel's call: what the library's threads have told of it, and what main has done. */
enum { kNoCause = -1, kGoesOn = -2, kLost = -3 };
typedef struct {
  atomic_bool isConnected, isPlayed;
  atomic_int end;        /* kGoesOn, kLost, or what DISCONNECTED says: a cause or kNoCause */
  struct Number* number; /* null: no call */
  time_t since;
  bool isAnswered, isGivenUp;
} Call;
static Call calls[ZELK_MAX_CHANNELS];
static sem_t told;
static volatile sig_atomic_t stopped;

/* Runs on threads that have a whole card to serve: what there is to do is left to main. */
static void ZELK_CALL OnEvent(int32_t channel, uint32_t code, int32_t param) {
  Call* call = &calls[channel];
  call->isConnected |= code == ZELK_EVENT_CONNECTED;
  call->isPlayed |= code == ZELK_EVENT_PLAY_DONE;
  if (code == ZELK_EVENT_DISCONNECTED || (code == ZELK_EVENT_CHANNEL_STATE && param == 0)) {
    call->end = code == ZELK_EVENT_DISCONNECTED ? param : kLost;
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
    perror(path);
    exit(1);
  }
  return file;
}

static void ReadNumbers(const char* path) {
  char line[4096];
  FILE* file = Open(path, "r");
  for (int row = 1; fgets(line, sizeof line, file) != NULL; ++row) {
    line[strcspn(line, ",\r\n")] = '\0';
    if (*line == '\0' || (row == 1 && strcmp(line, "number") == 0)) {
      continue;
    }
    if (strlen(line) > 31 || line[strspn(line, "0123456789*#+")] != '\0' || count == kMostNumbers) {
      fprintf(stderr, "%s:%d: not 1 to 31 digits, or one number too many\n", path, row);
      exit(1);
    }
    numbers[count].due = 1;
    strcpy(numbers[count++].digits, line);
  }
  fclose(file);
}

static bool ReadOptions(int words, char** word) {
  bool isGood = true;
  for (int option; (option = getopt_long(words, word, "", options, NULL)) != -1;) {
    isGood = isGood && option < kOptions && (values[option] = atoi(optarg)) >= (option == kRetryWait ? 0 : 1);
  }
  return isGood && words - optind == 3;
}

/* Dials the first number that is due, when this channel can. */
static void DialNext(int32_t channel, Call* call) {
  struct Number* number = numbers;
  while (number < numbers + count && (number->due == 0 || number->due > time(NULL))) {
    ++number;
  }
  call->isConnected = call->isPlayed = call->isAnswered = call->isGivenUp = false;
  call->end = kGoesOn;
  if (number < numbers + count && ZELK_GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) == ZELK_CHANNEL_READY) {
    printf("channel %d: dialling %s\n", channel, number->digits);
    call->number = number;
    call->since = time(NULL);
    number->due = 0;
    ++number->tries;
    ++active;
    if (!ZELK_Dial(channel, number->digits, NULL)) {
      ZELK_Reject(channel); /* frees the channel, which the request may have taken */
      call->end = kLost;
    }
  }
}

/* A number that was busy is dialled again, and one that was lost with its trunk; any other has its result. */
static void Finish(int32_t channel, Call* call, FILE* results) {
  struct Number* number = call->number;
  const int end = call->end;
  const char* unanswered = call->isGivenUp || end == 18 || end == 19 ? "no-answer" : end == 17 ? "busy" : "failed";
  const char* result = end == kLost ? "lost" : call->isAnswered ? "answered" : unanswered;
  const char* name = ZELK_DisconnectReasonToString(end);
  ZELK_StopPlay(channel); /* what is left must not be heard in the next call */
  call->number = NULL;
  --active;
  if (number->tries < values[kTries] && (strcmp(result, "lost") == 0 || strcmp(result, "busy") == 0)) {
    number->due = time(NULL) + values[kRetryWait];
    return;
  }
  printf("channel %d: %s %s, %s\n", channel, number->digits, result, name);
  fprintf(results, "%s,%s,%d,%d,%s\n", number->digits, result, number->tries, end == kLost ? kNoCause : end, name);
  fflush(results);
  --left;
}

/* What there is to do on a channel, as far as its call has come. */
enum { kLongestClearing = 60 };
static void Serve(int32_t channel, Call* call, const char* prompt, FILE* results) {
  if (call->number == NULL) {
    if (active < values[kAtOnce]) {
      DialNext(channel, call);
    }
  } else if (call->end != kGoesOn) {
    Finish(channel, call, results);
  } else if (call->isConnected && !call->isAnswered && !call->isGivenUp) {
    call->isAnswered = true;
    call->isPlayed = !ZELK_PlayFile(channel, prompt);
  } else if (call->isAnswered && call->isPlayed && ZELK_PlayTimeLeft(channel) == 0) {
    ZELK_Hangup(channel);
  } else if (!call->isAnswered && time(NULL) - call->since >= values[kGiveUp]) {
    call->isGivenUp = true;
    ZELK_Hangup(channel); /* DISCONNECTED follows, but for a card that has gone without a word */
    if (time(NULL) - call->since >= values[kGiveUp] + kLongestClearing) {
      ZELK_Reject(channel);
      call->end = kLost;
    }
  }
}

static bool Start(void) {
  sem_init(&told, 0, 0);
  signal(SIGINT, OnSignal);
  signal(SIGTERM, OnSignal);
  ZELK_SetEventCallback(OnEvent);
  if (!ZELK_Init() || ZELK_GetChannelCount() == 0) {
    return false;
  }
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    ZELK_OpenChannel(channel);
    ZELK_SetChannelInfo(channel, ZELK_SET_ALLOWINCOMING, 0);
  }
  return true;
}

int main(int argc, char** argv) {
  if (!ReadOptions(argc, argv)) {
    fprintf(stderr, "usage: dialler NUMBERS.csv RESULTS.csv PROMPT.wav [--at-once N] [--give-up SECONDS] ...\n");
    return 2;
  }
  const char* prompt = argv[optind + 2];
  ReadNumbers(argv[optind]);
  fclose(Open(prompt, "rb"));
  FILE* results = Open(argv[optind + 1], "w");
  fputs("number,result,tries,cause,name\n", results);
  setvbuf(stdout, NULL, _IONBF, 0); /* lines are seen at once, in a pipe too */
  if (!Start()) {
    fprintf(stderr, "dialler: no card found\n");
    return 1;
  }
  printf("dialling %d numbers\n", left = count);
  while (left > 0 && !stopped) {
    for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
      Serve(channel, &calls[channel], prompt, results);
    }
    sem_timedwait(&told, &(struct timespec){time(NULL) + 1, 0}); /* times are looked at each second */
  }
  ZELK_Shutdown();
  fclose(results);
  if (left > 0) {
    fprintf(stderr, "%d numbers are left\n", left);
  }
  return left > 0;
}
