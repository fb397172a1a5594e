#pragma once
// Child processes for the benchmark: run one to its end and time it, or start
// one with its output on a pipe and time its first byte.

#include <string>
#include <vector>

namespace bench {

// Seconds from start to end of `argv` (argv[0] a full path), with standard
// output to `stdoutPath`; throws std::runtime_error when it fails.
double TimeRun(const std::vector<std::string>& argv, const std::string& stdoutPath = "/dev/null");
// Seconds from start until both have ended of `writer | reader`, the
// reader's output to /dev/null; throws std::runtime_error when one fails.
double TimePipeline(const std::vector<std::string>& writer, const std::vector<std::string>& reader);
// Seconds from start until the first byte of its standard output is there.
// The process is killed and reaped afterwards.
double TimeFirstByte(const std::vector<std::string>& argv);

double Median(std::vector<double> values);

}  // namespace bench
