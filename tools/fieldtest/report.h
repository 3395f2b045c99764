// What a field test looked at: each check with what was expected and what was seen.
#pragma once

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace fieldtest {

std::string Utf8(const std::wstring& text);

class Report {
 public:
  explicit Report(std::filesystem::path folder) : m_folder(std::move(folder)) {}

  // Adds a check and prints it. Returns whether it held.
  bool Check(const std::string& strCheck, const std::string& strExpected, const std::string& strSeen, bool bHolds);
  bool Check(const std::string& strCheck, const std::string& strExpected, const std::string& strSeen) {
    return Check(strCheck, strExpected, strSeen, strExpected == strSeen);
  }
  // This machine has not got what the check needs.
  void NotHere(const std::string& strCheck, const std::string& strWhy);
  void Fact(const char* pszName, const std::string& strValue) { m_facts[pszName] = strValue; }
  // A text file that is shown below the checks; one that is missing is left out.
  void Attach(const std::string& strTitle, const std::filesystem::path& file);

  // Writes report.html and report.json. Returns whether every check held and both files were written.
  bool Write() const;

 private:
  std::string Html() const;
  void Add(const std::string& strCheck, const char* pszState, const std::string& strExpected,
           const std::string& strSeen);

  const std::filesystem::path m_folder;
  nlohmann::ordered_json m_facts = nlohmann::ordered_json::object();
  nlohmann::ordered_json m_checks = nlohmann::ordered_json::array();
  nlohmann::ordered_json m_attached = nlohmann::ordered_json::array();
  unsigned m_nOk = 0, m_nFailed = 0, m_nNotHere = 0;
};

}  // namespace fieldtest
