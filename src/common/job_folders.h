// Folders of the job archive.
#pragma once
#include <windows.h>

#include "base/safe_path.h"

// Makes a folder level by level, cut at each backslash, and gives the deepest level the Users access rule. TRUE when the
// folder exists afterwards. A null or empty path: FALSE with last error ERROR_INVALID_PARAMETER.
BOOL CreateJobFolder(const wchar_t* pszPath) noexcept;

// Deletes a folder with all it holds, but for sub-folders whose names begin with a dot; the folder that it lies in is held
// open by the caller. A link goes, what it leads to stays; a folder that still holds something stays. Needs the same stack
// however deep they lie. Returns how many folders it left alone because their path is too long, or memory is short.
unsigned DeleteFolderTree(const SafeFolder& parent, const wchar_t* pszName) noexcept;

// Deletes what a listing of an open folder brought: a folder with all it holds; a file or a link alone. Returns the same.
unsigned DeleteListed(const SafeFolder& folder, const WIN32_FIND_DATAW& entry) noexcept;
