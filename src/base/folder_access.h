// The access rule of the folders that every user's programs write to: the log folders and the job archive.
#pragma once

// Gives the built-in Users group (S-1-5-32-545) full access to a folder, inherited by what lies in it, in place of the
// folder's own entries; entries that it inherits stay in force. A folder that is missing is created first.
// Returns whether the new list was set. Nothing is logged: the log itself calls this.
bool GrantUsersFullAccess(const wchar_t* pwszFolder) noexcept;
