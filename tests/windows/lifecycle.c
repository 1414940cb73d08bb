/* SPDX-License-Identifier: GPL-2.0-only */

/*
 * A Windows application in C against the public header alone, which loads and unloads the DLL.
 * Usage: lifecycle DLL MODE
 *   rounds    ten times: load, ZELK_Init, a call, ZELK_Shutdown, unload
 *   unload    load, ZELK_Init, unload with everything running
 *   exit      load, ZELK_Init, a call, end of the process in the middle of it
 *   log       the log is deleted, then moved away, while the library has it open; the library makes it anew
 * Ends with 0 when all was as it should be; says what was not.
 */
#include <stdio.h>
#include <string.h>
#include <windows.h>

#include "zelk/ZelkApi.h"

static HANDLE connected;
static HANDLE disconnected;
static HANDLE ready;

static struct {
  HMODULE module;
  bool(ZELK_CALL* init)(void);
  void(ZELK_CALL* shutdown)(void);
  int32_t(ZELK_CALL* channelCount)(void);
  bool(ZELK_CALL* openChannel)(int32_t);
  bool(ZELK_CALL* dial)(int32_t, const char*, const char*);
  bool(ZELK_CALL* hangup)(int32_t);
  void(ZELK_CALL* setEventCallback)(ZelkEventCallback);
} zelk;

static char logPath[MAX_PATH];

static void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t param) {
  (void)param;
  if (channel != 0) {
    return;
  }
  if (event == ZELK_EVENT_CONNECTED) {
    SetEvent(connected);
  } else if (event == ZELK_EVENT_DISCONNECTED) {
    SetEvent(disconnected);
  } else if (event == ZELK_EVENT_CHANNEL_STATE) {
    SetEvent(ready);
  }
}

static bool Fail(const char* what) {
  printf("lifecycle: %s (error %lu)\n", what, GetLastError());
  fflush(stdout);
  return false;
}

static bool Load(const char* path) {
  memset(&zelk, 0, sizeof zelk);
  ResetEvent(connected);
  ResetEvent(disconnected);
  ResetEvent(ready);
  zelk.module = LoadLibraryA(path);
  if (zelk.module == NULL) {
    return Fail("LoadLibrary failed");
  }
#define FIND(field, name)                                    \
  {                                                          \
    const FARPROC found = GetProcAddress(zelk.module, name); \
    if (found == NULL) {                                     \
      return Fail("the DLL does not export " name);          \
    }                                                        \
    memcpy(&zelk.field, &found, sizeof found);               \
  }
  FIND(init, "ZELK_Init")
  FIND(shutdown, "ZELK_Shutdown")
  FIND(channelCount, "ZELK_GetChannelCount")
  FIND(openChannel, "ZELK_OpenChannel")
  FIND(dial, "ZELK_Dial")
  FIND(hangup, "ZELK_Hangup")
  FIND(setEventCallback, "ZELK_SetEventCallback")
#undef FIND
  return true;
}

static bool Start(const char* path) {
  if (!Load(path)) {
    return false;
  }
  zelk.setEventCallback(OnEvent);
  if (!zelk.init() || zelk.channelCount() < 30) {
    return Fail("no card was found");
  }
  if (WaitForSingleObject(ready, 15000) != WAIT_OBJECT_0) {
    return Fail("the trunk did not come up");
  }
  return true;
}

static bool Connect(void) {
  if (!zelk.openChannel(0) || !zelk.dial(0, "5551234", "8001000")) {
    return Fail("the call could not be placed");
  }
  return WaitForSingleObject(connected, 15000) == WAIT_OBJECT_0 || Fail("the call was not connected");
}

static bool Unload(const char* path) {
  const char* name = strrchr(path, '\\') == NULL ? path : strrchr(path, '\\') + 1;
  if (!FreeLibrary(zelk.module)) {
    return Fail("FreeLibrary failed");
  }
  return GetModuleHandleA(name) == NULL || Fail("the DLL is still loaded");
}

static int CountInLog(const char* text) {
  static char content[1 << 20];
  FILE* file = fopen(logPath, "rb");
  const size_t length = file == NULL ? 0 : fread(content, 1, sizeof content - 1, file);
  int count = 0;
  const char* at = content;
  content[length] = '\0';
  if (file != NULL) {
    fclose(file);
  }
  while ((at = strstr(at, text)) != NULL) {
    ++count;
    ++at;
  }
  return count;
}

static bool Rounds(const char* path) {
  for (int round = 1; round <= 10; ++round) {
    if (!Start(path) || !Connect() || !zelk.hangup(0)) {
      return false;
    }
    if (WaitForSingleObject(disconnected, 15000) != WAIT_OBJECT_0) {
      return Fail("the call was not cleared");
    }
    zelk.shutdown();
    if (!Unload(path)) {
      return false;
    }
    if (CountInLog("Trunk 0 - DCHANNEL UP") != round) {
      return Fail("a round's lines are missing in the log");
    }
    printf("round %d\n", round);
    fflush(stdout);
  }
  return true;
}

static bool Exists(const char* path) {
  return GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

/*
 * Places calls, whose lines the library has to write, until the log is there (again). While a file is open lines still
 * go there, deleted or moved; half a second after its opening the library closes it with the next lines.
 */
static bool LogComesWithCalls(void) {
  const DWORD begun = GetTickCount();
  while (!Exists(logPath) && GetTickCount() - begun < 10000) {
    ResetEvent(connected);
    ResetEvent(disconnected);
    if (!Connect() || !zelk.hangup(0) || WaitForSingleObject(disconnected, 15000) != WAIT_OBJECT_0) {
      return Fail("a call failed");
    }
  }
  return Exists(logPath);
}

static bool LogSharing(const char* path) {
  char moved[MAX_PATH + 8];
  snprintf(moved, sizeof moved, "%s.moved", logPath);
  if (!Start(path) || !LogComesWithCalls()) {
    return Fail("no log was written");
  }
  if (!DeleteFileA(logPath)) {
    return Fail("the log could not be deleted while the library runs");
  }
  if (!LogComesWithCalls()) {
    return Fail("the log was not made anew after it was deleted");
  }
  if (!MoveFileExA(logPath, moved, MOVEFILE_REPLACE_EXISTING)) {
    return Fail("the log could not be moved while the library runs");
  }
  if (!LogComesWithCalls()) {
    return Fail("the log was not made anew after it was moved");
  }
  zelk.shutdown();
  return Unload(path);
}

int main(int count, char** arguments) {
  bool good = false;
  if (count != 3 || strlen(arguments[1]) >= MAX_PATH) {
    return 2;
  }
  connected = CreateEventA(NULL, TRUE, FALSE, NULL);
  disconnected = CreateEventA(NULL, TRUE, FALSE, NULL);
  ready = CreateEventA(NULL, TRUE, FALSE, NULL);
  snprintf(logPath, sizeof logPath, "%.*s.log", (int)(strlen(arguments[1]) - 6), arguments[1]);
  DeleteFileA(logPath);
  if (strcmp(arguments[2], "rounds") == 0) {
    good = Rounds(arguments[1]);
  } else if (strcmp(arguments[2], "unload") == 0) {
    good = Start(arguments[1]) && Connect() && Unload(arguments[1]) &&
           (CountInLog("Trunk 0 - DCHANNEL UP") == 1 || Fail("the log lacks what was pending"));
  } else if (strcmp(arguments[2], "exit") == 0) {
    good = Start(arguments[1]) && Connect();
  } else if (strcmp(arguments[2], "log") == 0) {
    good = LogSharing(arguments[1]);
  }
  printf("lifecycle %s: %s\n", arguments[2], good ? "good" : "BAD");
  fflush(stdout);
  return good ? 0 : 1;
}
