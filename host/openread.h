#pragma once
// Opening a file as a host does before playing it, and keeping what the
// plug-in handed back: the format record and the two blobs.

#include <cstdint>
#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/records.h"
#include "host/commands.h"
#include "host/session.h"
#include "host/tagblob.h"

namespace host {

struct OpenResult {
    DecoderFormat format{};
    std::vector<BlobEntry> tags;
    std::vector<BlobEntry> info;
};

// Open, copy out what the record points at (it lives only until Close), Close.
// Returns false when Open failed.
bool OpenAndRead(const Session& session, const CommonOptions& options, const std::string& path, uint32_t flags,
                 OpenResult& result);

// What a command that opens PATH says when that failed: the plug-in's reason.
inline int OpenFailed(Session& session, const std::string& path) {
    return session.Failed(path, "the plug-in could not open it");
}

}  // namespace host
