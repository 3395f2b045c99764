// A simulated receipt printer: an input buffer that is worked off at a speed, answers in one of the two status protocols,
// faults, and the paper that came out.
//
// The printer lives by the clock: whenever somebody talks to it, it first does what it would have done since the last
// time. It answers a request when all data before it has been processed. Once asked for its status it also reports every
// change by itself.
#pragma once

#include <windows.h>

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "sim/journal.h"

namespace sim {

enum class FaultKind {
  PaperEnd,      // printing stops, the status says so
  CoverOpen,     // likewise
  OffLine,       // nothing gets through the line, printing goes on
  PowerCycle,    // off for a while; input buffer and answers are lost
  BlankStatus,   // a status that tells nothing; what holds is said when the fault is over
  Garbage,       // bytes that mean nothing between the answers
  SplitAnswers,  // answers come in pieces of up to three bytes
  Silence,       // answers are held back and then come all at once
  WrongNumber,   // an execution response with another number comes before the next right one
  LateAnswer,    // the execution response of an earlier job comes again
  Chatter,       // bytes that mean nothing behind every answer, without end
  LostBytes,     // the last bytes of each status get lost; then it is said again
};

// Names as tools take them: "paper-end", "cover-open", … Returns false for an unknown name.
bool FaultKindOf(const std::string& strName, FaultKind& kind);
std::string FaultKindNames();

struct Fault {
  FaultKind kind;
  std::uint64_t ullAtByte;   // starts when the printer is about to process this byte of its life (0 = its first)
  DWORD dwMilliseconds = 0;  // how long it lasts
};

struct PrinterSettings {
  bool bOneByteStatus = false;
  std::size_t cbBuffer = 64 * 1024;
  DWORD dwBytesPerSecond = 0;  // 0: as fast as data comes
};

class Printer {
 public:
  Printer() = default;
  void Configure(const PrinterSettings& settings);
  void Plan(const Fault& fault);

  // The line. Accept takes what fits into the buffer; TakeAnswers gives what the printer has said.
  bool Reachable();
  std::size_t Accept(const BYTE* pBytes, std::size_t cb);
  std::size_t TakeAnswers(BYTE* pBuf, std::size_t cbRoom);
  // A reset by the line: buffer and answers are dropped, the paper begins a new strip.
  void Reset();

  // The paper: strips are separated by resets and power cycles. Requests are not on it.
  std::vector<std::string> Strips();
  std::string LastStrip();
  std::uint64_t BytesProcessed();
  // Whether all that was accepted has been processed.
  bool Idle();
  std::string State();  // for a progress line: "printing", "paper-end", …

  // The execution responses that it gave when they were due; strays of a fault do not count.
  struct ExecResponses {
    unsigned nCount = 0;
    BYTE byLast = 0;
  };
  ExecResponses Responses();

 private:
  struct Active {
    FaultKind kind;
    DWORD dwEnds;
  };
  bool Is(FaultKind kind) const;
  bool Halted() const { return Is(FaultKind::PaperEnd) || Is(FaultKind::CoverOpen) || Is(FaultKind::PowerCycle); }
  void Advance();
  void Process(DWORD dwMilliseconds);
  void StartFaults();
  void EndFault(FaultKind kind);
  bool AnswerRequest();
  std::size_t PlainBytes() const;
  void Say(std::initializer_list<BYTE> bytes);
  void SayStatus();
  void NewStrip();

  Lock m_lock;  // guards all below
  PrinterSettings m_settings;
  std::deque<BYTE> m_buffer;
  std::deque<BYTE> m_answers;
  std::vector<std::string> m_strips{std::string()};
  std::vector<Fault> m_planned;
  std::vector<Active> m_active;
  DWORD m_dwNow = 0;
  bool m_bStarted = false;
  std::uint64_t m_ullCredit = 0;  // thousandths of a byte that may still be processed
  std::uint64_t m_ullProcessed = 0;
  bool m_bAutomaticStatus = false;
  ExecResponses m_responses;
  bool m_bWrongNumberNext = false;
  bool m_bGarbageNext = false;
};

}  // namespace sim
