/* SPDX-License-Identifier: GPL-2.0-only */
/* Connects each caller to one number, over two channels. Usage: bridge NUMBER */
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <zelk/ZelkApi.h>

typedef struct {
  int32_t channel, param;
  uint32_t code;
} Event;

/* Events on their way from the library's threads to main. No function of the library is called under this lock. */
enum { kRoom = 8 * ZELK_MAX_CHANNELS, kBlocks = 16, kDelay = 3 };
static Event queue[kRoom];
static atomic_uint put, taken; /* counted since the start */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static sem_t filled;
static volatile sig_atomic_t stopped;

/* A channel, and what its far end says on its way to the other one: some blocks of 20 ms, as they do not come evenly.
 */
typedef struct Line {
  struct Line* _Atomic peer; /* null: not bridged */
  bool waits;                /* a caller who is not answered yet */
  bool flows;
  atomic_uint said, heard;
  uint8_t sound[kBlocks][ZELK_BLOCK_BYTES];
} Line;
static Line lines[ZELK_MAX_CHANNELS];

/* The sound callbacks run for every channel every 20 ms: they copy a block and wait for nobody. */
static void ZELK_CALL OnRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  Line* line = &lines[channel];
  if (line->peer != NULL && line->said - line->heard < kBlocks) {
    memcpy(line->sound[line->said % kBlocks], data, length);
    ++line->said;
  }
}

static void ZELK_CALL OnPlay(uint32_t channel, uint8_t* data, uint32_t length) {
  Line* peer = lines[channel].peer;
  const unsigned waiting = peer != NULL ? peer->said - peer->heard : 0;
  if (waiting >= kDelay || (waiting > 0 && peer->flows)) {
    memcpy(data, peer->sound[peer->heard++ % kBlocks], length);
    peer->flows = waiting > 1;
  }
}

static void ZELK_CALL OnEvent(int32_t channel, uint32_t code, int32_t param) {
  pthread_mutex_lock(&lock);
  if (put - taken < kRoom) {
    queue[put++ % kRoom] = (Event){.channel = channel, .param = param, .code = code};
    sem_post(&filled);
  }
  pthread_mutex_unlock(&lock);
}

static void OnSignal(int number) {
  stopped = number;
  sem_post(&filled); /* the one way to wake somebody that a signal handler has */
}

/* Ends the call at the other end of a bridge, which is none any more. */
static void Part(Line* line) {
  Line* peer = line->peer;
  if (peer != NULL) {
    line->peer = peer->peer = NULL;
    if (peer->waits) {
      ZELK_Reject((int32_t)(peer - lines));
    } else {
      ZELK_Hangup((int32_t)(peer - lines));
    }
  }
}

/* The last free channel dials: the network mostly begins at the first. */
static void Connect(int32_t channel, const char* number) {
  char caller[32];
  int32_t called = ZELK_GetChannelCount() - 1;
  while (called >= 0 && ZELK_GetChannelInfo(called, ZELK_INFO_CHANNELSTATE) != ZELK_CHANNEL_READY) {
    --called;
  }
  snprintf(caller, sizeof caller, "%s", ZELK_GetChannelInfoString(channel, ZELK_INFO_CLI));
  printf("channel %d: call from %s\n", channel, caller);
  if (called < 0 || !ZELK_Dial(called, number, caller)) {
    ZELK_Reject(channel);
    return;
  }
  printf("channel %d: dialling %s on channel %d\n", channel, number, called);
  lines[channel].waits = true;
  lines[called].waits = lines[called].flows = lines[channel].flows = false;
  lines[channel].heard = lines[channel].said;
  lines[called].heard = lines[called].said;
  lines[channel].peer = &lines[called];
  lines[called].peer = &lines[channel];
}

static void Handle(int32_t channel, uint32_t code, int32_t param, const char* number) {
  Line* line = &lines[channel];
  Line* peer = line->peer;
  if (code == ZELK_EVENT_INCOMING_CALL) {
    Part(line); /* both ends called at once, and the one that was dialled is no more */
    Connect(channel, number);
  } else if ((code == ZELK_EVENT_PROGRESS || code == ZELK_EVENT_CONNECTED) && peer != NULL && peer->waits) {
    peer->waits = false; /* there is something to hear: tones, an announcement or an answer */
    ZELK_Answer((int32_t)(peer - lines));
  } else if (code == ZELK_EVENT_DISCONNECTED || (code == ZELK_EVENT_CHANNEL_STATE && param == 0 && peer != NULL)) {
    const char* reason = code == ZELK_EVENT_DISCONNECTED ? ZELK_DisconnectReasonToString(param) : "trunk lost";
    printf("channel %d: ended, %s\n", channel, reason);
    Part(line);
  }
}

int main(int argc, char** argv) {
  if (argc != 2 || strlen(argv[1]) > 31 || argv[1][strspn(argv[1], "0123456789*#+")] != '\0') {
    fprintf(stderr, "usage: bridge NUMBER, of up to 31 digits\n");
    return 2;
  }
  setvbuf(stdout, NULL, _IONBF, 0); /* lines are seen at once, in a pipe too */
  sem_init(&filled, 0, 0);
  signal(SIGINT, OnSignal);
  signal(SIGTERM, OnSignal);
  ZELK_SetEventCallback(OnEvent);
  ZELK_SetRecordCallback(OnRecord);
  ZELK_SetPlayCallback(OnPlay);
  if (!ZELK_Init() || ZELK_GetChannelCount() == 0) {
    fprintf(stderr, "bridge: no card found\n");
    return 1;
  }
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    ZELK_OpenChannel(channel);
  }
  printf("waiting for calls on %d channels, Ctrl-C ends\n", ZELK_GetChannelCount());
  for (; sem_wait(&filled) == 0 && !stopped; ++taken) {
    const Event* event = &queue[taken % kRoom];
    Handle(event->channel, event->code, event->param, argv[1]);
  }
  ZELK_Shutdown();
  return 0;
}
