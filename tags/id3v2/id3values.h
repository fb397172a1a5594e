#pragma once
// Frames to named values: the read side of the engine. The write side runs
// the same code to learn which names each old frame gives.

#include <cstdint>
#include <string>
#include <string_view>

#include "tags/id3v2/id3frames.h"
#include "tags/id3v2/tagvalues.h"

namespace id3parser {

struct FrameContext {
    const FrameOverrides& overrides;
    uint32_t version;
    bool strict;
};

// Rating byte by rating 0 to 10.
extern const uint8_t ratingSteps[11];

void frameToValues(const id3frame& frame, const FrameContext& context, TagValues& values);
// Every frame of the tag, a damaged one costing only itself; then dedupeYear.
void framesToValues(const id3tag& tag, TagValues& values);

void splitAtSlash(const std::string& name, const std::string& text, TagValues& values);
bool stripIndexSuffix(std::string& name);
bool isReplayGainName(const std::string& name);
bool isSlashSplitUserName(const std::string& name);
bool parseGenreText(std::string_view text, std::string& out);

}  // namespace id3parser
