// What is known of one print job. A member is told only where a line of the log proves it; the line is kept beside it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/lmctl/log/log_line.h"

namespace lmctl {

enum class Outcome : std::uint8_t { Unknown, Confirmed, Printed, Cancelled, Refused, Failed, Unfinished };
enum class Path : std::uint8_t { Unknown, Device, PortMonitor };
enum class Tri : std::uint8_t { No, Yes, Unknown };

inline constexpr std::int64_t kUnknown = -1;

// Where a line stands.
struct Place {
  std::uint32_t nFile = 0;  // index into the reader's file names
  std::uint64_t nLine = 0;  // 1 = the first; 0: nowhere
};

// What a story claims and has to prove.
enum class Claim : std::uint8_t { Port, Ended, Path, Bytes, Writes, Outcome, Error, Reprints, Response, MaybeTwice };
inline constexpr std::size_t kClaims = 10;
const char* ClaimName(Claim claim);  // as the JSON has it

// Why a job may stand on paper more than once.
inline constexpr std::uint8_t kTwiceSentAgain = 1;  // by the monitor, whole or in part
inline constexpr std::uint8_t kTwiceRestarted = 2;  // by the spooler: it begins again under the same number
inline constexpr std::uint8_t kTwiceSameSize =
    4;  // another job of its size stands beside it on the queue: perhaps the same receipt

// A stretch of a job's time line.
struct Phase {
  enum class Kind : std::uint8_t { Wait, Reprint, Cancel } kind;
  LocalMs llFrom;
  LocalMs llTo;
};

// One sentence of a job's story and the line that it rests on.
struct Event {
  LocalMs llTime;
  Place place;
  std::string strText;
};

// What a story says in numbers.
struct StoryFacts {
  std::int64_t nJob = 0;
  std::uint32_t nProcess = 0;
  std::uint32_t nLife = 0;  // of the process: another one of the same number has another life
  LocalMs llStarted = 0;
  LocalMs llEnded = 0;  // 0: unfinished, or not logged
  LocalMs llLast = 0;   // the last line that is about it
  bool bOver = false;   // its end is proved, if perhaps not its time
  Path path = Path::Unknown;
  std::int64_t nBytes = kUnknown;  // that the port or the printer took
  std::int64_t nWrites = kUnknown;
  Outcome outcome = Outcome::Unknown;
  std::int64_t nError = kUnknown;  // a Win32 code; unknown also where there is none
  bool bErrorNotLogged = false;
  std::int64_t nReprints = kUnknown;
  bool bResponseNotLogged = false;
  Tri maybeTwice = Tri::Unknown;
  std::uint8_t byTwice = 0;  // the reasons
  bool bInPart = false;      // only a part of it may stand on paper
  bool bRestarted = false;   // what the spooler did to it was a restart
  bool bLinesLost = false;   // lines of its time are missing from the log
  Place first;
  Place last;
  std::array<Place, kClaims> proofs{};

  const Place& Proof(Claim claim) const { return proofs[static_cast<std::size_t>(claim)]; }
};

struct Story : StoryFacts {
  std::string strQueue;
  std::string strPort;  // empty: not logged
  std::string strReason;
  std::string strResponse;  // empty: none, or not logged
  std::vector<Phase> phases;
  std::vector<Event> events;  // only where they are asked for

  bool IsTold(Claim claim) const;
  // Names of the members that the log cannot tell.
  std::vector<std::string> NotLogged() const;
};

const char* OutcomeName(Outcome outcome);  // as the JSON has it

}  // namespace lmctl
