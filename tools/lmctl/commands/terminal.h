// The terminal, if there is one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace lmctl {

bool IsTerminal();      // standard output
std::size_t Columns();  // of the terminal; 0 without one
bool WantsColour();     // a terminal, and NO_COLOR is not set

// How far something long is, on a terminal and after its first second.
class Progress {
 public:
  explicit Progress(std::string strWhat);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  void Show(std::uint64_t ullDone, std::uint64_t ullTotal);

 private:
  std::string m_strWhat;
  std::int64_t m_llStart;
  int m_nShown = -1;
};

}  // namespace lmctl
