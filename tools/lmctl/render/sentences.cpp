// A job's story in plain sentences, and a verdict.
#include "tools/lmctl/render/render.h"

namespace lmctl {
namespace {

std::string OnPaper(const Story& story) {
  const bool bIsOut = story.outcome == Outcome::Confirmed || story.outcome == Outcome::Printed;
  if (bIsOut && story.nBytes == 0) return "It had no data: nothing of it is on paper.";
  switch (story.outcome) {
    case Outcome::Confirmed:
      if ((story.byTwice & kTwiceSentAgain) != 0)
        return "The printer confirmed the whole receipt after it was sent again. What it had printed before the "
               "loss may lie in front of it: a part of the receipt, or all of it.";
      if (story.byTwice != 0) return "The printer confirmed that it has printed the whole receipt.";
      return story.maybeTwice == Tri::No
                 ? "The printer confirmed that it has printed the whole receipt. The monitor sent it to it once."
                 : "The printer confirmed that it has printed the whole receipt. Whether the monitor sent it more than "
                   "once is not logged.";
    case Outcome::Printed:
      if (story.path == Path::PortMonitor)
        return "Everything that the spooler gave went out to the port; had the job been deleted meanwhile, the spooler "
               "would "
               "have given less, and the log would not show it. Nobody asked the printer, so the log cannot tell "
               "whether the "
               "paper shows it.";
      return "All of the job went out. Nobody asked the printer, so the log cannot tell whether the paper shows it.";
    case Outcome::Cancelled:
      return story.nBytes == 0 && !story.bInPart ? "Nothing of it went to the printer."
             : story.nBytes > 0 ? "It was deleted on its way: the paper may show a part of it, or all of it."
                                : "It was deleted on its way; the log does not tell how much had gone out.";
    case Outcome::Refused: return "It never began: nothing of it is on paper.";
    case Outcome::Failed: return "It did not go out whole: the paper shows at most a part of it.";
    case Outcome::Unfinished: return "The log does not show its end; it may still be waiting for the printer.";
    case Outcome::Unknown: break;
  }
  return "The levels that are on do not tell what became of it.";
}

std::string WhatToDo(const Story& story) {
  switch (story.outcome) {
    case Outcome::Confirmed:
      return (story.byTwice & kTwiceSentAgain) != 0
                 ? "If the customer has two, the first one is the lost one: take it away."
                 : "If the customer has none, look for the paper at the printer, not for the job.";
    case Outcome::Printed:
      return "To have receipts confirmed, switch AutoReprint on for the queue (lmctl settings) and print with another "
             "datatype than "
             "RAW or share the queue.";
    case Outcome::Cancelled:
      return "If nobody meant to delete it, print it again from the program or the archive (lmctl archive print).";
    case Outcome::Refused:
      return "Remove what refused it and print it again: the spooler keeps it, or the program has it.";
    case Outcome::Failed: return "Look at the printer, throw the part away and print it again.";
    case Outcome::Unfinished:
      return "Look at the printer: paper, cover, line. The job goes on by itself, or delete it in the queue.";
    case Outcome::Unknown: break;
  }
  return "Switch levels E, W, I, D and T on (lmctl settings LogLevelPos=EWIDT) for the next time.";
}

}  // namespace

std::vector<std::string> TwiceReasons(const Story& story) {
  std::vector<std::string> reasons;
  if ((story.byTwice & kTwiceSentAgain) != 0)
    reasons.push_back(story.nReprints == 0 ? "the monitor began to send it again" : "the monitor sent it again");
  if ((story.byTwice & kTwiceRestarted) != 0)
    reasons.emplace_back(
        "it was restarted in the queue, or the spooler was started anew while it had it: the spooler prints such a job "
        "again");
  if ((story.byTwice & kTwiceSameSize) != 0)
    reasons.emplace_back(
        "another job of the same size began on the queue within a minute: perhaps the program printed the receipt "
        "twice, or "
        "somebody printed it again from the archive");
  return reasons;
}

void TellTwice(std::FILE* pOut, const Story& story) {
  std::fprintf(pOut, "%s  job %lld on %s: %s\n", ShortTime(story.llStarted).c_str(), static_cast<long long>(story.nJob),
               ToUtf8(story.strQueue).c_str(), OutcomeText(story).c_str());
  for (const std::string& strReason : TwiceReasons(story)) std::fprintf(pOut, "    Why: %s.\n", strReason.c_str());
  std::fprintf(pOut, "    What to tell: %s\n",
               (story.byTwice & ~kTwiceSameSize) != 0
                   ? "If the customer has two, they are one receipt: take the incomplete or the first one away."
                   : "Look at both jobs with lmctl explain, and at the paper: whether they are one receipt the log "
                     "does not tell.");
}

void Explain(std::FILE* pOut, const Story& story, const FileName& fileName) {
  std::fprintf(pOut, "Job %lld on the queue %s%s%s\n\n", static_cast<long long>(story.nJob),
               ToUtf8(story.strQueue).c_str(), story.strPort.empty() ? "" : ", port ", ToUtf8(story.strPort).c_str());
  std::string strLast;
  std::size_t nSame = 0;
  const auto flush = [&] {
    if (nSame > 0) std::fprintf(pOut, "  %12s  … and %zu more times.\n", "", nSame);
    nSame = 0;
  };
  for (const Event& event : story.events) {
    if (event.strText == strLast) {
      ++nSame;
      continue;
    }
    flush();
    strLast = event.strText;
    std::fprintf(pOut, "  %s  %s\n  %12s  %s:%llu\n", IsoTime(event.llTime).substr(11).c_str(),
                 ToUtf8(event.strText).c_str(), "", fileName(event.place.nFile).c_str(),
                 static_cast<unsigned long long>(event.place.nLine));
  }
  flush();
  std::fprintf(pOut, "\n");
  if (story.nBytes != kUnknown) std::fprintf(pOut, "Bytes taken: %lld.\n", static_cast<long long>(story.nBytes));
  const std::vector<std::string> missing = story.NotLogged();
  if (!missing.empty()) {
    std::fprintf(pOut, "The levels on disk do not tell:");
    for (const std::string& strName : missing) std::fprintf(pOut, " %s", strName.c_str());
    std::fprintf(pOut, ".\n");
  }
  std::fprintf(pOut, "Outcome: %s.\n", OutcomeText(story).c_str());
  std::fprintf(pOut, "On paper: %s\n", OnPaper(story).c_str());
  for (const std::string& strReason : TwiceReasons(story))
    std::fprintf(pOut, "It may stand there twice: %s.\n", strReason.c_str());
  std::fprintf(pOut, "What to do: %s\n", WhatToDo(story).c_str());
}

}  // namespace lmctl
