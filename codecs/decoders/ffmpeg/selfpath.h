#pragma once
// Seam: where the plug-in's own library file lies. The worker is found
// relative to it, never through a search path.

#include <string>

// Full path of the library file that holds this code, UTF-8; empty when the
// system can't tell. Absolute and fixed from the library's load on: a later
// change of the working directory doesn't move it.
std::string OwnLibraryPath();

// The worker's file name, one folder above the plug-in's folder; also the
// bare name the worker gets as its first argument.
const char* WorkerFileName();

// The separator between the folders of OwnLibraryPath().
char FolderSeparator();
