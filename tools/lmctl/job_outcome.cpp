// What became of a job: what its lines prove, taken together, and what they do not tell.
#include <cstdio>

#include "tools/lmctl/job_record.h"

namespace lmctl {

const char* OutcomeName(Outcome outcome) {
  switch (outcome) {
    case Outcome::Confirmed: return "confirmed";
    case Outcome::Printed: return "printed";
    case Outcome::Cancelled: return "cancelled";
    case Outcome::Refused: return "refused";
    case Outcome::Failed: return "failed";
    case Outcome::Unfinished: return "unfinished";
    case Outcome::Unknown: break;
  }
  return "";
}

std::vector<std::string> Story::NotLogged() const {
  std::vector<std::string> names;
  const auto add = [&](bool bMissing, const char* pszName) {
    if (bMissing) names.emplace_back(pszName);
  };
  add(strPort.empty(), "port");
  add(bOver && llEnded == 0, "ended");
  add(path == Path::Unknown, "path");
  add(nBytes == kUnknown, "bytes");
  add(nWrites == kUnknown, "writes");
  add(outcome == Outcome::Unknown, "outcome");
  add(bErrorNotLogged, "error");
  add(nReprints == kUnknown, "reprints");
  add(bResponseNotLogged, "response");
  add(maybeTwice == Tri::Unknown, "maybeTwice");
  return names;
}

// What the lines prove, taken together.
void StoryMachine::Conclude(Job& job) const {
  Story& story = job.story;
  const bool bTraced = job.Has('T');
  const bool bLost = story.bLinesLost;
  story.nBytes = job.bBytesUnknown || bLost ? kUnknown : job.nBytes;
  if (story.nWrites == kUnknown && job.Has('I') && !bLost) story.nWrites = 0;
  if (bLost || !job.Has('I')) story.nWrites = kUnknown;
  if (!job.Has('I')) story.nBytes = kUnknown;

  // Resends: their own lines, or that nothing led to one.
  const bool bNothingLost =
      job.exec != Job::Exec::Failed && !job.bAskedAgain && !job.bReset && !job.bResend && job.nDone == 0;
  if (story.path == Path::PortMonitor || job.bRefused) {
    story.nReprints = 0;
    story.maybeTwice = Tri::No;
  } else if (!bLost && bNothingLost && (bTraced || (story.bOver && job.Has('I') && !job.bBytesUnknown))) {
    story.nReprints = 0;
    story.maybeTwice = Tri::No;
  } else if (job.bResend || job.nDone > 0) {
    story.maybeTwice = Tri::Yes;
    if (!bLost && (job.nDone > 0 || job.Has('D'))) story.nReprints = job.nDone;
  } else if (bTraced && !bLost) {
    story.nReprints = job.nDone;
    story.maybeTwice = Tri::No;
  }

  const bool bCancelled = job.bCancelSeen || (bTraced ? job.bCancelNow : job.bCancelEver);
  story.bInPart = bCancelled && (job.nBytes > 0 || job.bBytesUnknown);
  if (job.bRefused) {
    story.outcome = Outcome::Refused;
    story.nBytes = 0;
    story.nWrites = 0;
  } else if (bCancelled) {
    story.outcome = story.bOver || !bTraced ? Outcome::Cancelled : Outcome::Unfinished;
    const LocalParts at = Split(job.llCancelled);
    char szTime[16];
    std::snprintf(szTime, sizeof szTime, "%02d:%02d:%02d", at.nHour % 100, at.nMinute % 100, at.nSecond % 100);
    story.strReason = std::string("deleted or restarted in the spooler, seen at ") + szTime;
  } else if (!story.bOver && !bLost) {
    const bool bEndWouldShow = bTraced || (story.path == Path::PortMonitor && job.Has('I'));
    if (bEndWouldShow) {
      story.outcome = Outcome::Unfinished;
      story.strReason = "the log ends, or the process did";
    } else {
      story.strReason = "level T is off: the end of a job is not logged";
    }
  } else if (bLost) {
    story.strReason = "lines of its time were lost";
  } else if (job.bCannotReprint) {
    story.outcome = Outcome::Failed;
    story.strReason = "the printer lost it and it could not be sent again";
    story.bInPart = true;
  } else if (job.bLastWriteFailed) {
    story.outcome = Outcome::Failed;
    story.nError = job.nLastCode;
    story.bErrorNotLogged = job.nLastCode == kUnknown;
    story.strReason = "the last write failed";
    story.bInPart = job.nBytes > 0;
  } else if (job.nLastMissing > 0) {
    story.outcome = Outcome::Failed;
    story.strReason = "of the last write " + std::to_string(job.nLastMissing) + " bytes were not taken";
    story.bInPart = true;
  } else if (job.nDropped > 0) {
    story.outcome = Outcome::Failed;
    story.strReason = std::to_string(job.nDropped) + " bytes were dropped while the spooler called the job deleted";
    story.bInPart = true;
  } else if (job.exec == Job::Exec::Asked && !job.bGaveUp) {
    // The last request of the job's end was answered, or it would not have been the last; a virtual COM port gives up.
    const bool bMayHaveGivenUp = !bTraced && story.strPort.starts_with("COM");
    if (!bMayHaveGivenUp && (bTraced || !job.bBytesUnknown)) {
      story.outcome = Outcome::Confirmed;
      story.strReason = "the printer answered with its execution response";
      if (job.bOneByte) {
        story.strResponse = "C9";
      } else {
        story.bResponseNotLogged = true;
      }
    } else {
      story.strReason = "level T is off: whether the printer confirmed it is not logged";
      story.bResponseNotLogged = true;
    }
  } else if (job.exec == Job::Exec::Failed && !job.bGaveUp) {
    if (bTraced) {
      story.outcome = Outcome::Failed;
      story.strReason = "the printer did not confirm it";
    } else {
      story.bResponseNotLogged = true;
      story.strReason = "whether it was confirmed in the end is not logged";
    }
  } else if (bTraced || story.path == Path::PortMonitor || job.bGaveUp ||
             (story.path == Path::Device && !job.bBytesUnknown && job.Has('I'))) {
    story.outcome = Outcome::Printed;
    story.strReason = job.bGaveUp ? "sent; the printer did not confirm it and it is not sent again"
                                  : "sent; nobody asked the printer for a confirmation";
  } else {
    story.bResponseNotLogged = true;
    story.strReason = "the levels that are on do not tell";
  }
  if (story.nReprints > 0) {
    story.strReason +=
        ", sent again " + (story.nReprints == 1 ? std::string("once") : std::to_string(story.nReprints) + " times");
    if (!job.strLoss.empty()) story.strReason += ": " + job.strLoss;
  }
}

}  // namespace lmctl
