#pragma once
// What the worker stand-in (fake_worker.cpp) needs from its system.

// Standard output and error take the bytes as they are, and a write to a
// pipe whose reader is gone fails rather than ends the program.
void PrepareOutputs();

// The transport tests' commands (Linux only); returns the exit status.
int RunCommands(int argc, char** argv);
