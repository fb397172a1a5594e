#pragma once
// fdhost's command line, read with CLI11: the common options, one
// subcommand per row of the command table, --help and --version.

#include <string>
#include <vector>

namespace CLI {
class Validator;
}

namespace host {

// Parses the arguments (UTF-8, without the program's name) and runs the
// command; prints help, the version or a usage error itself. An ExitCode.
int RunCommandLine(std::vector<std::string> args);

// For numeric options: a whole number of at least 0.
const CLI::Validator& WholeNumber();
// For paths: not empty.
const CLI::Validator& NonEmpty();

}  // namespace host
