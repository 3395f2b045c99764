// Times, outcomes in words, JSON and the table.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/lmctl/log/error_text.h"
#include "tools/lmctl/render/render.h"

namespace lmctl {

std::string IsoTime(LocalMs llTime) {
  const LocalParts t = Split(llTime);
  char sz[80];
  std::snprintf(sz, sizeof sz, "%04d-%02d-%02dT%02d:%02d:%02d.%03d", t.nYear, t.nMonth, t.nDay, t.nHour, t.nMinute,
                t.nSecond, t.nMs);
  return sz;
}

std::string ShortTime(LocalMs llTime) {
  std::string str = IsoTime(llTime).substr(0, 19);
  str[10] = ' ';
  return str;
}

namespace {

constexpr std::pair<std::uint8_t, const char*> kTwiceNames[] = {
    {kTwiceSentAgain, "sentAgain"}, {kTwiceRestarted, "restarted"}, {kTwiceSameSize, "sameSizeBeside"}};

}  // namespace

std::string StoryJson(const Story& story, const FileName& fileName) {
  // Put together here: building an object took longer than reading the story's lines. What needs escapes is the library's.
  const auto quoted = [](const std::string& str) {
    const auto plain = [](char c) { return c >= ' ' && c < '\x7F' && c != '"' && c != '\\'; };
    if (std::all_of(str.begin(), str.end(), plain)) return '"' + str + '"';
    return nlohmann::json(str).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  };
  std::string json;
  json.reserve(512);
  const auto member = [&](const char* pszName, const std::string& strValue) {
    json += json.empty() ? "{\"" : ",\"";
    json += pszName;
    json += "\":";
    json += strValue;
  };
  const auto number = [&](const char* pszName, std::int64_t n) {
    member(pszName, n == kUnknown ? "null" : std::to_string(n));
  };
  const auto text = [&](const char* pszName, const std::string& str) {
    member(pszName, str.empty() ? "null" : quoted(ToUtf8(str)));
  };
  member("queue", quoted(ToUtf8(story.strQueue)));
  number("jobId", story.nJob);
  text("port", story.strPort);
  number("processId", story.nProcess);
  text("started", IsoTime(story.llStarted));
  text("ended", story.llEnded != 0 ? IsoTime(story.llEnded) : std::string());
  text("path", story.path == Path::Device ? "device" : story.path == Path::PortMonitor ? "portMonitor" : "");
  number("bytes", story.nBytes);
  number("writes", story.nWrites);
  text("outcome", OutcomeName(story.outcome));
  text("reason", story.strReason);
  member("error", story.nError == kUnknown ? "null"
                                           : "{\"code\":" + std::to_string(story.nError) +
                                                 ",\"text\":" + quoted(ErrorMessage(story.nError)) + "}");
  number("reprints", story.nReprints);
  text("response", story.strResponse);
  member("maybeTwice", story.maybeTwice == Tri::Unknown ? "null" : story.maybeTwice == Tri::Yes ? "true" : "false");
  std::string strTwice;
  for (const auto& [byReason, pszName] : kTwiceNames)
    if ((story.byTwice & byReason) != 0) strTwice += (strTwice.empty() ? "\"" : ",\"") + std::string(pszName) + '"';
  member("twice", "[" + strTwice + "]");
  std::string strProofs;
  for (std::size_t n = 0; n < kClaims; ++n) {
    const Place& proof = story.proofs[n];
    if (proof.nLine == 0 || !story.IsTold(static_cast<Claim>(n))) continue;
    strProofs += strProofs.empty() ? "\"" : ",\"";
    strProofs += ClaimName(static_cast<Claim>(n));
    strProofs += "\":";
    strProofs += proof.nFile == story.first.nFile ? std::to_string(proof.nLine)
                                                  : quoted(fileName(proof.nFile) + ":" + std::to_string(proof.nLine));
  }
  member("evidence", "{" + strProofs + "}");
  member("log", "{\"file\":" + quoted(fileName(story.first.nFile)) + ",\"firstLine\":" +
                    std::to_string(story.first.nLine) + ",\"lastLine\":" + std::to_string(story.last.nLine) + "}");
  std::string strMissing;
  for (const std::string& strName : story.NotLogged()) strMissing += (strMissing.empty() ? "" : ",") + quoted(strName);
  member("notLogged", "[" + strMissing + "]");
  return json + "}";
}

std::string OutcomeText(const Story& story) {
  std::string str = story.outcome == Outcome::Unknown ? "not logged" : OutcomeName(story.outcome);
  if (!story.strReason.empty()) str += ": " + ToUtf8(story.strReason);
  if (story.nError > 0) str += " (" + ErrorText(story.nError) + ")";
  if (story.maybeTwice == Tri::Yes) str += " [may stand twice on paper]";
  if (story.byTwice == kTwiceSameSize) str += " [another job of its size beside it]";
  if (story.bInPart) str += " [perhaps in part on paper]";
  return str;
}

namespace {

std::string Took(const Story& story) {
  if (story.llEnded == 0) return "-";
  const std::int64_t llMs = story.llEnded - story.llStarted;
  if (llMs < 0) return "-";  // the clock was set back
  char sz[32];
  if (llMs < 60'000) {
    std::snprintf(sz, sizeof sz, "%.1f s", static_cast<double>(llMs) / 1000);
  } else {
    std::snprintf(sz, sizeof sz, "%lld:%02lld min", static_cast<long long>(llMs / 60'000),
                  static_cast<long long>(llMs / 1000 % 60));
  }
  return sz;
}

// Counts and cuts by characters, not by bytes.
std::string Fit(const std::string& str, std::size_t nWidth) {
  std::size_t nChars = 0;
  std::size_t nCut = str.size();
  for (std::size_t n = 0; n < str.size(); ++n) {
    if ((static_cast<unsigned char>(str[n]) & 0xC0) == 0x80) continue;
    if (nChars + 1 == nWidth && nCut == str.size()) nCut = n;
    ++nChars;
  }
  if (nChars <= nWidth) return str + std::string(nWidth - nChars, ' ');
  return str.substr(0, nCut) + "\xE2\x80\xA6";
}

const char* ColourOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::Confirmed:
    case Outcome::Printed: return "\033[32m";
    case Outcome::Refused:
    case Outcome::Failed: return "\033[31m";
    default: return "\033[33m";
  }
}

}  // namespace

void TableRenderer::Header() {
  std::fprintf(m_pOut, "%-19s  %-16s %6s  %-12s %-11s %10s %9s  %s\n", "start", "queue", "job", "port", "path", "bytes",
               "took", "outcome");
}

void TableRenderer::Row(const Story& story) {
  constexpr std::size_t kFixed = 19 + 2 + 16 + 1 + 6 + 2 + 12 + 1 + 11 + 1 + 10 + 1 + 9 + 2;
  std::string strOutcome = OutcomeText(story);
  if (m_nWidth > 0) {
    strOutcome = Fit(strOutcome, m_nWidth > kFixed + 12 ? m_nWidth - kFixed : 12);
    while (!strOutcome.empty() && strOutcome.back() == ' ') strOutcome.pop_back();
  }
  std::fprintf(m_pOut, "%-19s  %s %6lld  %s %-11s %10s %9s  %s%s%s\n", ShortTime(story.llStarted).c_str(),
               Fit(ToUtf8(story.strQueue), 16).c_str(), static_cast<long long>(story.nJob),
               Fit(story.strPort.empty() ? "?" : ToUtf8(story.strPort), 12).c_str(),
               story.path == Path::Device        ? "device"
               : story.path == Path::PortMonitor ? "portMonitor"
                                                 : "?",
               story.nBytes == kUnknown ? "?" : std::to_string(story.nBytes).c_str(), Took(story).c_str(),
               m_bColour ? ColourOf(story.outcome) : "", strOutcome.c_str(), m_bColour ? "\033[0m" : "");
}

}  // namespace lmctl
