// The report page. Its markup, style and script are files of their own in page/, put into the program when it is built; one file
// goes out, which needs nothing from outside. Everything that comes from the log goes in as data and is shown as text.
#include <string_view>

#include "lmctl_page_parts.h"  // made from page/: kPageMarkup, kPageStyle, kPageScript
#include "tools/lmctl/render/render.h"

namespace lmctl {
namespace {

std::string Escaped(const std::string& strText) {
  std::string str;
  for (const char c : strText) {
    switch (c) {
      case '<': str += "&lt;"; break;
      case '>': str += "&gt;"; break;
      case '&': str += "&amp;"; break;
      case '"': str += "&quot;"; break;
      default: str += c;
    }
  }
  return str;
}

// A JSON text inside a script element: nothing in it may end the element.
std::string Quoted(const std::string& strText) {
  std::string str = "\"";
  for (const char c : strText) {
    if (c == '"' || c == '\\') str += '\\';
    if (c == '<') {
      str += "\\u003c";
    } else {
      str += c;
    }
  }
  return str + "\"";
}

// The markup up to a mark, which is taken off it.
std::string_view UpTo(std::string_view& markup, std::string_view mark) {
  const std::size_t nAt = markup.find(mark);
  const std::string_view before = markup.substr(0, nAt);
  markup.remove_prefix(nAt + mark.size());
  return before;
}

}  // namespace

void HtmlRenderer::Begin(const std::string& strLogs) {
  m_markup = kPageMarkup;
  m_out << UpTo(m_markup, "<!--STYLE-->");
  m_out << kPageStyle;
  m_out << UpTo(m_markup, "<!--ABOUT-->");
  m_out << "From " << Escaped(strLogs) << ".";
  m_out << UpTo(m_markup, "<!--JOBS-->");
  m_out << "<script id=\"jobs\" type=\"application/json\">[";
}

void HtmlRenderer::Job(const Story& story) {
  const char* pszClass = story.outcome == Outcome::Confirmed || story.outcome == Outcome::Printed ? "good"
                         : story.outcome == Outcome::Refused || story.outcome == Outcome::Failed  ? "bad"
                                                                                                  : "mid";
  const auto number = [](std::int64_t n) { return std::to_string(n); };
  std::string strPhases;
  for (const Phase& phase : story.phases) {
    if (!strPhases.empty()) strPhases += ',';
    strPhases +=
        "[" + number(static_cast<int>(phase.kind)) + "," + number(phase.llFrom) + "," + number(phase.llTo) + "]";
  }
  std::string strEvents;
  for (const Event& event : story.events) {
    const auto [it, bNew] = m_texts.emplace(ToUtf8(event.strText), m_texts.size());
    if (bNew) m_order.push_back(&it->first);
    if (!strEvents.empty()) strEvents += ',';
    strEvents +=
        "[" + number(event.llTime) + "," + std::to_string(event.place.nLine) + "," + std::to_string(it->second) + "]";
  }
  const char* pszPath = story.path == Path::Device        ? "\"device\""
                        : story.path == Path::PortMonitor ? "\"portMonitor\""
                                                          : "null";
  const std::string strPlace = m_fileName(story.first.nFile) + ":" + std::to_string(story.first.nLine);
  std::string json = m_bFirst ? "\n{" : ",\n{";
  const auto member = [&](char cName, const std::string& strValue) {
    if (json.back() != '{') json += ',';
    json += '"';
    json += cName;
    json += "\":" + strValue;
  };
  member('n', std::to_string(story.first.nLine));
  member('t', Quoted(ShortTime(story.llStarted)));
  member('s', number(story.llStarted));
  member('e', story.llEnded == 0 ? "null" : number(story.llEnded));
  member('z', number(story.llLast));
  member('q', Quoted(ToUtf8(story.strQueue)));
  member('j', number(story.nJob));
  member('p', Quoted(ToUtf8(story.strPort)));
  member('w', pszPath);
  member('b', story.nBytes == kUnknown ? "null" : number(story.nBytes));
  member('o', Quoted(OutcomeText(story)));
  member('c', std::string("\"") + pszClass + "\"");
  member('d', number(story.byTwice));
  member('l', Quoted(strPlace));
  member('f', "[" + strPhases + "]");
  member('v', "[" + strEvents + "]");
  m_out << json + "}";
  m_bFirst = false;
}

void HtmlRenderer::End() {
  m_out << "\n]</script>\n<script id=\"texts\" type=\"application/json\">[";
  for (std::size_t n = 0; n < m_order.size(); ++n) m_out << (n == 0 ? "\n" : ",\n") + Quoted(*m_order[n]);
  m_out << "]</script>\n";
  m_out << UpTo(m_markup, "<!--SCRIPT-->");
  m_out << kPageScript;
  m_out << m_markup;
}

}  // namespace lmctl
