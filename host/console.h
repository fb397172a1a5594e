#pragma once
// Seam: fdhost's command line and standard streams. Arguments arrive as
// UTF-8 (on Windows from the wide command line), and standard output takes
// bytes as they are: UTF-8 text and audio alike.

#include <string>
#include <vector>

namespace host::console {

// The arguments after the program's name, as UTF-8.
std::vector<std::string> Arguments(int argc, char** argv);
// Puts standard output and error into binary mode where a system translates.
void PrepareStandardStreams();
bool StandardOutputIsTerminal();
bool StandardErrorIsTerminal();
// A reader that went away becomes a write error instead of a signal that
// ends fdhost (Windows has no such signal).
void IgnoreBrokenPipe();

}  // namespace host::console
