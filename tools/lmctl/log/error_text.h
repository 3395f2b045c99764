// Windows' own words for the codes that the log shows.
#pragma once

#include <cstdint>
#include <string>

namespace lmctl {

// "error 170: The requested resource is in use."; the bare number for a code that has no text here.
std::string ErrorText(std::int64_t nCode);
// The text alone, UTF-8; empty when there is none.
std::string ErrorMessage(std::int64_t nCode);
// The same from the list here alone, ASCII: for texts that are converted with those of the log.
std::string KnownErrorText(std::int64_t nCode);

}  // namespace lmctl
