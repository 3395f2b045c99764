// The shapes of a story: a table row, a JSON object, a row and a bar of the page, plain sentences.
#pragma once

#include <cstdio>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/lmctl/log/text_encoding.h"
#include "tools/lmctl/story/story.h"

namespace lmctl {

using FileName = std::function<std::string(std::uint32_t nFile)>;

std::string IsoTime(LocalMs llTime);    // 2026-11-25T09:00:00.003
std::string ShortTime(LocalMs llTime);  // 2026-11-25 09:00:00

std::string StoryJson(const Story& story, const FileName& fileName);

// The outcome with its reason, as one line: "reprinted 1 time, then confirmed: …".
std::string OutcomeText(const Story& story);

class TableRenderer {
 public:
  // nWidth: columns of the terminal; 0: lines are as long as they need to be.
  TableRenderer(std::FILE* pOut, std::size_t nWidth, bool bColour)
      : m_pOut(pOut), m_nWidth(nWidth), m_bColour(bColour) {}
  void Header();
  void Row(const Story& story);

 private:
  std::FILE* m_pOut;
  std::size_t m_nWidth;
  bool m_bColour;
};

// Why a job may stand on paper more than once; empty when nothing says so.
std::vector<std::string> TwiceReasons(const Story& story);
// A job that may stand twice: why, and what to tell the customer.
void TellTwice(std::FILE* pOut, const Story& story);

void Explain(std::FILE* pOut, const Story& story, const FileName& fileName);

// One self-contained page. Jobs are given in order between Begin and End.
class HtmlRenderer {
 public:
  HtmlRenderer(std::ostream& out, FileName fileName) : m_out(out), m_fileName(std::move(fileName)) {}
  void Begin(const std::string& strLogs);
  void Job(const Story& story);
  void End();

 private:
  std::ostream& m_out;
  FileName m_fileName;
  bool m_bFirst = true;
  std::string_view m_markup;  // what has not been written yet
  // The sentences of all stories, each once.
  std::unordered_map<std::string, std::size_t> m_texts;
  std::vector<const std::string*> m_order;
};

}  // namespace lmctl
