// Makes sample receipts: text, graphics and real-time commands, 10 KB to 5 MB.
//   make_receipts FOLDER
#include <cstdio>
#include <fstream>
#include <string>

namespace {

std::string TextReceipt(int nLines) {
  std::string str = "\x1B@KELVANE CORNER SHOP\nMarket Square 1\n--------------------------------\n";
  for (int n = 1; n <= nLines; ++n) {
    char szLine[64];
    std::snprintf(szLine, sizeof szLine, "%4d x  Article %05d    %8.2f\n", 1 + n % 4, 10000 + n * 37 % 89999,
                  (n * 613 % 9973) / 100.0);
    str += szLine;
  }
  return str + "--------------------------------\nThank you\n\n\n\x1DV\x01";
}

// A raster picture: rows of dots in bands.
std::string Picture(int nRows) {
  std::string str = "\x1B@";
  constexpr int kBytesPerRow = 72;
  for (int nRow = 0; nRow < nRows; ++nRow) {
    str += std::string("\x1B*!", 3) + static_cast<char>(kBytesPerRow) + '\0';
    for (int n = 0; n < kBytesPerRow; ++n) str += static_cast<char>(0x20 + (n * n + nRow * 3) % 0x5F);
    str += '\n';
  }
  return str;
}

bool Save(const std::string& strPath, const std::string& strBytes) {
  std::ofstream file(strPath, std::ios::binary);
  file << strBytes;
  std::printf("  %s: %zu bytes\n", strPath.c_str(), strBytes.size());
  return static_cast<bool>(file.flush());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_receipts FOLDER\n");
    return 2;
  }
  const std::string strFolder = std::string(argv[1]) + "/";
  const std::string strCommands =
      TextReceipt(20) + "\x13(reset\x13reset)" + "\x13(clr)" + std::string("\x10\x14\x01\x00\x05", 5);
  const bool bSaved = Save(strFolder + "till.prn", TextReceipt(300)) && Save(strFolder + "logo.prn", Picture(4000)) &&
                      Save(strFolder + "commands.prn", strCommands) &&
                      Save(strFolder + "journal.prn", TextReceipt(160'000));
  return bSaved ? 0 : 1;
}
