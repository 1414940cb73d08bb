// SPDX-License-Identifier: GPL-2.0-only
#include "bindings/support/function_table.h"

namespace table {

SFunctions& Functions() {
  static SFunctions functions;
  return functions;
}

}  // namespace table

void ZELK_CALL ZELK_SetEventCallback(ZelkEventCallback callback) {
  return table::Functions().SetEventCallback(callback);
}
void ZELK_CALL ZELK_SetPlayCallback(ZelkPlayCallback callback) {
  return table::Functions().SetPlayCallback(callback);
}
void ZELK_CALL ZELK_SetRecordCallback(ZelkRecordCallback callback) {
  return table::Functions().SetRecordCallback(callback);
}
bool ZELK_CALL ZELK_Init(void) {
  return table::Functions().Init();
}
void ZELK_CALL ZELK_Shutdown(void) {
  return table::Functions().Shutdown();
}
int32_t ZELK_CALL ZELK_GetChannelCount(void) {
  return table::Functions().GetChannelCount();
}
bool ZELK_CALL ZELK_OpenChannel(int32_t channel) {
  return table::Functions().OpenChannel(channel);
}
void ZELK_CALL ZELK_CloseChannel(int32_t channel) {
  return table::Functions().CloseChannel(channel);
}
uint32_t ZELK_CALL ZELK_GetLastError(int32_t channel) {
  return table::Functions().GetLastError(channel);
}
uint32_t ZELK_CALL ZELK_GetChannelInfo(int32_t channel, uint32_t key) {
  return table::Functions().GetChannelInfo(channel, key);
}
const char* ZELK_CALL ZELK_GetChannelInfoString(int32_t channel, uint32_t key) {
  return table::Functions().GetChannelInfoString(channel, key);
}
uint32_t ZELK_CALL ZELK_SetChannelInfo(int32_t channel, int32_t key, int32_t value) {
  return table::Functions().SetChannelInfo(channel, key, value);
}
uint32_t ZELK_CALL ZELK_SetChannelInfoString(int32_t channel, int32_t key, const char* value) {
  return table::Functions().SetChannelInfoString(channel, key, value);
}
bool ZELK_CALL ZELK_Dial(int32_t channel, const char* number, const char* callingNumber) {
  return table::Functions().Dial(channel, number, callingNumber);
}
bool ZELK_CALL ZELK_Answer(int32_t channel) {
  return table::Functions().Answer(channel);
}
bool ZELK_CALL ZELK_Reject(int32_t channel) {
  return table::Functions().Reject(channel);
}
bool ZELK_CALL ZELK_Hangup(int32_t channel) {
  return table::Functions().Hangup(channel);
}
bool ZELK_CALL ZELK_Transfer(int32_t channel) {
  return table::Functions().Transfer(channel);
}
const char* ZELK_CALL ZELK_DisconnectReasonToString(int32_t cause) {
  return table::Functions().DisconnectReasonToString(cause);
}
bool ZELK_CALL ZELK_PlayBuffer(int32_t channel, const void* data, uint32_t length) {
  return table::Functions().PlayBuffer(channel, data, length);
}
bool ZELK_CALL ZELK_PlayFile(int32_t channel, const char* path) {
  return table::Functions().PlayFile(channel, path);
}
uint32_t ZELK_CALL ZELK_PlayTimeLeft(int32_t channel) {
  return table::Functions().PlayTimeLeft(channel);
}
void ZELK_CALL ZELK_StopPlay(int32_t channel) {
  return table::Functions().StopPlay(channel);
}
uint32_t ZELK_CALL ZELK_ConvertRawToWaveFile(const char* path, uint32_t type) {
  return table::Functions().ConvertRawToWaveFile(path, type);
}
