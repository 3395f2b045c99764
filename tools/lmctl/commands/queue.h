// The machine's print queues. On other systems than Windows each of these throws std::runtime_error that says so.
#pragma once

#include <cstddef>
#include <string>

namespace lmctl {

// "JobFilePath" of a queue; empty when it has none.
std::string ArchiveRootOfQueue(const std::string& strQueue);

// Prints bytes as a RAW job, with a progress bar. Returns the job's number.
unsigned PrintRaw(const std::string& strQueue, const std::string& strDocument, const std::string& strBytes);

}  // namespace lmctl
