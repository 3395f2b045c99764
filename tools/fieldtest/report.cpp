#include "tools/fieldtest/report.h"

#include <windows.h>

#include <cstdio>
#include <fstream>
#include <iterator>

namespace fieldtest {
namespace {

constexpr std::size_t kMostAttached = 2'000'000;  // bytes of a file: its end is shown

std::string Escaped(const std::string& strText) {
  std::string str;
  for (const char c : strText)
    str += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : c == '"' ? "&quot;" : std::string(1, c);
  return str;
}

// A text that Windows programs wrote: UTF-16 with its mark, or bytes.
std::string ReadText(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string str{std::istreambuf_iterator<char>(stream), {}};
  if (str.starts_with("\xFF\xFE")) {
    std::wstring text((str.size() - 2) / 2, L'\0');
    std::memcpy(text.data(), str.data() + 2, text.size() * 2);
    str = Utf8(text);
  }
  if (str.size() > kMostAttached) str.erase(0, str.size() - kMostAttached);
  return str;
}

}  // namespace

std::string Utf8(const std::wstring& text) {
  std::string str(text.size() * 3, '\0');
  str.resize(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()),
                                                          str.data(), static_cast<int>(str.size()), nullptr, nullptr)));
  return str;
}

void Report::Add(const std::string& strCheck, const char* pszState, const std::string& strExpected,
                 const std::string& strSeen) {
  m_checks.push_back({{"check", strCheck}, {"state", pszState}, {"expected", strExpected}, {"seen", strSeen}});
  std::printf("%-8s %s: %s\n", pszState, strCheck.c_str(), strSeen.c_str());
  std::fflush(stdout);
}

bool Report::Check(const std::string& strCheck, const std::string& strExpected, const std::string& strSeen,
                   bool bHolds) {
  ++(bHolds ? m_nOk : m_nFailed);
  Add(strCheck, bHolds ? "ok" : "FAILED", strExpected, strSeen);
  return bHolds;
}

void Report::NotHere(const std::string& strCheck, const std::string& strWhy) {
  ++m_nNotHere;
  Add(strCheck, "not here", "", strWhy);
}

void Report::Attach(const std::string& strTitle, const std::filesystem::path& file) {
  std::error_code error;
  if (std::filesystem::exists(file, error)) m_attached.push_back({{"title", strTitle}, {"text", ReadText(file)}});
}

std::string Report::Html() const {
  std::string str =
      "<!doctype html><html lang=\"en\"><meta charset=\"utf-8\"><title>Field test</title><style>"
      "body{font:16px sans-serif;max-width:75em;margin:2em auto;padding:0 "
      "1em}table{border-collapse:collapse;width:100%}"
      "td,th{border:1px solid #999;padding:.3em .6em;text-align:left;vertical-align:top;overflow-wrap:anywhere}"
      ".FAILED{background:#b00;color:#fff}.ok{background:#dfd}pre{white-space:pre-wrap;overflow-wrap:anywhere}</style>"
      "<h1>Field test: ";
  str += m_nFailed == 0 ? "every check held" : std::to_string(m_nFailed) + " checks FAILED";
  str += "</h1><p>" + std::to_string(m_nOk) + " held, " + std::to_string(m_nFailed) + " failed, " +
         std::to_string(m_nNotHere) + " could not be made here.</p><table>";
  for (const auto& [strName, value] : m_facts.items())
    str += "<tr><th>" + Escaped(strName) + "<td>" + Escaped(value.get<std::string>());
  str += "</table><h2>Checks</h2><table><tr><th>result<th>check<th>expected<th>seen";
  for (const auto& check : m_checks) {
    const std::string strState = check["state"];
    str += "<tr><td class=\"" + strState + "\">" + strState;
    for (const char* pszColumn : {"check", "expected", "seen"})
      str += "<td>" + Escaped(check[pszColumn].get<std::string>());
  }
  str += "</table>";
  for (const auto& file : m_attached)
    str += "<details><summary>" + Escaped(file["title"].get<std::string>()) + "</summary><pre>" +
           Escaped(file["text"].get<std::string>()) + "</pre></details>";
  return str;
}

bool Report::Write() const {
  const nlohmann::ordered_json all = {{"held", m_nOk},      {"failed", m_nFailed}, {"notHere", m_nNotHere},
                                      {"machine", m_facts}, {"checks", m_checks},  {"attached", m_attached}};
  std::ofstream json(m_folder / "report.json", std::ios::binary);
  json << all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << std::flush;
  std::ofstream html(m_folder / "report.html", std::ios::binary);
  html << Html() << std::flush;
  std::printf("%u held, %u failed, %u not here; report.html and report.json %s %s\n", m_nOk, m_nFailed, m_nNotHere,
              json && html ? "lie in" : "could NOT be written to", Utf8(m_folder.wstring()).c_str());
  return m_nFailed == 0 && json && html;
}

}  // namespace fieldtest
