#include "sim/printer.h"

#include <algorithm>
#include <iterator>

namespace sim {
namespace {

struct KindName {
  const char* pszName;
  FaultKind kind;
};
constexpr BYTE kNoise = 0x21;  // no part of an answer in either protocol

constexpr KindName kKindNames[] = {{"paper-end", FaultKind::PaperEnd},
                                   {"cover-open", FaultKind::CoverOpen},
                                   {"off-line", FaultKind::OffLine},
                                   {"power-cycle", FaultKind::PowerCycle},
                                   {"blank-status", FaultKind::BlankStatus},
                                   {"garbage", FaultKind::Garbage},
                                   {"split-answers", FaultKind::SplitAnswers},
                                   {"silence", FaultKind::Silence},
                                   {"wrong-number", FaultKind::WrongNumber},
                                   {"late-answer", FaultKind::LateAnswer},
                                   {"chatter", FaultKind::Chatter},
                                   {"lost-bytes", FaultKind::LostBytes}};

}  // namespace

bool FaultKindOf(const std::string& strName, FaultKind& kind) {
  for (const KindName& known : kKindNames) {
    if (strName != known.pszName) continue;
    kind = known.kind;
    return true;
  }
  return false;
}

std::string FaultKindNames() {
  std::string str;
  for (const KindName& known : kKindNames) str += (str.empty() ? "" : ", ") + std::string(known.pszName);
  return str;
}

void Printer::Configure(const PrinterSettings& settings) {
  const Guard guard(m_lock);
  m_settings = settings;
}

void Printer::Plan(const Fault& fault) {
  const Guard guard(m_lock);
  m_planned.push_back(fault);
}

bool Printer::Is(FaultKind kind) const {
  return std::any_of(m_active.begin(), m_active.end(), [&](const Active& active) { return active.kind == kind; });
}

void Printer::Say(std::initializer_list<BYTE> bytes) {
  if (m_bGarbageNext) {
    m_bGarbageNext = false;
    // None of these is part of an answer in either protocol, and none cuts a status off.
    for (const BYTE by : {kNoise, BYTE{0x3A}, BYTE{0xA7}, BYTE{0x11}}) m_answers.push_back(by);
  }
  m_answers.insert(m_answers.end(), bytes.begin(), bytes.end());
}

// Bit 0 of the first status byte is the cover, bit 1 the paper. A ready printer of the eight-byte protocol shows a bit
// that no model counts as an error, so its status is never the blank one.
void Printer::SayStatus() {
  const auto byErrors = static_cast<BYTE>((Is(FaultKind::CoverOpen) ? 1 : 0) | (Is(FaultKind::PaperEnd) ? 2 : 0));
  if (m_settings.bOneByteStatus) {
    Say({static_cast<BYTE>(0x40 | byErrors)});
  } else {
    Say({static_cast<BYTE>(0xC0 | byErrors), 0xD2, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0});
    if (Is(FaultKind::LostBytes)) m_answers.resize(m_answers.size() - 3);
  }
}

void Printer::NewStrip() {
  if (!m_strips.back().empty()) m_strips.emplace_back();
}

void Printer::StartFaults() {
  for (std::size_t n = 0; n < m_planned.size();) {
    const Fault fault = m_planned[n];
    if (fault.ullAtByte > m_ullProcessed) {
      ++n;
      continue;
    }
    m_planned.erase(m_planned.begin() + static_cast<std::ptrdiff_t>(n));
    switch (fault.kind) {
      case FaultKind::BlankStatus: Say({0xC0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0}); break;
      case FaultKind::Garbage: m_bGarbageNext = true; continue;
      case FaultKind::WrongNumber: m_bWrongNumberNext = true; continue;
      case FaultKind::LateAnswer:
        if (m_responses.nCount != 0) Say({m_responses.byLast});
        continue;
      case FaultKind::PowerCycle:
        m_buffer.clear();
        m_answers.clear();
        m_bAutomaticStatus = true;  // how it comes up again
        NewStrip();
        break;
      default: break;
    }
    m_active.push_back({fault.kind, m_dwNow + fault.dwMilliseconds});
    if ((fault.kind == FaultKind::PaperEnd || fault.kind == FaultKind::CoverOpen) && m_bAutomaticStatus) SayStatus();
  }
}

void Printer::EndFault(FaultKind kind) {
  if (kind == FaultKind::PowerCycle) Say({0xC0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0});
  if (kind == FaultKind::OffLine) {  // a printer whose line comes back reports itself from then on
    m_bAutomaticStatus = true;
    SayStatus();
  }
  const bool bStatusChanged = kind == FaultKind::PaperEnd || kind == FaultKind::CoverOpen ||
                              kind == FaultKind::PowerCycle || kind == FaultKind::LostBytes ||
                              kind == FaultKind::BlankStatus;
  if (bStatusChanged && m_bAutomaticStatus) SayStatus();
}

// Whether the next bytes are a request; it is answered and taken then.
bool Printer::AnswerRequest() {
  const auto at = [&](std::size_t n) { return n < m_buffer.size() ? int{m_buffer[n]} : -1; };
  const auto take = [&](std::size_t n) {
    m_buffer.erase(m_buffer.begin(), m_buffer.begin() + static_cast<std::ptrdiff_t>(n));
  };
  if (m_settings.bOneByteStatus) {
    if (at(0) == 0x01) {
      take(1);
      m_bAutomaticStatus = true;
      SayStatus();
      return true;
    }
    if (at(0) == 0xA5) {
      take(1);
      m_responses = {m_responses.nCount + 1, 0xC9};
      Say({0xC9});
      return true;
    }
    return false;
  }
  if (at(0) == 0x1D && at(1) == 0x61 && at(2) == 0xFF) {
    take(3);
    m_bAutomaticStatus = true;
    SayStatus();
    return true;
  }
  if (at(0) == 0x12 && at(1) == 0x71 && at(2) >= 0) {
    const auto byNumber = static_cast<BYTE>(at(2));
    take(3);
    if (m_bWrongNumberNext) Say({static_cast<BYTE>(byNumber ^ 0x07)});
    m_bWrongNumberNext = false;
    m_responses = {m_responses.nCount + 1, byNumber};
    Say({byNumber});
    return true;
  }
  return false;
}

// How many bytes in front begin no command and are reached before the next fault: they are printed in one piece.
std::size_t Printer::PlainBytes() const {
  std::uint64_t ullMost = m_settings.dwBytesPerSecond == 0 ? m_buffer.size() : m_ullCredit / 1000;
  for (const Fault& fault : m_planned) ullMost = std::min(ullMost, fault.ullAtByte - m_ullProcessed);
  std::size_t n = 0;
  for (auto it = m_buffer.begin(); n < ullMost && it != m_buffer.end(); ++it, ++n) {
    const BYTE by = *it;
    if (by == 0x01 || by == 0x10 || by == 0x12 || by == 0x1D || by == 0xA5) break;
  }
  return n;
}

void Printer::Process(DWORD dwMilliseconds) {
  const bool bInstant = m_settings.dwBytesPerSecond == 0;
  m_ullCredit += static_cast<std::uint64_t>(dwMilliseconds) * m_settings.dwBytesPerSecond;
  while (true) {
    StartFaults();
    if (m_buffer.empty() || Is(FaultKind::PowerCycle)) break;
    if (const std::size_t cb = Halted() ? 0 : PlainBytes(); cb > 0) {
      const auto end = m_buffer.begin() + static_cast<std::ptrdiff_t>(cb);
      m_strips.back().append(m_buffer.begin(), end);
      m_buffer.erase(m_buffer.begin(), end);
      m_ullProcessed += cb;
      m_ullCredit -= bInstant ? 0 : std::uint64_t{cb} * 1000;
      continue;
    }
    if (AnswerRequest()) continue;
    // A request may still be on its way: its first bytes wait for the rest.
    const bool bMayBeRequest = !m_settings.bOneByteStatus && m_buffer.size() < 3 &&
                               (m_buffer[0] == 0x1D || m_buffer[0] == 0x12) &&
                               (m_buffer.size() < 2 || m_buffer[1] == (m_buffer[0] == 0x1D ? 0x61 : 0x71));
    if (Halted() || bMayBeRequest || (!bInstant && m_ullCredit < 1000)) break;
    // DLE DC4 1 m t is one command, whose third byte is no status request.
    const bool bPulse = m_buffer.size() >= 5 && m_buffer[0] == 0x10 && m_buffer[1] == 0x14 && m_buffer[2] == 0x01;
    for (int n = bPulse ? 5 : 1; n > 0; --n) {
      m_strips.back() += static_cast<char>(m_buffer.front());
      m_buffer.pop_front();
      ++m_ullProcessed;
      m_ullCredit -= bInstant ? 0 : std::min<std::uint64_t>(m_ullCredit, 1000);
    }
  }
  if (m_buffer.empty() || Halted()) m_ullCredit = 0;
}

void Printer::Advance() {
  const DWORD dwClock = GetTickCount();
  if (!m_bStarted) m_dwNow = dwClock;
  m_bStarted = true;
  while (true) {
    // Time goes from the end of one fault to the next.
    Active* pNext = nullptr;
    for (Active& active : m_active)
      if (static_cast<LONG>(active.dwEnds - dwClock) <= 0 &&
          (pNext == nullptr || static_cast<LONG>(active.dwEnds - pNext->dwEnds) < 0))
        pNext = &active;
    const DWORD dwUntil = pNext != nullptr ? pNext->dwEnds : dwClock;
    const DWORD dwElapsed = static_cast<LONG>(dwUntil - m_dwNow) > 0 ? dwUntil - m_dwNow : 0;
    const std::size_t nActive = m_active.size();
    Process(dwElapsed);
    m_dwNow += dwElapsed;
    if (m_active.size() != nActive) continue;  // a fault began meanwhile: it may end first
    if (pNext == nullptr) return;
    const FaultKind kind = pNext->kind;
    m_active.erase(m_active.begin() + (pNext - m_active.data()));
    EndFault(kind);
  }
}

bool Printer::Reachable() {
  const Guard guard(m_lock);
  Advance();
  return !Is(FaultKind::OffLine) && !Is(FaultKind::PowerCycle);
}

std::size_t Printer::Accept(const BYTE* pBytes, std::size_t cb) {
  const Guard guard(m_lock);
  Advance();
  std::size_t cbTaken = 0;
  do {  // a printer without a speed empties its buffer at once
    const std::size_t cbNow =
        std::min(cb - cbTaken, m_settings.cbBuffer - std::min(m_settings.cbBuffer, m_buffer.size()));
    if (cbNow == 0) break;
    m_buffer.insert(m_buffer.end(), pBytes + cbTaken, pBytes + cbTaken + cbNow);
    cbTaken += cbNow;
    Advance();
    if (Is(FaultKind::OffLine) || Is(FaultKind::PowerCycle)) break;
  } while (m_settings.dwBytesPerSecond == 0);
  return cbTaken;
}

std::size_t Printer::TakeAnswers(BYTE* pBuf, std::size_t cbRoom) {
  const Guard guard(m_lock);
  Advance();
  if (Is(FaultKind::Silence)) return 0;
  if (Is(FaultKind::SplitAnswers)) cbRoom = std::min<std::size_t>(cbRoom, 3);
  const std::size_t cb = std::min(cbRoom, m_answers.size());
  const auto end = m_answers.begin() + static_cast<std::ptrdiff_t>(cb);
  std::copy(m_answers.begin(), end, pBuf);
  m_answers.erase(m_answers.begin(), end);
  if (!Is(FaultKind::Chatter)) return cb;
  std::fill(pBuf + cb, pBuf + cbRoom, kNoise);
  return cbRoom;
}

void Printer::Reset() {
  const Guard guard(m_lock);
  Advance();
  m_buffer.clear();
  m_answers.clear();
  m_bAutomaticStatus = false;
  NewStrip();
}

std::vector<std::string> Printer::Strips() {
  const Guard guard(m_lock);
  Advance();
  return m_strips;
}

std::string Printer::LastStrip() {
  const Guard guard(m_lock);
  Advance();
  return m_strips.back();
}

std::uint64_t Printer::BytesProcessed() {
  const Guard guard(m_lock);
  Advance();
  return m_ullProcessed;
}

Printer::ExecResponses Printer::Responses() {
  const Guard guard(m_lock);
  Advance();
  return m_responses;
}

bool Printer::Idle() {
  const Guard guard(m_lock);
  Advance();
  return m_buffer.empty();
}

std::string Printer::State() {
  const Guard guard(m_lock);
  Advance();
  if (!m_active.empty())
    for (const KindName& known : kKindNames)
      if (known.kind == m_active.front().kind) return known.pszName;
  return m_buffer.empty() ? "ready" : "printing";
}

}  // namespace sim
