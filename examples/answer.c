#include <stdio.h>
#include <zelk/ZelkApi.h>

static void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t param) {
  if (event == ZELK_EVENT_INCOMING_CALL) {
    printf("channel %d: call from %s\n", channel, ZELK_GetChannelInfoString(channel, ZELK_INFO_CLI));
    ZELK_Answer(channel);
  } else if (event == ZELK_EVENT_CONNECTED) {
    ZELK_PlayFile(channel, "prompt.wav");
  } else if (event == ZELK_EVENT_PLAY_DONE) {
    ZELK_Hangup(channel);
  } else if (event == ZELK_EVENT_DISCONNECTED) {
    printf("channel %d: %s\n", channel, ZELK_DisconnectReasonToString(param));
  }
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
  getchar();
  ZELK_Shutdown();
  return 0;
}
