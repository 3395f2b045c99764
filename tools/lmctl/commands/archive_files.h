// The files of an archive: a folder a day, in it a file a job, named by the time at which the job was admitted.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/lmctl/story/story.h"

namespace lmctl {

struct ArchivedJob {
  std::filesystem::path path;
  LocalMs llTime;
  std::uint64_t ullBytes;
};

struct ArchiveListing {
  std::vector<ArchivedJob> jobs;              // oldest first
  std::vector<std::filesystem::path> others;  // what lies there and is no archived job
};

// Throws std::runtime_error where the root cannot be read.
ArchiveListing ListArchive(const std::filesystem::path& root);

// When the job of a file was admitted; none for a name that no archived job has.
std::optional<LocalMs> TimeOfArchivedJob(const std::filesystem::path& file);

// The file of a story's job: of its start, and of its size where that is told; none without one.
std::optional<ArchivedJob> FindArchived(const std::filesystem::path& root, const Story& story);

}  // namespace lmctl
