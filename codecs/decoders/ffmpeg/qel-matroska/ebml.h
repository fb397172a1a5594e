#pragma once
// The EBML container: variable-length integers, streams with a legal range,
// a parser framework that dispatches on element IDs, and writers of elements
// and Void padding. It knows nothing of tags.
//
// Element IDs are held as u32 with the length marker removed (EBML header
// 1A 45 DF A3 is 0x0A45DFA3, Void EC is 0x6C), so IDs are written by the same
// routine as sizes.

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace EBML {

inline constexpr uint64_t kUnknownSize = 0xFFFFFFFFFFFFFFull;   // 56 bits set
inline constexpr uint64_t kNoLimit = ~uint64_t{0};
inline constexpr uint32_t kVoidId = 0x6C;
inline constexpr uint32_t kEbmlHeaderId = 0x0A45DFA3;

inline constexpr char kCorrupted[] = "Corrupted file or unsupported format";

class ParseError : public std::runtime_error {
public:
    ParseError() : std::runtime_error(kCorrupted) {}
    explicit ParseError(const std::string& text) : std::runtime_error(text) {}
};

class OverflowError : public ParseError {
public:
    OverflowError() : ParseError("Overflow") {}
};

// A broken programming rule; raised, never ignored, in every build.
class AssertionFailure : public ParseError {
public:
    explicit AssertionFailure(const char* text) : ParseError(std::string("Assertion failed: ") + text) {}
};

[[noreturn]] void Fail();
inline void Check(bool condition, const char* text) {
    if (!condition) throw AssertionFailure(text);
}

// A position p is legal for the end of a read when begin <= p <= end.
struct Range {
    uint64_t begin = 0;
    uint64_t end = kNoLimit;
};

class Stream {
public:
    virtual ~Stream() = default;
    virtual void Read(void* buffer, uint64_t size) = 0;
    virtual void Skip(uint64_t size) = 0;
    virtual uint64_t Tell() = 0;

    Range m_range;
};

class StreamSeekable : public Stream {
public:
    virtual void Seek(uint64_t position) = 0;
};

class StreamWritable {
public:
    virtual ~StreamWritable() = default;
    virtual void Write(const void* data, uint64_t size) = 0;
};

// A file: reads, positioned writes and size changes. Its StreamWritable side
// writes at the position and raises m_range.end behind what it wrote.
class StreamRW : public StreamSeekable, public StreamWritable {
public:
    virtual void WriteHere(const void* data, uint64_t size) = 0;   // no range change
    virtual void SetSize(uint64_t size) = 0;
    virtual uint64_t GetSize() = 0;
    void Write(const void* data, uint64_t size) override;
};

// Bytes in memory, not owned; m_range is [0, size].
class StreamMem : public Stream {
public:
    StreamMem(const void* data, uint64_t size);
    void Read(void* buffer, uint64_t size) override;
    void Skip(uint64_t size) override;
    uint64_t Tell() override { return pos; }

    const uint8_t* data = nullptr;
    uint64_t pos = 0;
};

// A growing byte sink; the owner takes the bytes with Take().
class StreamWritableSimple : public StreamWritable {
public:
    void Write(const void* data, uint64_t size) override;
    uint64_t Size() const { return size_; }
    const uint8_t* Data() const { return bytes_.data(); }
    std::vector<uint8_t> Take();

private:
    std::vector<uint8_t> bytes_;
    uint64_t size_ = 0;
};

// Narrows a stream's range for a scope and restores it when the scope ends.
class ScopedRange {
public:
    ScopedRange() = default;
    ScopedRange(Stream& stream, uint64_t size) { Narrow(stream, size); }
    ScopedRange(const ScopedRange&) = delete;
    ScopedRange& operator=(const ScopedRange&) = delete;
    ~ScopedRange() noexcept(false);
    void Narrow(Stream& stream, uint64_t size);

private:
    Stream* m_stream = nullptr;
    Range r;
    int exceptionsAtStart_ = 0;
};

// Reading. Every read and skip is bounded by m_range.
void BoundedRead(Stream& stream, void* buffer, uint64_t size);
void BoundedSkip(Stream& stream, uint64_t size);
void BoundedSeek(StreamSeekable& stream, uint64_t position);
uint32_t ReadElementId(Stream& stream);
uint64_t ReadElementSize(Stream& stream);
// The rest of a size field whose first byte is already read.
uint64_t ReadElementSizeRest(Stream& stream, uint8_t first);
uint64_t ReadUInt(Stream& stream, uint64_t size);
std::vector<uint8_t> ReadBinary(Stream& stream, uint64_t size);
std::string ReadAscii(Stream& stream, uint64_t size);
std::string ReadUtf8(Stream& stream, uint64_t size);
Range NarrowRange(Stream& stream, uint64_t size);
Range SetRange(Stream& stream, const Range& range);
void SeekToEbmlMagic(StreamSeekable& stream);
// The text of a string element: up to its first NUL.
std::string CText(const std::string& value);

// Writing.
void WriteVarInt(StreamWritable& sink, uint64_t value);
int EncodeVarInt(uint64_t value, uint8_t out[8]);
bool EncodeVarIntFixed(uint64_t value, uint8_t* out, int width);
int VarIntWidth(uint8_t firstByte);
void WriteUIntElement(StreamWritable& sink, uint32_t id, uint64_t value);
// Header and body of one element.
void WriteElement(StreamWritable& sink, uint32_t id, const void* body, uint64_t size);
std::vector<uint8_t> BuildVoid(uint64_t size);
void WriteVoid(StreamWritable& sink, uint64_t size);
void WriteVoidAt(StreamRW& stream, uint64_t position, uint64_t size);

// Parsers.
class Parser {
public:
    virtual ~Parser() = default;
    virtual void OnBegin(Stream& stream);
    virtual void OnElement(uint32_t id, uint64_t size, Stream& stream);
    virtual void OnEnd();
    virtual bool KeepGoing();

    void Run(Stream& stream);
    void RunOne(Stream& stream, uint32_t expectedId);

    bool parsed = false;
    uint64_t elementStart = 0;
};

// Reads no children: the tool that steps over one element.
class ParserDummy : public Parser {
public:
    bool KeepGoing() override { return false; }
};

class ParserEBML : public Parser {
public:
    void OnElement(uint32_t id, uint64_t size, Stream& stream) override;
    std::string docType;
};

using ElementFunction = std::function<void(uint32_t id, uint64_t size, Stream& stream)>;

class ParserLambda : public Parser {
public:
    ParserLambda(ElementFunction function, const bool* keepGoing)
        : function_(std::move(function)), keepGoing_(keepGoing) {}
    void OnElement(uint32_t id, uint64_t size, Stream& stream) override;
    bool KeepGoing() override { return *keepGoing_; }

private:
    ElementFunction function_;
    const bool* keepGoing_;
};

// Runs `function` over every child of the current range.
void ForEachChild(Stream& stream, ElementFunction function);

// Measuring and overwriting in place.
uint64_t MeasureElementAndVoids(StreamSeekable& stream, uint32_t id, uint64_t limit);
uint64_t MeasureAt(StreamSeekable& stream, uint32_t id, uint64_t position, uint64_t limitOffset);
bool TryOverwriteAt(StreamRW& stream, uint32_t measureId, uint32_t writeId, const void* data, uint64_t size);

}  // namespace EBML
