// What tells Windows that this program's indirect calls are guarded (Control Flow Guard): the load configuration that Windows'
// own compiler brings, and mingw-w64 does not. The loader points the two routines at its own, which look each target up in the
// table that the linker makes; where it knows of no guard they do nothing.
#include <windows.h>

#include <cstddef>

extern "C" {

// The linker's: the table of targets, and numbers that are addresses to it.
extern const char __guard_fids_table[];
extern const char __guard_fids_count[];
extern const char __guard_flags[];

void GuardNothing();
void GuardJump();
__asm__(
    ".text\n"
    ".globl GuardNothing\nGuardNothing:\n  ret\n"
    ".globl GuardJump\nGuardJump:\n  jmp *%rax\n");

// The names are the compiler's. Read-only: the loader unlocks them for itself.
extern void (*const __guard_check_icall_fptr)();
extern void (*const __guard_dispatch_icall_fptr)();
[[gnu::section(".00cfg"), gnu::used]] void (*const __guard_check_icall_fptr)() = &GuardNothing;
[[gnu::section(".00cfg"), gnu::used]] void (*const __guard_dispatch_icall_fptr)() = &GuardJump;

// IMAGE_LOAD_CONFIG_DIRECTORY64 as documented, which mingw-w64 knows without the guard's members, up to the flags.
struct LoadConfig {
  DWORD dwSize;
  BYTE abUnused[0x6C];  // time, version, heap, locks, cookie, handlers of 32-bit programs: the system's defaults
  const void* pGuardCheck;
  const void* pGuardDispatch;
  const void* pGuardTable;
  const void* pGuardCount;
  const void* pGuardFlags;  // 32 bits; the others belong to the member behind it, which is zero
};
static_assert(offsetof(LoadConfig, pGuardCheck) == 0x70 && offsetof(LoadConfig, pGuardFlags) == 0x90);

extern const LoadConfig _load_config_used;
[[gnu::used]] const LoadConfig _load_config_used = {
    0x94,         {}, &__guard_check_icall_fptr, &__guard_dispatch_icall_fptr, __guard_fids_table, __guard_fids_count,
    __guard_flags};

}  // extern "C"
