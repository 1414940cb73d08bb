/* SPDX-License-Identifier: GPL-2.0-only */
/* Stands for dumpcap: "captures" from an adapter the file of its name, and notes how it was started. */
#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <string.h>
#include <windows.h>
/* The other needs it first. */
#include <tlhelp32.h>

static const char* ValueOf(int argc, char** argv, const char* option) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (strcmp(argv[i], option) == 0) {
      return argv[i + 1];
    }
  }
  return "";
}

/* The process that started this one. Of its own priority, which Windows takes from that one, Wine does not know. */
static DWORD Parent(void) {
  DWORD parent = 0;
  PROCESSENTRY32 entry = {.dwSize = sizeof entry};
  const HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  for (BOOL goesOn = Process32First(all, &entry); goesOn; goesOn = Process32Next(all, &entry)) {
    parent = entry.th32ProcessID == GetCurrentProcessId() ? entry.th32ParentProcessID : parent;
  }
  CloseHandle(all);
  return parent;
}

static void NotePriority(void) {
  const HANDLE parent = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, Parent());
  FILE* note = fopen("priority.txt", "wb");
  if (note != NULL) {
    fputs(GetPriorityClass(parent) == IDLE_PRIORITY_CLASS ? "idle" : "another", note);
    fclose(note);
  }
  CloseHandle(parent);
}

int main(int argc, char** argv) {
  char name[256];
  snprintf(name, sizeof name, "%s.pcapng", ValueOf(argc, argv, "-i"));
  FILE* file = fopen(name, "rb");
  if (file == NULL || strcmp(ValueOf(argc, argv, "-w"), "-") != 0) {
    fputs("There is no such adapter.\r\n", stderr);
    return 1;
  }
  NotePriority();
  _setmode(_fileno(stdout), _O_BINARY);
  char part[4096];
  for (size_t got; (got = fread(part, 1, sizeof part, file)) > 0;) {
    fwrite(part, 1, got, stdout);
  }
  fclose(file);
  return 0;
}
