// SPDX-License-Identifier: GPL-2.0-only

// The name under which the loader knows the library, and the names of the files beside it. An input is what the loader
// says:
//
//   length of the library's name, of the current directory (1 byte each), the name, the directory, the program's path

#include "fuzz/target.h"
#include "platform/module_name.h"
#include "runtime/paths.h"

namespace zelk::fuzz {
namespace {

std::string TextOf(const Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

void CheckFiles(const std::string& module, char separator) {
  const SLibraryPaths paths = DerivePaths(module, separator);
  const bool isNamed = module.find(separator) != std::string::npos;
  Require(module.compare(0, paths.directory.size(), paths.directory) == 0, "the folder is a part of the path");
  Require(!isNamed || paths.directory.back() == separator, "a folder's separator stays");
  Require(isNamed || paths.directory == module, "a path without a folder stays as it is");
  Require(paths.log.size() == paths.ini.size(), "the log and the settings have one name");
  const std::string stem = paths.log.substr(0, paths.log.size() - 4);
  Require(paths.log == stem + ".log" && paths.ini == stem + ".ini", "and endings of their own");
  Require(stem == module.substr(0, module.size() > 6 ? module.size() - 6 : module.size()), "six characters are cut");
}

void Run(const uint8_t* bytes, size_t length) {
  CInput input(bytes, length);
  const size_t nameLength = input.Byte();
  const size_t directoryLength = input.Byte();
  const std::string name = TextOf(input.Take(nameLength));
  const std::string directory = TextOf(input.Take(directoryLength));
  const std::string program = TextOf(input.Rest());
  const std::string module = ModulePathOf(name, directory, program);
  Require(module.size() <= kMaxModulePath, "a path has 259 characters at most");
  const bool isPath = name.find('/') != std::string::npos;
  Require(isPath || module == program.substr(0, kMaxModulePath), "a name without a folder is the program's");
  Require(!isPath || module.find('/') != std::string::npos || directory.size() >= kMaxModulePath,
          "a path has a folder");
  CheckFiles(module, '/');
  CheckFiles(module, '\\');
}

Bytes Names(const std::string& name, const std::string& directory, const std::string& program) {
  const Bytes lengths = {static_cast<uint8_t>(name.size()), static_cast<uint8_t>(directory.size())};
  return Join({lengths, Text(name), Text(directory), Text(program)});
}

std::vector<Bytes> Seeds() {
  return {Names("/opt/app/libZelkApi-64.so", "/home", "/usr/bin/app"),
          Names("./libZelkApi-64.so", "/opt/app", ""),
          Names("app/libZelkApi-64.so", "/", "/usr/bin/app"),
          Names("app", "/opt", "/opt/app"),
          Names("../lib/x.so", "", ""),
          Names("", "", "C:\\App\\ZelkApi64.dll"),
          Names(std::string(200, 'a') + "/b.so", std::string(80, 'c'), "")};
}

const SRegistered kRegistered({"library_names", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz
