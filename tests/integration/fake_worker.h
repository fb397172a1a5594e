#pragma once
// What the worker stand-in needs of its system.

// Makes the standard output and error pass bytes as they are.
void PrepareOutputs();

// The commands for the transport tests (Linux only; Windows has none): runs
// them in order, returns the exit status.
int RunCommands(int argc, char** argv);
