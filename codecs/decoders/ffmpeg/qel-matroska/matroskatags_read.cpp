#include <exception>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskaids.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskarecord.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "codecs/decoders/ffmpeg/qel-matroska/streamimpl.h"
#include "support/clFile.h"
#include "transport/exceptions.h"

namespace MatroskaTags {
namespace {

constexpr const char* kReadLabel = "MatroskaTags::Read";

void ReadAll(streamImpl& stream, IDTags& tags) {
    Matroska::ParserRoot root;
    root.Open(stream);
    Matroska::TagRecord record;
    Matroska::ReadTagRecord(record, root, stream);
    Matroska::TagRecordToIDTags(record, tags);
    Matroska::ParserAttachments attachments;
    root.ForEachElement(Matroska::kAttachments, [&](uint64_t offset) {
        EBML::BoundedSeek(stream, offset);
        attachments.RunOne(stream, Matroska::kAttachments);
    });
    Matroska::AttachmentsToIDTags(stream, attachments.attachments, tags);
}

}  // namespace

// The failure's text goes to `failure` when the caller wants it, else to the log.
void Report(const clString& text, const clLogTarget* log, clString* failure) {
    if (failure) {
        *failure = text;
        return;
    }
    clLog::Error(text, log, kReadLabel);
}

bool Read(const clString& path, IDTags& tags, const clLogTarget* log, clString* failure) {
    tags.Clear();
    streamImpl stream(path);
    if (!stream.Open(clFile::kRead)) {
        const clString why = clFile::OpenErrorText(path);
        Report(clString::Format(u"Couldn't read tags from file: %s", why.Text()), log, failure);
        return false;
    }
    try {
        ReadAll(stream, tags);
        return true;
    } catch (const Qel::user_abort&) {
        return false;
    } catch (const std::exception& error) {
        clString message(u"Couldn't parse Matroska tags: ");
        message.Append(clString::FromUtf8(error.what()));
        Report(message, log, failure);
        return false;
    }
}

}  // namespace MatroskaTags
