// The commands of lmhost and their options.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lmhost {

inline constexpr int kExitDelivered = 0;
inline constexpr int kExitNotDelivered = 1;
inline constexpr int kExitUsage = 2;

struct Options {
  std::vector<std::string> files;
  std::string strPort = "USB001";
  std::string strDriver = "Kelvane HM-520";
  std::string strDatatype = "RAW";
  std::string strShare;
  std::string strLogLevel = "EWI";  // letters
  std::string strRoot;
  std::string strService = "running";
  bool bNoLibrary = false;
  bool bOpenWithStartDoc = false;
  bool bAutoReprint = false;
  std::vector<std::string> faults;
  std::uint64_t ullCancelAt = 0;
  std::string strArchive;
  int nKeepDays = -1;
  std::vector<int> archiveFlags;
  std::uint32_t nSpeed = 0;
};

int PrintFiles(const Options& options);
int ShowModels();

}  // namespace lmhost
