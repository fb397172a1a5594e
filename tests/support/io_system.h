#pragma once
// What the file and log tests ask of the system they run on.

#include <cstdint>
#include <string>

// Whether a child process would inherit `handle` (a descriptor on Linux, a
// HANDLE on Windows).
bool Inheritable(intptr_t handle);
// Sets the system's last error to "file not found" and gives the code as the
// error texts show it.
std::u16string FileNotFoundErrorCode();
