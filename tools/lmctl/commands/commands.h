// The commands of lmctl and their options. Each returns the exit status; a command that cannot do what it was asked throws
// std::runtime_error with one line that says what and what to do.
#pragma once

#include <string>
#include <vector>

namespace lmctl {

inline constexpr int kExitWell = 0;
inline constexpr int kExitWrong = 1;
inline constexpr int kExitUsage = 2;

struct Options {
  std::vector<std::string> logs;
  std::string strEncoding;  // of the log; empty: this machine's
  std::string strQueue;
  std::string strPort;
  long long nJob = 0;
  std::string strSince;
  std::string strUntil;
  std::string strAt;
  unsigned nLast = 0;
  bool bFailed = false;
  bool bTwice = false;
  bool bJson = false;
  bool bFollow = false;
  std::string strHtml;
  std::string strLevels;  // empty: all, and whatever else is in the log
  // metrics
  std::string strOutput;
  std::string strState;
  // archive
  std::string strRoot;
  std::string strFile;
  std::string strRaw;
  bool bYes = false;
  // doctor
  bool bBeforeUninstall = false;
  // settings
  std::vector<std::string> settings;  // the queue's name, NAME=VALUE …
};

int Jobs(const Options& options);
int ExplainJob(const Options& options);
int ShowMetrics(const Options& options);
int ShowLog(const Options& options);
int ArchiveList(const Options& options);
int ArchiveShow(const Options& options);
int ArchivePrint(const Options& options);
int Doctor(const Options& options);
int Settings(const Options& options);

}  // namespace lmctl
