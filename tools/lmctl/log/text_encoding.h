// Texts of the log are in the code page of the machine that wrote it; whatever goes out is UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace lmctl {

// The code page of the log: "cp1252", "cp850", "cp932", "utf-8" …. Without it, on Windows the machine's own, elsewhere cp1252.
// Throws std::invalid_argument for one that is not known here.
void SetLogEncoding(const std::string& strName);

// A text of the log as UTF-8, without what a terminal or a page would act on instead of showing it: control characters, C1 ones
// among them, and marks that turn the direction of text.
std::string ToUtf8(std::string_view text);

// A text of other origin, UTF-8 already, without the same.
std::string Printable(std::string_view utf8);

}  // namespace lmctl
