// lmhost: a spooler in a box. Builds the simulated world, loads the monitor and takes files through it.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#ifndef _WIN32
#include <unistd.h>

#include "posix/control.h"
#endif

#include "log/level.h"
#include "sim/printer.h"
#include "tools/lmhost/commands.h"

namespace {

void AddWorldOptions(CLI::App& command, lmhost::Options& options) {
  command.add_option("--port", options.strPort, "port: USB001, COM3, IP_10.0.0.5, FILE:, ...")->capture_default_str();
  command.add_option("--driver", options.strDriver, "driver of the queue (see lmhost models)")->capture_default_str();
  command.add_option("--share", options.strShare, "share name of the queue");
  command.add_option("--log-level", options.strLogLevel, "levels to log, letters of " LOG_LEVEL_LETTERS)
      ->capture_default_str();
  command.add_option("--root", options.strRoot,
                     "folder for the world's drives, its log and its output; lmhost-world when not given");
  command.add_option("--service", options.strService, "the device-access service: running, stopped, absent")
      ->check(CLI::IsMember({"running", "stopped", "absent"}))
      ->capture_default_str();
  command.add_flag("--no-library", options.bNoLibrary, "the device-access library is missing");
}

#ifndef _WIN32
// The sandbox is chosen before anything runs: a root of one's own needs a fresh start of the program.
void RestartWithRoot(const std::string& strRoot, char** argv) {
  if (std::getenv("LMHOST_STARTED") != nullptr) return;
  setenv("LMHOST_STARTED", "1", 1);
  w32::DropSandbox();
  const auto root = std::filesystem::absolute(strRoot.empty() ? "lmhost-world" : strRoot);
  setenv("W32_ROOT", root.c_str(), 1);
  execv("/proc/self/exe", argv);
}
#endif

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Takes print jobs through the Kelvane language monitor in a simulated spooler.", "lmhost");
  app.require_subcommand(1);
  lmhost::Options options;

  CLI::App* pPrint = app.add_subcommand("print", "print files");
  pPrint->add_option("FILE", options.files, "files to print, each as one job")->required();
  AddWorldOptions(*pPrint, options);
  pPrint->add_option("--datatype", options.strDatatype, "datatype of the jobs; RAW is sent untouched")
      ->capture_default_str();
  pPrint->add_flag("--open-with-start-doc", options.bOpenWithStartDoc, "open the device with each job");
  pPrint->add_flag("--auto-reprint", options.bAutoReprint, "print a job again when the printer lost it");
  pPrint->add_option("--fault", options.faults,
                     "KIND@BYTE[:SECONDS], a fault of the printer at a byte: " + sim::FaultKindNames());
  pPrint->add_option("--cancel-at", options.ullCancelAt, "delete each job when this many bytes were taken");
  pPrint->add_option("--speed", options.nSpeed, "speed of the printer in bytes a second (0: at once)");
  pPrint->add_option("--archive", options.strArchive, "archive root, a Windows path");
  pPrint->add_option("--keep", options.nKeepDays, "days that the archive keeps");
  pPrint->add_option("--archive-flags", options.archiveFlags, "the six bytes of the archive value of some models")
      ->expected(6);

  app.add_subcommand("models", "print the model table");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : lmhost::kExitUsage;
  }
  DWORD dwMask = 0;
  if (!LogMaskOf(options.strLogLevel, dwMask)) {
    std::fprintf(stderr, "lmhost: levels are letters of " LOG_LEVEL_LETTERS "\n");
    return lmhost::kExitUsage;
  }
#ifndef _WIN32
  RestartWithRoot(options.strRoot, argv);
#endif
  if (pPrint->parsed()) return lmhost::PrintFiles(options);
  return lmhost::ShowModels();
}
