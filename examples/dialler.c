/* SPDX-License-Identifier: GPL-2.0-only */
/* Dials the numbers of a list, plays a WAV file to who answers and writes down what became of each number. */
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <zelk/ZelkApi.h>

enum { kAtOnce, kGiveUp, kTries, kRetryWait, kOptions, kMostNumbers = 100000, kNoCause = -1, kGoesOn = -2 };
static const char* const options[] = {"--at-once", "--give-up", "--tries", "--retry-wait"};
static int values[] = {2, 30, 3, 60};
static struct Number {
  char digits[32];
  int tries;
  time_t due; /* of the next try; 0: is being dialled, or done with */
} numbers[kMostNumbers];
static int count, left, active;

/* A channel's call: what the library's threads have told of it, and what main has done. */
typedef struct {
  atomic_bool isConnected, isPlayed, isLost;
  atomic_int cause;      /* kGoesOn until DISCONNECTED */
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
  call->isLost |= code == ZELK_EVENT_CHANNEL_STATE && param == 0;
  if (code == ZELK_EVENT_DISCONNECTED) {
    call->cause = param;
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
  int option = 0;
  for (; words >= 2 && option < kOptions; words -= 2, word += 2) {
    for (option = 0; option < kOptions && strcmp(word[0], options[option]) != 0; ++option) {
    }
    option = option < kOptions && (values[option] = atoi(word[1])) >= (option != kRetryWait) ? option : kOptions;
  }
  return words == 0 && option < kOptions;
}

/* Dials the first number that is due, when this channel can. */
static void DialNext(int32_t channel, Call* call) {
  struct Number* number = numbers;
  while (number < numbers + count && (number->due == 0 || number->due > time(NULL))) {
    ++number;
  }
  call->isConnected = call->isPlayed = call->isLost = call->isAnswered = call->isGivenUp = false;
  call->cause = kGoesOn;
  if (number < numbers + count && ZELK_GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) == ZELK_CHANNEL_READY) {
    printf("channel %d: dialling %s\n", channel, number->digits);
    call->number = number;
    call->since = time(NULL);
    number->due = 0;
    ++number->tries;
    ++active;
    if (!ZELK_Dial(channel, number->digits, NULL)) {
      ZELK_Reject(channel); /* frees the channel, which the request may have taken */
      call->isLost = true;
    }
  }
}

/* A number that was busy is dialled again, and one that was lost with its trunk; any other has its result. */
static void Finish(int32_t channel, Call* call, FILE* results) {
  struct Number* number = call->number;
  const int cause = call->isLost ? kNoCause : call->cause;
  const char* name = ZELK_DisconnectReasonToString(cause);
  const char* unanswered = call->isGivenUp || cause == 18 || cause == 19 ? "no-answer"
                           : cause == 17                                 ? "busy"
                                                                         : "failed";
  const char* result = call->isLost ? "lost" : call->isAnswered ? "answered" : unanswered;
  ZELK_StopPlay(channel); /* what is left must not be heard in the next call */
  call->number = NULL;
  --active;
  if (number->tries < values[kTries] && (strcmp(result, "lost") == 0 || strcmp(result, "busy") == 0)) {
    number->due = time(NULL) + values[kRetryWait];
    return;
  }
  printf("channel %d: %s %s, %s\n", channel, number->digits, result, name);
  fprintf(results, "%s,%s,%d,%d,%s\n", number->digits, result, number->tries, cause, name);
  fflush(results);
  --left;
}

/* What there is to do on a channel, as far as its call has come. */
static void Serve(int32_t channel, Call* call, const char* prompt, FILE* results) {
  if (call->number == NULL) {
    if (active < values[kAtOnce]) {
      DialNext(channel, call);
    }
  } else if (call->isLost || call->cause != kGoesOn) {
    Finish(channel, call, results);
  } else if (call->isConnected && !call->isAnswered && !call->isGivenUp) {
    call->isAnswered = true;
    call->isPlayed = !ZELK_PlayFile(channel, prompt);
  } else if (call->isAnswered ? call->isPlayed && ZELK_PlayTimeLeft(channel) == 0
                              : time(NULL) - call->since >= values[kGiveUp]) {
    call->isGivenUp = !call->isAnswered;
    ZELK_Hangup(channel);
  }
}

int main(int argc, char** argv) {
  if (argc < 4 || !ReadOptions(argc - 4, argv + 4)) {
    fprintf(stderr,
            "usage: dialler NUMBERS.csv RESULTS.csv PROMPT.wav"
            " [--at-once N] [--give-up SECONDS] [--tries N] [--retry-wait SECONDS]\n");
    return 2;
  }
  ReadNumbers(argv[1]);
  fclose(Open(argv[3], "rb"));
  FILE* results = Open(argv[2], "w");
  fputs("number,result,tries,cause,name\n", results);
  setvbuf(stdout, NULL, _IONBF, 0); /* lines are seen at once, in a pipe too */
  sem_init(&told, 0, 0);
  signal(SIGINT, OnSignal);
  signal(SIGTERM, OnSignal);
  ZELK_SetEventCallback(OnEvent);
  if (!ZELK_Init() || ZELK_GetChannelCount() == 0) {
    fprintf(stderr, "dialler: no card found\n");
    return 1;
  }
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    ZELK_OpenChannel(channel);
    ZELK_SetChannelInfo(channel, ZELK_SET_ALLOWINCOMING, 0);
  }
  printf("dialling %d numbers\n", left = count);
  while (left > 0 && !stopped) {
    for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
      Serve(channel, &calls[channel], argv[3], results);
    }
    sem_timedwait(&told, &(struct timespec){time(NULL) + 1, 0}); /* or a second's clock is at its end */
  }
  ZELK_Shutdown();
  fclose(results);
  if (left > 0) {
    fprintf(stderr, "%d numbers are left\n", left);
  }
  return left > 0;
}
