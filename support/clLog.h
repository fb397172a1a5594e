#pragma once
// The plug-in's trace and error lines, UTF-16LE, to the two log sinks the host
// opened. A line: prefix + message, then (when ended) two blanks, "[label]"
// when a label is given, CR LF. Messages starting "->->" / "<-<-" open and
// close a two-blank indentation level.

#include <cstdint>

#include "support/clString.h"

// The head of a decoder object: the three words of DecoderCreateInfo.
// A sink of 0 or all ones is none. On Linux a sink is a file descriptor.
struct clLogTarget {
    uint64_t errorLog = 0;
    uint64_t reserved = 0;
    uint64_t traceLog = 0;
};

namespace clLog {

void Trace(const char16_t* message, const clLogTarget* target, const char* label,
           bool endLine = true, const char16_t* prefix = nullptr);
void Error(const char16_t* message, const clLogTarget* target, const char* label);
inline void Trace(const clString& message, const clLogTarget* target, const char* label,
                  bool endLine = true) {
    Trace(message.Text(), target, label, endLine);
}
inline void Error(const clString& message, const clLogTarget* target, const char* label) {
    Error(message.Text(), target, label);
}

// For tests: the present indentation, and a reset of the process-wide state.
clString CurrentIndent();
void ResetForTesting();

}  // namespace clLog
