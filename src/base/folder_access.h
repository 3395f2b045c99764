// The access rule of the folders that every user's programs write to, the log folders and the job archive; and who owns what.
#pragma once

#include <windows.h>

// Gives the built-in Users group (S-1-5-32-545) full access to an open folder, inherited by what lies in it, in place of
// the folder's own entries; entries that it inherits stay in force. The handle has the rights READ_CONTROL and WRITE_DAC.
// Returns whether the new list was set. Nothing is logged: the log itself calls this.
bool GrantUsersFullAccess(HANDLE hFolder) noexcept;

// Whether the owner of an open file or folder is the system, the service that installs Windows, or the administrators. The
// handle has the right READ_CONTROL.
bool BelongsToTheMachine(HANDLE hFile) noexcept;
