#pragma once
// The file seam: an OS file handle with the calls clFile needs. Every call
// leaves the platform's last error (platform::LastError) set on failure and
// reports by its result; none raises.

#include <cstdint>
#include <string>

#include "support/clFile.h"

namespace filehandle {

// Opens an existing file (never a folder) for reading, writing or both;
// kNoFileHandle on failure. The handle is not inherited by child processes.
clFileHandle Open(const clString& path, uint32_t access, uint32_t shareMode);
void Close(clFileHandle handle);

// At the handle's current position, which they advance. `done` counts the
// bytes moved, also on failure. Read stops short only at the end of file.
bool Read(clFileHandle handle, void* buffer, uint32_t count, uint32_t& done);
bool Write(clFileHandle handle, const void* buffer, uint32_t count, uint32_t& done);

// `origin` as clFile::Origin; `position` gets the new position.
bool Seek(clFileHandle handle, int64_t offset, int origin, int64_t& position);
bool Size(clFileHandle handle, int64_t& size);
// Cuts or extends the file at the handle's current position.
bool SetEndOfFile(clFileHandle handle);

// The form of a path the open call needs (unchanged where paths have no limit).
clString LongPath(const clString& path);

}  // namespace filehandle
