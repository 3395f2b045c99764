// Whose name the thread acts in.
#pragma once

#include <windows.h>

// Runs a scope in the spooler's own security context; the end of the scope, or Restore, impersonates the client again and
// keeps the thread's last-error code.
class RevertedToSelf {
 public:
  RevertedToSelf() noexcept;
  ~RevertedToSelf() { Restore(); }
  RevertedToSelf(const RevertedToSelf&) = delete;
  RevertedToSelf& operator=(const RevertedToSelf&) = delete;

  // Goes back to the client, once. FALSE, with a line of level E, when the client cannot be impersonated again: whatever
  // is left of the spooler's call then does nothing in the client's name.
  bool Restore() noexcept;

 private:
  HANDLE m_hToken;  // null: the thread did not act for a client, or goes on doing so
  bool m_bRestored = true;
};
