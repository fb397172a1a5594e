// The EBML parser framework: the walk over the children of a range, the EBML
// header, and measuring and overwriting an element where it stands.

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"

namespace EBML {
namespace {

constexpr uint32_t kDocTypeId = 0x282;
constexpr uint32_t kDocTypeReadVersionId = 0x285;
constexpr uint32_t kEbmlReadVersionId = 0x2F7;

// Restores a parser's elementStart when the element's handling ends.
class ElementStartScope {
public:
    ElementStartScope(Parser& parser, uint64_t start) : parser_(parser), saved_(parser.elementStart) {
        parser.elementStart = start;
    }
    ElementStartScope(const ElementStartScope&) = delete;
    ElementStartScope& operator=(const ElementStartScope&) = delete;
    ~ElementStartScope() { parser_.elementStart = saved_; }

private:
    Parser& parser_;
    uint64_t saved_;
};

// Handles one child at the stream's position; false when it had an unknown
// size, which ends the walk of its parent.
bool RunChild(Parser& parser, Stream& stream) {
    const ElementStartScope scope(parser, stream.Tell());
    const uint32_t id = ReadElementId(stream);
    uint8_t first = 0;
    BoundedRead(stream, &first, 1);
    const uint64_t size = first == 0xFF ? kUnknownSize : ReadElementSizeRest(stream, first);
    if (size >= kUnknownSize) {
        parser.OnElement(id, kUnknownSize, stream);
        return false;
    }
    ScopedRange range(stream, size);
    parser.OnElement(id, size, stream);
    const uint64_t position = stream.Tell();
    if (position < stream.m_range.end) BoundedSkip(stream, stream.m_range.end - position);
    return true;
}

}  // namespace

void Parser::OnBegin(Stream&) {}
void Parser::OnElement(uint32_t, uint64_t, Stream&) {}
void Parser::OnEnd() {}
bool Parser::KeepGoing() { return true; }

void Parser::Run(Stream& stream) {
    OnBegin(stream);
    for (;;) {
        const uint64_t position = stream.Tell();
        if (position >= stream.m_range.end || !KeepGoing()) break;
        if (!RunChild(*this, stream)) break;
    }
    OnEnd();
    parsed = true;
}

void Parser::RunOne(Stream& stream, uint32_t expectedId) {
    const ElementStartScope scope(*this, stream.Tell());
    if (ReadElementId(stream) != expectedId) Fail();
    const uint64_t size = ReadElementSize(stream);
    ScopedRange range(stream, size);
    Run(stream);
    const uint64_t position = stream.Tell();
    if (position < stream.m_range.end) BoundedSkip(stream, stream.m_range.end - position);
}

void ParserEBML::OnElement(uint32_t id, uint64_t size, Stream& stream) {
    switch (id) {
        case kDocTypeId:
            docType = ReadAscii(stream, size);
            return;
        case kDocTypeReadVersionId:
            if (ReadUInt(stream, size) > 2) Fail();
            return;
        case kEbmlReadVersionId:
            if (ReadUInt(stream, size) > 1) Fail();
            return;
        default:
            return;
    }
}

void ParserLambda::OnElement(uint32_t id, uint64_t size, Stream& stream) {
    if (!function_) throw std::bad_function_call();
    function_(id, size, stream);
}

void ForEachChild(Stream& stream, ElementFunction function) {
    const bool keepGoing = true;
    ParserLambda parser(std::move(function), &keepGoing);
    parser.Run(stream);
}

uint64_t MeasureElementAndVoids(StreamSeekable& stream, uint32_t id, uint64_t limit) {
    const uint64_t start = stream.Tell();
    ParserDummy dummy;
    dummy.RunOne(stream, id);
    for (;;) {
        const uint64_t span = stream.Tell() - start;
        if (stream.Tell() >= stream.m_range.end || span >= limit) return span;
        if (ReadElementId(stream) != kVoidId) return span;
        BoundedSkip(stream, ReadElementSize(stream));
    }
}

uint64_t MeasureAt(StreamSeekable& stream, uint32_t id, uint64_t position, uint64_t limitOffset) {
    BoundedSeek(stream, position);
    if (limitOffset < position) Fail();
    ScopedRange range(stream, limitOffset - position);
    return MeasureElementAndVoids(stream, id, kNoLimit);
}

bool TryOverwriteAt(StreamRW& stream, uint32_t measureId, uint32_t writeId, const void* data, uint64_t size) {
    const uint64_t p = stream.Tell();
    StreamWritableSimple header;
    WriteVarInt(header, writeId);
    WriteVarInt(header, size);
    const uint64_t total = header.Size() + size;
    const uint64_t avail = MeasureElementAndVoids(stream, measureId, total);
    if (avail < total || avail - total == 1) return false;
    stream.Seek(p);
    stream.Write(header.Data(), header.Size());
    stream.Write(data, size);
    if (avail != total) {
        const std::vector<uint8_t> padding = BuildVoid(avail - total);
        stream.Write(padding.data(), padding.size());
    }
    return true;
}

}  // namespace EBML
