#pragma once
// What the worker stand-in needs of its system: standard output and error that pass bytes as they are, and the
// transport tests' commands (Linux only; Windows has none), run in order, giving the exit status.
void PrepareOutputs();
int RunCommands(int argc, char** argv);
