// SPDX-License-Identifier: GPL-2.0-only
#include "common/child_process.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <array>
#include <atomic>
#include <csignal>
#include <stdexcept>
#include <utility>

namespace tool {

namespace {

// Of a handle 32 bits count, in programs of either size.
HANDLE HandleOf(int process) {
  return reinterpret_cast<HANDLE>(static_cast<INT_PTR>(process));
}

std::FILE* StreamOf(HANDLE handle, const char* mode) {
  const int descriptor = _open_osfhandle(reinterpret_cast<INT_PTR>(handle), _O_BINARY);
  return descriptor < 0 ? nullptr : _fdopen(descriptor, mode);
}

// As a program's start-up code takes it apart again.
std::string Quoted(const std::string& argument) {
  std::string text = "\"";
  std::size_t slashes = 0;
  for (const char letter : argument) {
    text += letter == '"' ? std::string(slashes + 1, '\\') : "";
    text += letter;
    slashes = letter == '\\' ? slashes + 1 : 0;
  }
  return text + std::string(slashes, '\\') + "\"";
}

// A file that goes with its last handle; the child may write to it.
HANDLE TemporaryFile() {
  std::array<char, MAX_PATH + 1> folder{};
  std::array<char, MAX_PATH + 1> name{};
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  if (GetTempPathA(static_cast<DWORD>(folder.size()), folder.data()) == 0 ||
      GetTempFileNameA(folder.data(), "zlk", 0, name.data()) == 0) {
    return INVALID_HANDLE_VALUE;
  }
  return CreateFileA(name.data(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                     &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
}

bool Spawn(const std::vector<std::string>& command, HANDLE output, HANDLE errors, int& process) {
  std::string line;
  for (const std::string& each : command) {
    line += (line.empty() ? "" : " ") + Quoted(each);
  }
  STARTUPINFOA start{};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdOutput = output;
  start.hStdError = errors;
  PROCESS_INFORMATION started{};
  // Ctrl-C reaches this program alone, which ends the child in its turn.
  if (CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_NEW_PROCESS_GROUP, nullptr, nullptr, &start,
                     &started) == 0) {
    return false;
  }
  CloseHandle(started.hThread);
  process = static_cast<int>(reinterpret_cast<INT_PTR>(started.hProcess));
  return true;
}

std::atomic<void (*)(int)> endHandler{nullptr};

BOOL WINAPI OnConsole(DWORD) {
  if (void (*const handler)(int) = endHandler) {
    handler(SIGINT);
  }
  return TRUE;
}

}  // namespace

CChildProcess::CChildProcess(const std::vector<std::string>& command) {
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  const HANDLE said = TemporaryFile();
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  const bool hasPipe = said != INVALID_HANDLE_VALUE && CreatePipe(&readEnd, &writeEnd, &inherited, 1 << 16) != 0;
  const bool isStarted =
      hasPipe && SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0) != 0 && Spawn(command, writeEnd, said, process);
  const DWORD fault = GetLastError();
  if (hasPipe) {
    CloseHandle(writeEnd);
  }
  if (!isStarted) {
    if (hasPipe) {
      CloseHandle(readEnd);
    }
    if (said != INVALID_HANDLE_VALUE) {
      CloseHandle(said);
    }
    throw std::runtime_error(command.front() + ": cannot be started (error " + std::to_string(fault) + ")");
  }
  output = StreamOf(readEnd, "rb");
  errors = StreamOf(said, "rb");
}

CChildProcess::~CChildProcess() {
  Stop();
  if (output != nullptr) {
    std::fclose(output);
  }
  Wait();
  std::fclose(errors);
}

std::FILE* CChildProcess::TakeOutput() {
  return std::exchange(output, nullptr);
}

// There is no gentler way that a program without a window and with a console of its own would hear of.
void CChildProcess::Stop() {
  if (process != -1) {
    TerminateProcess(HandleOf(process), 1);
  }
}

std::string CChildProcess::Wait() {
  if (process != -1) {
    WaitForSingleObject(HandleOf(process), INFINITE);
    CloseHandle(HandleOf(std::exchange(process, -1)));
  }
  std::string text;
  std::array<char, 512> part{};
  std::rewind(errors);
  for (std::size_t got = 0; (got = std::fread(part.data(), 1, part.size(), errors)) > 0;) {
    text.append(part.data(), got);
  }
  return text;
}

std::FILE* OpenPipeTo(const std::string& command) {
  return _popen(command.c_str(), "wb");
}

int ClosePipe(std::FILE* pipe) {
  return _pclose(pipe);
}

bool ProcessLives(std::uint32_t number) {
  const HANDLE process = number == 0 ? nullptr : OpenProcess(SYNCHRONIZE, FALSE, number);
  if (process == nullptr) {
    return number != 0 && GetLastError() == ERROR_ACCESS_DENIED;
  }
  const bool lives = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
  CloseHandle(process);
  return lives;
}

// Children of a program of this class begin in it too.
void GiveWay() {
  SetPriorityClass(GetCurrentProcess(), IDLE_PRIORITY_CLASS);
}

void OnEndRequest(void (*handler)(int)) {
  endHandler = handler;
  SetConsoleCtrlHandler(OnConsole, TRUE);
}

}  // namespace tool
