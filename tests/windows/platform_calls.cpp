// Random sequences of system calls, told in one form on every platform: platform_calls FIRST_SEED COUNT
//
// Each sequence begins in an empty folder with nothing open. A line is a call and what it gave: its result, its last-error
// code where it failed, and what it told. Two outputs are set beside each other by platform_calls --compare LAYER WINDOWS.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "sim/text.h"
#include "sim/world.h"

namespace {

constexpr char kFolder[] = "C:\\KelvaneCalls";
constexpr wchar_t kKey[] = L"SOFTWARE\\KelvaneCalls";
const char* const kNames[] = {"a",  "b",     "c.log",           "D1",       "D1\\a", "D1\\x",
                              "D2", "D2\\b", "a\\under a file", "no\\such", "w*"};

class Sequence {
 public:
  explicit Sequence(std::uint64_t ullSeed) : m_random(ullSeed) {
    std::printf("# %llu\n", static_cast<unsigned long long>(ullSeed));
    sim::World::DeleteTree(kFolder);
    CreateDirectoryW(sim::Wide(kFolder).c_str(), nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
  }
  ~Sequence() {
    for (HANDLE& hFile : m_files)
      if (hFile != nullptr) CloseHandle(hFile);
    for (HANDLE& hObject : m_objects)
      if (hObject != nullptr) CloseHandle(hObject);
    if (m_hKey != nullptr) RegCloseKey(m_hKey);
  }
  Sequence(const Sequence&) = delete;
  Sequence& operator=(const Sequence&) = delete;

  void Step() {
    SetLastError(0);
    switch (Pick(22)) {
      case 0:
      case 1:
      case 2: return Open();
      case 3: return Close();
      case 4: return Read();
      case 5:
      case 6: return Write();
      case 7: return Pointer();
      case 8:
        return Tell("attributes", Name(), [&](const wchar_t* psz) { return Attributes(GetFileAttributesW(psz)); });
      case 9: return Tell("delete", Name(), [](const wchar_t* psz) { return Flag(DeleteFileW(psz)); });
      case 10: return Move();
      case 11:
        return Tell("make folder", Name(), [](const wchar_t* psz) { return Flag(CreateDirectoryW(psz, nullptr)); });
      case 12: return Tell("remove folder", Name(), [](const wchar_t* psz) { return Flag(RemoveDirectoryW(psz)); });
      case 13: return List();
      case 14: return Facts();
      case 15: return FinalPath();
      case 16: return DeleteByHandle();
      case 17: return RenameByHandle();
      case 18: return HardLink();
      case 19: return Registry();
      case 20: return Objects();
      default: return Texts();
    }
  }

 private:
  unsigned Pick(unsigned n) { return static_cast<unsigned>(m_random() % n); }
  std::string Name() { return kNames[Pick(sizeof kNames / sizeof *kNames)]; }
  static std::string Path(const std::string& strName) { return std::string(kFolder) + "\\" + strName; }
  static std::string Error() { return "failed " + std::to_string(GetLastError()); }
  static std::string Flag(BOOL b) { return b ? "yes" : Error(); }
  static std::string Attributes(DWORD dw) {
    if (dw == INVALID_FILE_ATTRIBUTES) return Error();
    return std::string((dw & FILE_ATTRIBUTE_DIRECTORY) != 0 ? "folder" : "file") +
           ((dw & FILE_ATTRIBUTE_READONLY) != 0 ? " read-only" : "");
  }
  static void Line(const std::string& strCall, const std::string& strResult) {
    std::printf("%s: %s\n", strCall.c_str(), strResult.c_str());
  }
  template <class Act>
  void Tell(const char* pszCall, const std::string& strName, Act act) {
    Line(std::string(pszCall) + " " + strName, act(sim::Wide(Path(strName)).c_str()));
  }
  HANDLE& File(unsigned& n) { return m_files[n = Pick(4)]; }

  void Open() {
    constexpr DWORD kAccess[] = {
        GENERIC_READ, GENERIC_WRITE,          GENERIC_READ | GENERIC_WRITE,        FILE_READ_ATTRIBUTES,
        DELETE,       GENERIC_WRITE | DELETE, FILE_TRAVERSE | FILE_READ_ATTRIBUTES};
    constexpr DWORD kShare[] = {0, 1, 3, 7};
    constexpr DWORD kHow[] = {CREATE_NEW, OPEN_EXISTING, OPEN_EXISTING, OPEN_ALWAYS, OPEN_ALWAYS};
    constexpr DWORD kFlags[] = {0, FILE_FLAG_OPEN_REPARSE_POINT, FILE_FLAG_BACKUP_SEMANTICS,
                                FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS};
    unsigned n = 0;
    HANDLE& hFile = File(n);
    if (hFile != nullptr) return Close();
    std::string strName = Name();
    if (Pick(30) == 0) strName += "\\";
    const DWORD dwAccess = kAccess[Pick(7)], dwShare = kShare[Pick(4)], dwHow = kHow[Pick(5)],
                dwFlags = kFlags[Pick(4)];
    const HANDLE h = CreateFileW(sim::Wide(Path(strName)).c_str(), dwAccess, dwShare, nullptr, dwHow, dwFlags, nullptr);
    const std::string strResult = h == INVALID_HANDLE_VALUE ? Error()
                                  : dwHow == OPEN_ALWAYS    ? "open " + std::to_string(GetLastError())
                                                            : "open";
    if (h != INVALID_HANDLE_VALUE) hFile = h;
    m_bMayDelete[n] = (dwAccess & DELETE) != 0;
    Line(sim::Format("%u = open %s access=%x share=%x how=%x flags=%x", n, strName.c_str(),
                     static_cast<unsigned>(dwAccess), static_cast<unsigned>(dwShare), static_cast<unsigned>(dwHow),
                     static_cast<unsigned>(dwFlags)),
         strResult);
  }
  void Close() {
    unsigned n = 0;
    HANDLE& hFile = File(n);
    if (hFile == nullptr) return;
    Line(sim::Format("close %u", n), Flag(CloseHandle(hFile)));
    hFile = nullptr;
  }
  void Read() {
    unsigned n = 0;
    const HANDLE hFile = File(n);
    if (hFile == nullptr) return;
    char szRead[16] = {};
    DWORD cbRead = 0;
    const BOOL b = ReadFile(hFile, szRead, 8, &cbRead, nullptr);
    Line(sim::Format("read %u", n), b ? sim::Format("%u %s", static_cast<unsigned>(cbRead), szRead) : Error());
  }
  void Write() {
    unsigned n = 0;
    const HANDLE hFile = File(n);
    if (hFile == nullptr) return;
    DWORD cbWritten = 0;
    const BOOL b = WriteFile(hFile, "written", 1 + Pick(7), &cbWritten, nullptr);
    Line(sim::Format("write %u", n), b ? std::to_string(cbWritten) : Error());
  }
  void Pointer() {
    unsigned n = 0;
    const HANDLE hFile = File(n);
    if (hFile == nullptr) return;
    LARGE_INTEGER cb = {};
    const LONG lMove = static_cast<LONG>(Pick(12)) - 3;
    const DWORD dwFrom = Pick(3);
    const DWORD dw = SetFilePointer(hFile, lMove, nullptr, dwFrom);
    const std::string strMoved = dw == INVALID_SET_FILE_POINTER ? Error() : std::to_string(dw);
    Line(sim::Format("pointer %u by %d from %u", n, static_cast<int>(lMove), static_cast<unsigned>(dwFrom)), strMoved);
    Line(sim::Format("size %u", n), GetFileSizeEx(hFile, &cb) ? std::to_string(cb.QuadPart) : Error());
  }
  void Move() {
    const std::string strTo = Name();
    Tell(("move to " + strTo + ",").c_str(), Name(),
         [&](const wchar_t* psz) { return Flag(MoveFileW(psz, sim::Wide(Path(strTo)).c_str())); });
  }
  void List() {
    std::string strNames;
    for (const std::string& strName : sim::World::ListFolder(Pick(2) == 0 ? std::string(kFolder) : Path("D1")))
      strNames += strName + " ";
    Line("list", strNames);
  }
  void Facts() {
    unsigned n = 0;
    const HANDLE hFile = File(n);
    if (hFile == nullptr) return;
    BY_HANDLE_FILE_INFORMATION facts;
    const BOOL b = GetFileInformationByHandle(hFile, &facts);
    const bool bFolder = b && (facts.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    Line(sim::Format("facts %u", n),
         !b        ? Error()
         : bFolder ? "folder"
                   : sim::Format("file of %u bytes, %u names", static_cast<unsigned>(facts.nFileSizeLow),
                                 static_cast<unsigned>(facts.nNumberOfLinks)));
    FILE_STANDARD_INFO standard;
    if (!bFolder)
      Line(sim::Format("standard %u", n),
           GetFileInformationByHandleEx(hFile, FileStandardInfo, &standard, sizeof standard)
               ? sim::Format("%u, %u names", static_cast<unsigned>(standard.EndOfFile.QuadPart),
                             static_cast<unsigned>(standard.NumberOfLinks))
               : Error());
  }
  void FinalPath() {
    unsigned n = 0;
    const HANDLE hFile = File(n);
    if (hFile == nullptr) return;
    wchar_t wszPath[300] = {};
    const DWORD cch = GetFinalPathNameByHandleW(hFile, wszPath, 300, VOLUME_NAME_NONE);
    Line(sim::Format("final path %u", n), cch == 0 ? Error() : sim::Narrow(wszPath));
  }
  void DeleteByHandle() {
    unsigned n = 0;
    const HANDLE hFile = File(n);
    if (hFile == nullptr || Pick(3) != 0) return;
    FILE_DISPOSITION_INFO disposition = {TRUE};
    Line(sim::Format("delete %u", n),
         Flag(SetFileInformationByHandle(hFile, FileDispositionInfo, &disposition, sizeof disposition)));
  }
  void RenameByHandle() {
    unsigned n = 0;
    const HANDLE hFile = File(n);
    if (hFile == nullptr || !m_bMayDelete[n]) return;  // Wine renames without the right as well
    const std::string strTo = Name();
    const sim::WideString to = sim::Wide(Path(strTo));
    std::vector<BYTE> block(sizeof(FILE_RENAME_INFO) + to.size() * sizeof(wchar_t));
    auto* pInfo = reinterpret_cast<FILE_RENAME_INFO*>(block.data());
    pInfo->FileNameLength = static_cast<DWORD>(to.size() * sizeof(wchar_t));
    std::memcpy(pInfo->FileName, to.data(), to.size() * sizeof(wchar_t));
    Line(sim::Format("rename %u to %s", n, strTo.c_str()),
         Flag(SetFileInformationByHandle(hFile, FileRenameInfo, pInfo, static_cast<DWORD>(block.size()))));
  }
  void HardLink() {
    const std::string strOld = Name();
    Tell(("link of " + strOld + ",").c_str(), Name(),
         [&](const wchar_t* psz) { return Flag(CreateHardLinkW(psz, sim::Wide(Path(strOld)).c_str(), nullptr)); });
  }
  void Registry() {
    constexpr REGSAM kSam[] = {KEY_QUERY_VALUE, KEY_SET_VALUE, KEY_QUERY_VALUE | KEY_SET_VALUE};
    const REGSAM sam = kSam[Pick(3)];
    if (m_hKey == nullptr) {
      const bool bMake = Pick(2) == 0;
      const LSTATUS l = bMake ? RegCreateKeyExW(HKEY_CURRENT_USER, kKey, 0, nullptr, REG_OPTION_VOLATILE, sam, nullptr,
                                                &m_hKey, nullptr)
                              : RegOpenKeyExW(HKEY_CURRENT_USER, kKey, 0, sam, &m_hKey);
      if (l != 0) m_hKey = nullptr;
      return Line(sim::Format("key make=%d sam=%x", bMake, static_cast<unsigned>(sam)), std::to_string(l));
    }
    BYTE abyData[16] = {1, 2, 3, 4, 5, 6, 7, 8};
    DWORD cb = Pick(12);
    DWORD dwType = 0;
    const std::string strValue = Pick(2) == 0 ? "one" : "TWO";
    const sim::WideString value = sim::Wide(strValue);
    switch (Pick(4)) {
      case 0:
        return Line(sim::Format("set %s %u", strValue.c_str(), static_cast<unsigned>(cb)),
                    std::to_string(RegSetValueExW(m_hKey, value.c_str(), 0, REG_BINARY, abyData, cb)));
      case 1: {
        const LSTATUS l = RegQueryValueExW(m_hKey, value.c_str(), nullptr, &dwType, abyData, &cb);
        return Line("query " + strValue, l != 0 ? std::to_string(l)
                                                : sim::Format("type %u, %u bytes", static_cast<unsigned>(dwType),
                                                              static_cast<unsigned>(cb)));
      }
      case 2: {
        wchar_t wszName[10] = {};
        DWORD cchName = 10;
        const LSTATUS l = RegEnumValueW(m_hKey, Pick(3), wszName, &cchName, nullptr, nullptr, nullptr, nullptr);
        return Line("enumerate", l != 0 ? std::to_string(l) : sim::Narrow(wszName));
      }
      default: Line("close key", std::to_string(RegCloseKey(m_hKey))); m_hKey = nullptr;
    }
  }
  void Objects() {
    unsigned n = Pick(3);
    HANDLE& hObject = m_objects[n];
    if (hObject == nullptr) {
      const unsigned nKind = Pick(3);
      hObject =
          nKind == 2 ? CreateMutexW(nullptr, FALSE, nullptr) : CreateEventW(nullptr, nKind == 0, Pick(2) == 0, nullptr);
      return Line(sim::Format("%u = object of kind %u", n, nKind), hObject != nullptr ? "made" : Error());
    }
    switch (Pick(5)) {
      case 0: return Line(sim::Format("set %u", n), Flag(SetEvent(hObject)));
      case 1: return Line(sim::Format("reset %u", n), Flag(ResetEvent(hObject)));
      case 2: return Line(sim::Format("release %u", n), Flag(ReleaseMutex(hObject)));
      case 3: {
        const DWORD dw = WaitForSingleObject(hObject, Pick(2));
        return Line(sim::Format("wait %u", n), std::to_string(dw));
      }
      default: {
        if (m_objects[0] == nullptr || m_objects[1] == nullptr || m_objects[2] == nullptr) return;
        const bool bAll = Pick(2) == 0;
        Line(sim::Format("wait for all=%d", bAll), std::to_string(WaitForMultipleObjects(3, m_objects, bAll, 0)));
      }
    }
  }
  void Texts() {
    constexpr wchar_t kUnits[] = {L'a', L'Z', 0xE4, 0x20AC, 0x4E2D, 0xD83D, 0xDE00, L' ', L'%'};
    wchar_t wszText[8] = {};
    const unsigned cch = Pick(7);
    for (unsigned n = 0; n < cch; ++n) wszText[n] = kUnits[Pick(9)];
    char szAnsi[24] = {};
    const int cbRoom = static_cast<int>(Pick(3) == 0 ? Pick(5) : 24);
    const int cb =
        WideCharToMultiByte(CP_ACP, 0, wszText, -1, cbRoom == 0 ? nullptr : szAnsi, cbRoom, nullptr, nullptr);
    std::string strCall = sim::Format("to ansi, room %d:", cbRoom),
                strResult = cb == 0 ? Error() : std::to_string(cb) + ":";
    for (unsigned n = 0; n < cch; ++n) strCall += sim::Format(" %04x", static_cast<unsigned>(wszText[n]));
    for (int n = 0; cb > 0 && cbRoom > 0 && n < cb; ++n)
      strResult += sim::Format(" %02x", static_cast<unsigned>(static_cast<BYTE>(szAnsi[n])));
    Line(strCall, strResult);
    const SYSTEMTIME st = {static_cast<WORD>(1999 + Pick(30)),
                           static_cast<WORD>(Pick(14)),
                           0,
                           static_cast<WORD>(Pick(33)),
                           static_cast<WORD>(Pick(25)),
                           59,
                           59,
                           999};
    if (st.wMonth == 2 && st.wDay == 29) return;  // Wine takes it in every year
    FILETIME ft = {};
    const BOOL b = SystemTimeToFileTime(&st, &ft);
    Line(sim::Format("time %u-%u-%u %u", st.wYear, st.wMonth, st.wDay, st.wHour),
         b ? sim::Format("%08x%08x", static_cast<unsigned>(ft.dwHighDateTime), static_cast<unsigned>(ft.dwLowDateTime))
           : Error());
  }

  std::mt19937_64 m_random;
  HANDLE m_files[4] = {};
  bool m_bMayDelete[4] = {};
  HANDLE m_objects[3] = {};
  HKEY m_hKey = nullptr;
};

// ---- the comparison ---------------------------------------------------------------------------------------------------

// Where the two platforms are known to differ; behind such a place the rest of a sequence proves nothing.
struct Known {
  const char* pszCall;   // what the call begins with, or, behind a "*", what it contains
  const char* pszLayer;  // what the layer's result begins with
  const char* pszReason;
};
constexpr Known kKnown[] = {
    {"*\\ access=", "failed 123",
     "a name that ends in a backslash: documented as 123, Wine takes it for the name without"},
    {"*open ", "failed 5", "a file that is deleted and still held: documented as 5, Wine opens it"},
    {"delete ", "failed 5", "likewise"},
    {"move to ", "failed 5", "likewise; and a folder moved below itself has no documented code"},
    {"write ", "failed 5", "a folder's handle has no documented code"},
    {"final path ", "\\", "a file with several names may show any of them"},
    {"remove folder ", "failed 32", "a folder that is held and not empty: either code is documented"},
};

const Known* WhyKnown(const std::string& strLayer) {
  const std::size_t nCut = strLayer.rfind(": ");
  const std::string strCall = strLayer.substr(0, nCut),
                    strResult = strLayer.substr(std::min(nCut + 2, strLayer.size()));
  for (const Known& known : kKnown) {
    const bool bInside = known.pszCall[0] == '*';
    const bool bCall =
        bInside ? strCall.find(known.pszCall + 1) != std::string::npos : strCall.starts_with(known.pszCall);
    if (bCall && strResult.starts_with(known.pszLayer)) return &known;
  }
  return nullptr;
}

std::vector<std::string> LinesOf(const char* pszFile) {
  std::vector<std::string> lines;
  std::ifstream file(pszFile);
  for (std::string strLine; std::getline(file, strLine);) {
    if (strLine.ends_with('\r')) strLine.pop_back();
    lines.push_back(strLine);
  }
  return lines;
}

// The layer's output beside that of Windows programs. Returns the exit status.
int Compare(const char* pszLayer, const char* pszWindows) {
  const std::vector<std::string> layer = LinesOf(pszLayer), windows = LinesOf(pszWindows);
  std::size_t nSequences = 0, nCalls = 0, nKnown = 0, nUnexplained = 0, nOther = 0;
  for (std::size_t n = 0; n < layer.size(); ++nSequences) {
    while (nOther < windows.size() && windows[nOther] != layer[n]) ++nOther;  // the sequence's beginning
    bool bAlike = true;
    const std::string strName = layer[n];
    for (++n, ++nOther; n < layer.size() && !layer[n].starts_with("# "); ++n, ++nOther) {
      const std::string strWindows = nOther < windows.size() ? windows[nOther] : "(nothing)";
      if (!bAlike) continue;
      ++nCalls;
      bAlike = layer[n] == strWindows;
      if (bAlike) continue;
      if (WhyKnown(layer[n]) != nullptr) {
        ++nKnown;
        continue;
      }
      ++nUnexplained;
      std::printf("%s\n  layer    %s\n  Windows  %s\n", strName.c_str(), layer[n].c_str(), strWindows.c_str());
    }
    nOther = 0;
  }
  std::printf("%zu sequences, %zu calls alike; %zu sequences end at a known difference, %zu unexplained\n", nSequences,
              nCalls - nKnown - nUnexplained, nKnown, nUnexplained);
  return nUnexplained == 0 && nSequences > 0 && nKnown * 4 < nSequences ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--compare") == 0) return Compare(argv[2], argv[3]);
  if (argc != 3) return 2;
  const std::uint64_t ullFirst = std::strtoull(argv[1], nullptr, 10), ullCount = std::strtoull(argv[2], nullptr, 10);
  for (std::uint64_t ull = 0; ull < ullCount; ++ull) {
    Sequence sequence(ullFirst + ull);
    for (int n = 0; n < 40; ++n) sequence.Step();
  }
  std::fflush(stdout);
  return 0;
}
