#pragma once
// The worker stand-in's commands for the transport tests (Linux only; on
// Windows there are none): runs them in order, returns the exit status.
int RunCommands(int argc, char** argv);
