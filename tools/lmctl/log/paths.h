// The tool's texts are UTF-8, on Windows too; so are the names of files in them.
#pragma once

#include <filesystem>
#include <string>

namespace lmctl {

inline std::filesystem::path PathOf(const std::string& strText) {
  return std::filesystem::path(std::u8string(strText.begin(), strText.end()));
}

inline std::string TextOfPath(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

}  // namespace lmctl
