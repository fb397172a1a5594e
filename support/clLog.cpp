// clLog: two functions over the decoder's log sinks and a small process-wide
// state, the indentation that "->->" and "<-<-" messages move.

#include "support/clLog.h"

#include <mutex>
#include <string>

#include "support/logsink.h"
#include "support/textcodec.h"

namespace {

struct LogState {
    std::mutex mutex;   // guards the rest and serialises the trace writes
    std::u16string indent;
    bool lineComplete = true;
};

LogState& State() {
    static LogState state;
    return state;
}

bool StartsWith(const char16_t* message, std::u16string_view mark) {
    return std::u16string_view(message).substr(0, mark.size()) == mark;
}

// prefix + message, then for an ended line "  [label]" (with a label) and CR LF.
std::u16string ComposeLine(const char16_t* prefix, const char16_t* message, const char* label, bool endLine) {
    std::u16string line = prefix ? prefix : u"";
    line += message;
    if (!endLine) return line;
    if (label != nullptr && label[0] != 0) {
        line += u"  [";
        line += text::AnsiToUtf16(label);
        line += u"]";
    }
    line += u"\r\n";
    return line;
}

// The host reads the files as UTF-16LE whatever the machine's byte order.
void WriteUtf16Le(uint64_t sink, const std::u16string& line) {
    if (logsink::IsNone(sink)) return;
    std::string bytes;
    bytes.reserve(line.size() * 2);
    for (char16_t unit : line) {
        bytes.push_back(static_cast<char>(unit & 0xFF));
        bytes.push_back(static_cast<char>(unit >> 8));
    }
    logsink::Write(sink, bytes.data(), bytes.size());
}

}  // namespace

namespace clLog {

void Trace(const char16_t* message, const clLogTarget* target, const char* label, bool endLine,
           const char16_t* prefix) {
    if (message == nullptr) message = u"";
    LogState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    // The closing line stands at the level of its opening one.
    if (StartsWith(message, u"<-<-")) {
        for (int i = 0; i < 2 && !state.indent.empty(); ++i) state.indent.pop_back();
    }
    const char16_t* linePrefix = prefix;
    if (linePrefix == nullptr && state.lineComplete) linePrefix = state.indent.c_str();
    if (target != nullptr) WriteUtf16Le(target->traceLog, ComposeLine(linePrefix, message, label, endLine));
    if (StartsWith(message, u"->->")) state.indent += u"  ";
    state.lineComplete = endLine;
}

void Error(const char16_t* message, const clLogTarget* target, const char* label) {
    if (message == nullptr) message = u"";
    Trace(message, target, label, true, u"*** Error: ");
    if (target != nullptr) WriteUtf16Le(target->errorLog, ComposeLine(nullptr, message, label, true));
}

clString CurrentIndent() {
    LogState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    return clString(std::u16string_view(state.indent));
}

void ResetForTesting() {
    LogState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.indent.clear();
    state.lineComplete = true;
}

}  // namespace clLog
