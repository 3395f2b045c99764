#include "tools/lmctl/commands/archive_files.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "tools/lmctl/log/paths.h"

namespace lmctl {
namespace {

namespace fs = std::filesystem;

// A job is admitted within this time of its start's line: the device's lock is waited for in between.
constexpr LocalMs kAdmittedMs = 10'000;

void ListDay(const fs::path& day, ArchiveListing& listing) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(day, error)) {
    const auto llTime = TimeOfArchivedJob(entry.path());
    if (llTime && entry.is_regular_file(error) && !entry.is_symlink(error)) {
      listing.jobs.push_back({entry.path(), *llTime, entry.file_size(error)});
    } else {
      listing.others.push_back(entry.path());
    }
  }
}

}  // namespace

std::optional<LocalMs> TimeOfArchivedJob(const fs::path& file) {
  const std::string strDay = TextOfPath(file.parent_path().filename());
  const std::string strName = TextOfPath(file.filename());
  int nHour = 0, nMinute = 0, nSecond = 0, nMs = 0, nEnd = 0;
  constexpr std::size_t kName = 16;  // hhmm_ss(mmm).prn
  if (!IsDayName(strDay) || strName.size() != kName ||
      std::sscanf(strName.c_str(), "%2d%2d_%2d(%3d).prn%n", &nHour, &nMinute, &nSecond, &nMs, &nEnd) != 4 ||
      nEnd != static_cast<int>(kName) || nHour > 23 || nMinute > 59 || nSecond > 59)
    return std::nullopt;
  return MakeTime(std::stoi(strDay.substr(0, 4)), std::stoi(strDay.substr(4, 2)), std::stoi(strDay.substr(6, 2)), nHour,
                  nMinute, nSecond, nMs);
}

ArchiveListing ListArchive(const fs::path& root) {
  std::error_code error;
  if (!fs::is_directory(root, error))
    throw std::runtime_error("there is no folder " + TextOfPath(root) + ": name the archive's root");
  ArchiveListing listing;
  for (const auto& entry : fs::directory_iterator(root, error)) {
    if (entry.is_directory(error) && !entry.is_symlink(error) && IsDayName(TextOfPath(entry.path().filename()))) {
      ListDay(entry.path(), listing);
    } else {
      listing.others.push_back(entry.path());
    }
  }
  std::sort(listing.jobs.begin(), listing.jobs.end(),
            [](const ArchivedJob& l, const ArchivedJob& r) { return l.llTime < r.llTime; });
  std::sort(listing.others.begin(), listing.others.end());
  return listing;
}

std::optional<ArchivedJob> FindArchived(const fs::path& root, const Story& story) {
  const LocalParts at = Split(story.llStarted);
  char szDay[40];
  std::snprintf(szDay, sizeof szDay, "%04d%02d%02d", at.nYear, at.nMonth, at.nDay);
  ArchiveListing listing;
  ListDay(root / szDay, listing);
  std::optional<ArchivedJob> best;
  for (const ArchivedJob& job : listing.jobs) {
    if (job.llTime < story.llStarted || job.llTime > story.llStarted + kAdmittedMs) continue;
    if (story.nBytes != kUnknown && job.ullBytes != static_cast<std::uint64_t>(story.nBytes)) continue;
    if (!best || job.llTime < best->llTime) best = job;
  }
  return best;
}

}  // namespace lmctl
