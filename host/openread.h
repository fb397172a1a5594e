#pragma once
// Opening a file as a host does before playing it, and keeping what the
// plug-in handed back: the format record and the two blobs.

#include <cstdint>
#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/records.h"
#include "host/commands.h"
#include "host/tagblob.h"

namespace host {

struct OpenResult {
    DecoderFormat format{};
    std::vector<BlobEntry> tags;
    std::vector<BlobEntry> info;
};

// Open, copy out what the record points at (it lives only until Close), Close.
// Returns false when Open failed.
bool OpenAndRead(const CommandContext& context, const std::string& path, uint32_t flags, OpenResult& result);

// Reports a failed Open on standard error; returns the exit code.
int OpenFailed(const CommonOptions& options, const std::string& path);

}  // namespace host
