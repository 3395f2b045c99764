// What tests and tools steer in the POSIX layer: time, the scheduler's seed, faults, accounts and the sandbox.
// The product never includes this file.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace w32 {

// How threads run: environment variable W32_TIME, read at the first call. "simulated", the default: one at a time, in an
// order that the seed picks. "free": as the machine lets them, for the thread sanitizer and for measurements. In both the
// clock jumps when no thread can run, and a platform call moves it on a little; how fast the machine is changes nothing.

// Restarts the scheduler's and the random faults' pseudo-random sequence (W32_SEED sets the first; where threads run freely only the latter).
void SetSeed(std::uint64_t ullSeed) noexcept;

// Moves the clock forward without letting anything run; a thread whose time-out has passed runs at the next hand-over.
void AdvanceClock(std::uint64_t ullMilliseconds) noexcept;
// Sets the clock to a local time. Waits in progress keep their remaining time.
void SetClock(const SYSTEMTIME& stLocal) noexcept;
// 100-ns units since 1601, local time.
std::uint64_t ClockTicks() noexcept;
// Value that GetTickCount adds to the milliseconds since process start, to place its wrap-around.
void SetTickBase(DWORD dwBase) noexcept;

// ---- exploration ------------------------------------------------------------------------------------------------------
// In simulated time the order of events can be chosen instead of drawn. Every platform call is a crossing, and so is every
// wait; whoever explores says which way is taken. The same choices give the same run.

// Where the run may go on.
struct Choice {
  enum class Kind : std::uint8_t {
    Goes,      // a thread that can run
    TimeIsUp,  // one whose time-out is the next: the clock jumps to it, as if the others had been slow
    Happens,   // one that awaits its moment
  };
  const char* pszThread;
  Kind kind;
  bool bPreempts;  // takes the turn from a thread that could go on
};
// What a call touches of what threads share.
struct Touched {
  std::uint64_t ullWhat = 0;  // the same in every run; 0: anything
  bool bReads = false;        // it changes nothing
};
struct Crossing {
  const char* pszThread;  // who comes here
  const char* pszCall;    // the call that it is about to make, or the wait that it is in
  Touched touched;
  bool bWaits;
  bool bNoted;                      // what it did since its last call others can see: see NoteStep
  std::span<const Choice> choices;  // the first is what happens if nobody interferes
};
// From now on a way is chosen at each crossing. The routine is called with the layer's lock held: it may not call the layer.
void ExploreBy(std::function<std::size_t(const Crossing&)> choose);
// Names the calling thread; one that it creates is called its watcher.
void NameThread(const char* pszName);
// Waits for its moment: goes on when it is chosen, when the time is over, or when nobody else can ever run.
void AwaitMoment(DWORD dwMilliseconds = INFINITE);
// How long threads were kept waiting by choice, in all.
std::uint64_t LateMilliseconds() noexcept;

// What the calling thread does between its last call and its next one is something that others can see.
void NoteStep() noexcept;
// What a thread does between these two is one step of an exploration: nobody interferes. Not for what waits. They nest.
void BeginStep() noexcept;
void EndStep() noexcept;

// Ends the process (status 77) at the n-th place from now on: before a call, or in the middle of one that takes effect in parts.
// 0: nowhere. The routine runs first. Simulated time only.
constexpr int kDeathStatus = 77;
void DieAt(std::uint64_t ullPlace, std::function<void()> lastAct = {});
// Places that were passed since.
std::uint64_t PlacesToDie() noexcept;

// ---- faults -----------------------------------------------------------------------------------------------------------
// Every platform call that can fail is a fault point. Points are numbered from 1 in the order in which threads that are
// subject to faults reach them; a thread is subject inside a FaultsOn scope and when its creator was.

// Starts a new count; nothing fails.
void ResetFaults() noexcept;
// Fault points passed since ResetFaults.
std::uint64_t FaultPointsPassed() noexcept;
// Fails the n-th point since ResetFaults (1 = the first).
void FailPoint(std::uint64_t ullPoint) noexcept;
// Fails the next nTimes calls of one API after letting nSkip of them pass, with dwError (0: the call's usual error).
// Acts on subject threads only, like all faults.
void FailCalls(const char* pszApi, unsigned nTimes = 1, unsigned nSkip = 0, DWORD dwError = 0) noexcept;
// Lets the next call of one API, after nSkip of them, take this long instead of failing. Acts on subject threads only.
void SlowCall(const char* pszApi, DWORD dwMilliseconds, unsigned nSkip = 0) noexcept;
// Fails points at random: nPerMille of a thousand.
void FailRandomly(unsigned nPerMille) noexcept;
// Name of the API that failed last, or an empty text.
std::string LastFailedApi();

// Makes the calling thread subject to faults (or exempt) for a scope.
class FaultsOn {
 public:
  explicit FaultsOn(bool bOn = true) noexcept;
  ~FaultsOn();
  FaultsOn(const FaultsOn&) = delete;
  FaultsOn& operator=(const FaultsOn&) = delete;

 private:
  bool m_bBefore;
};

// For routines that a program answers itself (the spooler's, say): one fault point. TRUE means the call must fail; the
// last-error code is then dwUsualError or the one that the test asked for.
bool FaultHere(const char* pszApi, DWORD dwUsualError) noexcept;
// The same for a routine that returns its code and leaves the last-error code alone; ERROR_SUCCESS means go on.
DWORD FaultCode(const char* pszApi, DWORD dwUsualError) noexcept;
// For the same routines: counts a platform call, at which the scheduler may hand over.
void PlatformCall(const char* pszApi = __builtin_FUNCTION(), Touched touched = {}) noexcept;

// ---- accounts ---------------------------------------------------------------------------------------------------------
enum class Account {
  Handles,
  Threads,
  CriticalSections,
  HeapBlocks,
  LocalBlocks,
  Sids,
  Keys,
  Finds,
  Modules,
  PrinterHandles,
  ServiceHandles,
  Count
};
const char* AccountName(Account account) noexcept;
void Book(Account account, int nChange) noexcept;
using Balance = std::array<int, static_cast<std::size_t>(Account::Count)>;
Balance CurrentBalance() noexcept;
// What is open now and was not before: one line an account, empty when nothing is.
std::string Leaks(const Balance& before);
// Bytes of the process heap that are in use, the allocator's rounding included, and the most that ever were.
struct HeapCount {
  std::uint64_t ullNow;
  std::uint64_t ullPeak;
};
HeapCount HeapBytes() noexcept;
void ResetHeapPeak() noexcept;

// ---- sandbox ----------------------------------------------------------------------------------------------------------
// Host folder that stands for the drives: drive C is its subfolder "c", and so on. Environment variable W32_ROOT, or a
// temporary folder that is removed when the process ends.
const std::string& SandboxRoot();
// Moves the drives to another host folder, which holds what this one does.
void UseSandbox(const std::string& strRoot);
// Removes the temporary folder, for a program that starts itself anew with another one.
void DropSandbox();
// Host path of a Windows path (the part that does not exist yet is taken as written).
std::string HostPath(const wchar_t* pszPath);
// Turns an empty folder into a link where it stands, and back, as a program does that sets and deletes its reparse point:
// nobody's handle to the folder keeps it from that. False when something lies in it. A link that was deleted meanwhile is
// not turned back.
bool TurnIntoLink(const wchar_t* pszFolder, const wchar_t* pszTarget);
void TurnIntoFolder(const wchar_t* pszLink);
// What the world does to a file or folder; by its place now, held by the file itself.
// Somebody holds an opportunistic lock and never gives it up: an open that may wait for that waits for ever.
void HoldOplock(const wchar_t* pszPath);
void DropOplocks();
// A virus scanner has it open, without sharing, for a while.
void RefuseSharing(const wchar_t* pszPath, DWORD dwMilliseconds);
// It has a reparse point of its own: a placeholder, or one that the system keeps otherwise.
void SetReparseTag(const wchar_t* pszPath, DWORD dwTag);
// A user is its owner; all others belong to the system.
void GiveToAUser(const wchar_t* pszPath);
// The volume tells final paths only as they were opened, as some network shares do.
void RefuseNormalizedNames(bool bRefuse);

// Which client the thread acts for; 0: nobody. Each has a hive of its own, and one may refuse its own to everybody.
void ActFor(unsigned nClient) noexcept;
void RefuseHive(unsigned nClient, bool bRefuse);
// One line per entry of a folder's access list, as "SID mask flags"; empty when the folder keeps its default list.
std::string AccessListOf(const wchar_t* pszFolder);

// Makes LoadLibraryW find a library: file name (without folder) and its entry points by ordinal 1..n. The file itself
// must exist where it is loaded from.
void ProvideLibrary(const wchar_t* pszFileName, FARPROC const* ppEntryPoints, int nEntryPoints);

// Receives every text handed to OutputDebugStringW (UTF-8) instead of the standard error stream; null restores it.
void SetDebugSink(void (*pfnSink)(const std::string& strText)) noexcept;

std::string ToUtf8(const wchar_t* pszText);

}  // namespace w32
