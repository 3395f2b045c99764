// What does not hold in a world: printed as it is found, with what was found and what belongs there.
#pragma once

#include <cstdio>
#include <sstream>
#include <string>
#include <type_traits>

class Verdict {
 public:
  // What the checks that follow are about.
  void About(std::string strSubject) { m_strSubject = std::move(strSubject); }
  void Holds(bool bHolds, const std::string& strWhat) {
    if (bHolds) return;
    m_bAllWell = false;
    std::printf("does not hold: %s: %s\n", m_strSubject.c_str(), strWhat.c_str());
  }
  template <typename Found, typename Expected>
  void Equal(const Found& found, const Expected& expected, const std::string& strWhat) {
    Holds(found == static_cast<Found>(expected), strWhat + ": " + Show(found) + " instead of " + Show(expected));
  }
  template <typename Found, typename Most>
  void AtMost(const Found& found, const Most& most, const std::string& strWhat) {
    Holds(found <= static_cast<Found>(most), strWhat + ": " + Show(found) + " is more than " + Show(most));
  }
  bool AllWell() const { return m_bAllWell; }

 private:
  template <typename Value>
  static std::string Show(const Value& value) {
    std::ostringstream text;
    if constexpr (std::is_enum_v<Value>) {
      text << static_cast<int>(value);
    } else {
      text << value;
    }
    return text.str();
  }
  std::string m_strSubject = "the world";
  bool m_bAllWell = true;
};
