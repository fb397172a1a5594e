// Frame bodies as the writer makes them.

#include <algorithm>

#include "support/textcodec.h"
#include "tags/id3v2/id3streams.h"
#include "tags/id3v2/id3text.h"
#include "tags/id3v2/id3writer.h"

namespace id3parser {

namespace {

void AppendBytes(std::vector<uint8_t>& body, const std::string& bytes) { body.insert(body.end(), bytes.begin(), bytes.end()); }

void AppendEncoded(std::vector<uint8_t>& body, const std::string& text, uint8_t encoding) {
    switch (encoding) {
        case 0:
            AppendBytes(body, utf8ToAnsi(text));
            body.push_back(0);
            return;
        case 1: {
            body.push_back(0xFF);   // every string has its own byte order mark
            body.push_back(0xFE);
            for (char16_t unit : text::Utf8ToUtf16(text)) {
                body.push_back(static_cast<uint8_t>(unit & 0xFF));
                body.push_back(static_cast<uint8_t>(unit >> 8));
            }
            body.push_back(0);
            body.push_back(0);
            return;
        }
        case 3:
            AppendBytes(body, text);
            body.push_back(0);
            return;
        default:
            throw parseError();
    }
}

void StartBody(id3frame& frame, uint8_t encoding) {
    frame.data.assign(1, encoding);
    if (frame.id == frameId("COMM") || frame.id == frameId("USLT")) AppendBytes(frame.data, "eng");
}

// ISO-8859-1 and the ANSI page agree on these characters alone.
bool FitsOneByte(const std::string& text) {
    for (char16_t unit : text::Utf8ToUtf16(text)) {
        if (unit >= 0x80 && (unit < 0xA0 || unit > 0xFF)) return false;
    }
    return true;
}

}  // namespace

uint8_t textEncodingFor(const std::vector<std::string>& texts, uint32_t version, uint8_t chosen) {
    if (chosen != 0) return chosen;
    if (std::all_of(texts.begin(), texts.end(), FitsOneByte)) return 0;
    return version >= 4 ? 3 : 1;
}

void appendEncodedText(std::vector<uint8_t>& body, const std::string& text, uint8_t encoding) {
    AppendEncoded(body, text, encoding);
}

void setFrameText(id3frame& frame, const std::string& text, uint8_t encoding) {
    if (encoding != 0 && encoding != 1 && encoding != 3) throw writeError();
    StartBody(frame, encoding);
    AppendEncoded(frame.data, text, encoding);
}

void appendFrameText(id3frame& frame, const std::string& text) {
    if (frame.data.empty()) throw parseError();
    AppendEncoded(frame.data, text, frame.data[0]);
}

void setFrameAnsi(id3frame& frame, const std::string& text) {
    frame.data.assign(1, 0);
    AppendEncoded(frame.data, text, 0);
}

void upgradeFrameEncoding(id3frame& frame) {
    if (frame.data.empty() || frame.data[0] >= 0x80 || frame.data[0] > 3) throw parseError();
    if (frame.data[0] < 2) return;
    if (frame.data.size() < frameTextOffset(frame)) throw parseError();
    const uint64_t count = frameTextCount(frame);
    if (count == 0) throw parseError();
    std::vector<std::string> strings;
    TextCursor cursor;
    for (uint64_t i = 0; i < count; ++i) {
        std::string text;
        frameText(frame, false, text, i, cursor);
        strings.push_back(std::move(text));
    }
    const std::vector<uint8_t> language(frame.data.begin() + 1, frame.data.begin() + static_cast<long>(frameTextOffset(frame)));
    setFrameText(frame, strings[0], 1);
    for (size_t i = 1; i < strings.size(); ++i) appendFrameText(frame, strings[i]);
    std::copy(language.begin(), language.end(), frame.data.begin() + 1);
}

}  // namespace id3parser
