#include "tools/lmctl/log/log_reader.h"

#include "tools/lmctl/log/paths.h"
#include "tools/lmctl/log/text_encoding.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <unordered_map>

#ifdef _WIN32
#include <windows.h>

#include <share.h>
#include <shlobj.h>

#include "base/setting_names.h"
#endif

namespace lmctl {
namespace {

// Stays in the processor's cache; the writers wait no longer than this takes.
constexpr std::size_t kBlock = 256 * 1024;
constexpr std::size_t kPage = 4096;
constexpr std::size_t kLongestLine = 64 * 1024;  // longer ones are garbage; no line of the log comes near

#ifdef _WIN32
// The writers' turn, while a block is read; one that cannot be had within a second is not waited for any longer.
class WritersTurn {
 public:
  WritersTurn() : m_hMutex(OpenMutexW(SYNCHRONIZE, FALSE, kLogMutexName)) {
    if (m_hMutex == nullptr) return;
    const DWORD dwWait = WaitForSingleObject(m_hMutex, 1000);
    m_bOwned = dwWait == WAIT_OBJECT_0 || dwWait == WAIT_ABANDONED;
  }
  ~WritersTurn() {
    if (m_bOwned) ReleaseMutex(m_hMutex);
    if (m_hMutex != nullptr) CloseHandle(m_hMutex);
  }
  WritersTurn(const WritersTurn&) = delete;
  WritersTurn& operator=(const WritersTurn&) = delete;

 private:
  HANDLE m_hMutex;
  bool m_bOwned = false;
};
std::FILE* OpenForReading(const std::filesystem::path& path) { return _wfsopen(path.c_str(), L"rb", _SH_DENYNO); }
int Seek(std::FILE* pFile, std::uint64_t ull) { return _fseeki64(pFile, static_cast<long long>(ull), SEEK_SET); }
#else
struct WritersTurn {
  WritersTurn() {}
};
std::FILE* OpenForReading(const std::filesystem::path& path) { return std::fopen(path.c_str(), "rb"); }
int Seek(std::FILE* pFile, std::uint64_t ull) { return fseeko(pFile, static_cast<off_t>(ull), SEEK_SET); }
#endif

// Bytes of a file from a position on; 0 at its end or when it cannot be opened now.
std::size_t ReadBlock(const std::filesystem::path& path, std::uint64_t ullAt, char* pBlock) {
  const WritersTurn turn;
  std::FILE* pFile = OpenForReading(path);
  if (pFile == nullptr) return 0;
  std::setvbuf(pFile, nullptr, _IONBF, 0);
  const std::size_t cb = Seek(pFile, ullAt) == 0 ? std::fread(pBlock, 1, kBlock, pFile) : 0;
  std::fclose(pFile);
  return cb;
}

bool IsDate(const std::string& strName) { return IsDayName(strName.substr(0, 8)); }

// Rotated files of a day, by the time of their names, then the day's own.
bool Older(const LogReader::Source& left, const LogReader::Source& right) {
  const auto key = [](const std::string& strName) {
    const bool bRotated = strName.size() > 8 && strName[8] == '_';
    return std::pair(strName.substr(0, 8), bRotated ? strName : "~" + strName);
  };
  return key(TextOfPath(left.path.filename())) < key(TextOfPath(right.path.filename()));
}

}  // namespace

std::filesystem::path DefaultLogFolder() {
#ifdef _WIN32
  wchar_t wszData[MAX_PATH] = {};
  if (!SHGetSpecialFolderPathW(nullptr, wszData, CSIDL_COMMON_APPDATA, FALSE)) return {};
  return std::filesystem::path(wszData) / "Kelvane" / "Logs" / "PrinterDriver";
#else
  return {};
#endif
}

LocalMs TimeOf(const LogLine& line, const LogReader::Source& source) { return line.Time(source.nYear, source.nMonth); }

LogReader::LogReader(const std::vector<std::string>& inputs) : m_block(kBlock + kPage) {
  std::vector<std::filesystem::path> paths;
  for (const std::string& strInput : inputs) paths.push_back(PathOf(strInput));
  if (paths.empty()) paths.push_back(DefaultLogFolder());
  for (const std::filesystem::path& path : paths) {
    std::error_code error;
    if (path.empty())
      throw std::runtime_error("this machine has no log of the monitor: name a folder or files with --log");
    if (std::filesystem::is_directory(path, error)) {
      m_folders.push_back(path);
    } else if (std::filesystem::exists(path, error)) {
      AddFile(path);
    } else {
      throw std::runtime_error("there is no " + TextOfPath(path) + ": name the log's folder or files with --log");
    }
  }
  for (const std::filesystem::path& folder : m_folders) AddFolder(folder);
  DropCopies();
  Refresh();
}

void LogReader::DropCopies() {
  // Lines begin with a time and a thread: no two files begin with the same thousand bytes unless one is of the other.
  constexpr std::size_t kHead = 1024;
  const auto headOf = [](const Source& source) {
    std::string str(kHead, '\0');
    std::FILE* pFile = OpenForReading(source.path);
    str.resize(pFile != nullptr ? std::fread(str.data(), 1, kHead, pFile) : 0);
    if (pFile != nullptr) std::fclose(pFile);
    return str;
  };
  std::unordered_map<std::string, std::size_t> firstOf;  // by the head; shorter files are the same when they are whole
  std::vector<Source> kept;
  std::error_code error;
  for (Source& source : m_sources) {
    const std::string strHead = headOf(source);
    const auto [it, bNew] = firstOf.emplace(strHead, kept.size());
    if (strHead.empty() || bNew) {
      kept.push_back(std::move(source));
      continue;
    }
    if (std::filesystem::file_size(source.path, error) > std::filesystem::file_size(kept[it->second].path, error))
      std::swap(kept[it->second], source);
    m_copies.push_back(source.path);
  }
  m_sources = std::move(kept);
}

void LogReader::AddFile(const std::filesystem::path& file) {
  Source source;
  source.path = file;
  source.strName = Printable(TextOfPath(file));
  const std::string strName = TextOfPath(file.filename());
  if (IsDate(strName)) {
    source.nYear = std::stoi(strName.substr(0, 4));
    source.nMonth = std::stoi(strName.substr(4, 2));
  } else {  // a file under another name: the year of its last write
    source.bYearGuessed = true;
    const auto age = std::filesystem::file_time_type::clock::now() - std::filesystem::last_write_time(file);
    const std::time_t written = std::time(nullptr) - std::chrono::duration_cast<std::chrono::seconds>(age).count();
    const std::tm* pLocal = std::localtime(&written);
    source.nYear = pLocal != nullptr ? pLocal->tm_year + 1900 : 2000;
    source.nMonth = pLocal != nullptr ? pLocal->tm_mon + 1 : 1;
  }
  m_sources.push_back(std::move(source));
}

void LogReader::AddFolder(const std::filesystem::path& folder) {
  std::error_code error;
  std::vector<std::filesystem::path> found;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const std::string strName = TextOfPath(entry.path().filename());
    if (IsDate(strName) && strName.ends_with(".log") && entry.is_regular_file(error)) found.push_back(entry.path());
  }
  for (const std::filesystem::path& path : found) {
    const auto same = [&](const Source& source) { return source.path == path; };
    if (std::none_of(m_sources.begin(), m_sources.end(), same) &&
        std::find(m_copies.begin(), m_copies.end(), path) == m_copies.end())
      AddFile(path);
  }
}

void LogReader::Refresh() {
  const std::size_t nBefore = m_sources.size();
  for (const std::filesystem::path& folder : m_folders) AddFolder(folder);
  // A day's file that has become shorter was moved aside: what was read of it is read of the newest file with its date.
  std::error_code error;
  for (std::size_t n = 0; n < nBefore; ++n) {
    Source& source = m_sources[n];
    const auto ullSize = std::filesystem::file_size(source.path, error);
    if (error || ullSize >= source.ullRead) continue;
    const std::string strDate = TextOfPath(source.path.filename()).substr(0, 8);
    Source* pMoved = nullptr;
    for (std::size_t m = nBefore; m < m_sources.size(); ++m)
      if (TextOfPath(m_sources[m].path.filename()).starts_with(strDate + "_") &&
          (pMoved == nullptr || Older(*pMoved, m_sources[m])))
        pMoved = &m_sources[m];
    if (pMoved != nullptr) {
      pMoved->ullRead = source.ullRead;
      pMoved->nLines = source.nLines;
      pMoved->strPartial = std::move(source.strPartial);
    }
    source.ullRead = source.nLines = 0;
    source.strPartial.clear();
  }
  m_order.resize(m_sources.size());
  for (std::uint32_t n = 0; n < m_order.size(); ++n) m_order[n] = n;
  std::stable_sort(m_order.begin(), m_order.end(),
                   [&](std::uint32_t l, std::uint32_t r) { return Older(m_sources[l], m_sources[r]); });
}

std::uint64_t LogReader::TotalBytes() const {
  std::uint64_t ullTotal = 0;
  std::error_code error;
  for (const Source& source : m_sources) {
    const auto ull = std::filesystem::file_size(source.path, error);
    if (!error) ullTotal += ull;
  }
  return ullTotal;
}

void LogReader::Read(const OnLine& onLine, bool bWhole, const OnProgress& onProgress) {
  const std::uint64_t ullTotal = onProgress ? TotalBytes() : 0;
  std::uint64_t ullDone = 0;
  // A copy out of the system's cache is twice as fast to the beginning of a page.
  char* const pBlock = m_block.data() + (kPage - reinterpret_cast<std::uintptr_t>(m_block.data()) % kPage);
  for (const std::uint32_t nSource : m_order) {
    Source& source = m_sources[nSource];
    while (const std::size_t cb = ReadBlock(source.path, source.ullRead, pBlock)) {
      source.ullRead += cb;
      const char* p = pBlock;
      const char* const pEnd = p + cb;
      while (p < pEnd) {
        const auto* pLineEnd = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(pEnd - p)));
        if (pLineEnd == nullptr) {
          if (source.strPartial.size() < kLongestLine) source.strPartial.append(p, pEnd);
          break;
        }
        if (source.strPartial.empty()) {
          onLine({{p, static_cast<std::size_t>(pLineEnd - p)}, nSource, ++source.nLines});
        } else {
          source.strPartial.append(p, pLineEnd);
          onLine({source.strPartial, nSource, ++source.nLines});
          source.strPartial.clear();
        }
        p = pLineEnd + 1;
      }
      ullDone += cb;
      if (onProgress) onProgress(ullDone, ullTotal);
    }
    if (bWhole && !source.strPartial.empty()) {
      onLine({source.strPartial, nSource, ++source.nLines, false});
      source.strPartial.clear();
    }
  }
}

}  // namespace lmctl
