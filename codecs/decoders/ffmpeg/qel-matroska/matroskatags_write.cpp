// Writing and deleting Matroska tags: the two editors of each job, run over
// the file by writeTagsInternal.

#include <algorithm>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskaids.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskawrite.h"
#include "codecs/decoders/ffmpeg/qel-matroska/stagedstream.h"
#include "support/clFile.h"
#include "support/clList.h"
#include "tags/picturenaming.h"
#include "transport/exceptions.h"

namespace {

constexpr const char* kWriteLabel = "writeTagsInternal";
constexpr size_t kMaxNamesBytes = 2000000000;

// Calls `visit` with the stream narrowed to each Attachments element's body
// and the offset where that body ends by its size field.
void ForEachAttachmentsBody(const Matroska::ParserRoot& root, EBML::StreamSeekable& stream,
                            const std::function<void(EBML::Stream& body, uint64_t end)>& visit) {
    root.ForEachElement(Matroska::kAttachments, [&](uint64_t offset) {
        EBML::BoundedSeek(stream, offset);
        if (EBML::ReadElementId(stream) != Matroska::kAttachments) EBML::Fail();
        const uint64_t size = EBML::ReadElementSize(stream);
        EBML::ScopedRange range(stream, size);
        visit(stream, stream.Tell() + size);
    });
}

EBML::Chain ReadAttachmentsChain(const Matroska::ParserRoot& root, EBML::StreamSeekable& stream) {
    EBML::Chain chain;
    ForEachAttachmentsBody(root, stream, [&](EBML::Stream& attachments, uint64_t) {
        EBML::ForEachChild(attachments, [&](uint32_t id, uint64_t childSize, EBML::Stream& body) {
            // A CRC-32 covers the children as they stood; a rewritten body
            // goes without one rather than with a stale one.
            if (id != Matroska::kVoid && id != Matroska::kCrc32) chain.push_back({id, EBML::ReadBinary(body, childSize)});
        });
    });
    return chain;
}

// A FileData that claims bytes behind its Attachments element reaches into
// whatever stands there, and a reader takes those bytes as the attachment's.
// They aren't proven to be anyone's, so such a file isn't retagged at all.
void RequireAttachmentsHoldTheirData(const Matroska::ParserRoot& root, EBML::StreamSeekable& stream) {
    ForEachAttachmentsBody(root, stream, [&](EBML::Stream& attachments, uint64_t end) {
        EBML::ForEachChild(attachments, [&](uint32_t id, uint64_t, EBML::Stream& attached) {
            if (id != Matroska::kAttachedFile) return;
            EBML::ForEachChild(attached, [&](uint32_t childId, uint64_t childSize, EBML::Stream& body) {
                if (childId == Matroska::kFileData && childSize > end - body.Tell()) throw Matroska::FileNotTaggable();
            });
        });
    });
}

std::vector<uint8_t> EncodeChain(const EBML::Chain& chain) {
    EBML::StreamWritableSimple body;
    for (const EBML::chainEntry_t& entry : chain) EBML::WriteElement(body, entry.id, entry.data.data(), entry.data.size());
    return body.Take();
}

bool HoldsAttachedFile(const EBML::Chain& chain) {
    return std::any_of(chain.begin(), chain.end(),
                       [](const EBML::chainEntry_t& entry) { return entry.id == Matroska::kAttachedFile; });
}

void RunEditors(EBML::StreamRW& stream, const Matroska::TagEditor& tagEditor,
                const Matroska::AttachmentEditor& attachmentEditor) {
    Matroska::ParserRoot root;
    root.Open(stream);
    RequireAttachmentsHoldTheirData(root, stream);
    if (tagEditor) {
        Matroska::TagRecord record;
        Matroska::ReadTagRecord(record, root, stream);
        if (tagEditor(record)) {
            const std::vector<uint8_t> body = Matroska::EncodeTagsBody(record);
            if (!Matroska::ReplaceElement(root, stream, body.data(), body.size(), Matroska::kTags)) {
                throw Matroska::FileNotTaggable();
            }
        }
    }
    if (!attachmentEditor) return;
    EBML::Chain chain = ReadAttachmentsChain(root, stream);
    if (!attachmentEditor(chain)) return;
    const std::vector<uint8_t> body = EncodeChain(chain);
    if (!HoldsAttachedFile(chain)) {
        Matroska::RemoveAllElements(root, stream, Matroska::kAttachments);
    } else if (!Matroska::ReplaceElement(root, stream, body.data(), body.size(), Matroska::kAttachments)) {
        throw std::runtime_error("This file cannot be tagged");
    }
}

// The names of a delete: NUL-ended strings up to an empty one; "[Empty]"
// stands for an empty name.
std::vector<clString> SplitNames(const char16_t* names) {
    std::vector<clString> list;
    size_t bytes = 0;
    for (const char16_t* name = names; *name != 0 && bytes < kMaxNamesBytes;) {
        const clString entry(name);
        list.push_back(entry == u"[Empty]" ? clString() : entry);
        bytes += static_cast<size_t>(entry.Size()) * sizeof(char16_t);
        name += entry.Size();
    }
    return list;
}

bool StartsWithArtOne(const clString& name) { return clString::Compare(name.Text(), u"_albumart_1", -1, true) == 0; }

}  // namespace

bool writeTagsInternal(streamImpl& stream, const Matroska::TagEditor& tagEditor,
                       const Matroska::AttachmentEditor& attachmentEditor, const clLogTarget* log) {
    try {
        // Every change is planned over staged writes; the file is written
        // only when all of them came through.
        StagedStream staged(stream);
        RunEditors(staged, tagEditor, attachmentEditor);
        staged.Commit();
        stream.Close();
        return true;
    } catch (const Qel::user_abort&) {
        stream.Close();
        return false;
    } catch (const std::exception& error) {
        clString message(u"Couldn't update Matroska tags: ");
        message.Append(clString::FromUtf8(error.what()));
        clLog::Error(message, log, kWriteLabel);
        stream.Close();
        return false;
    }
}

bool writeTagsInternal(const clString& path, const Matroska::TagEditor& tagEditor,
                       const Matroska::AttachmentEditor& attachmentEditor, const clLogTarget* log) {
    streamImpl stream(path);
    if (!stream.Open(clFile::kReadWrite)) {
        const clString why = clFile::OpenErrorText(path);
        clLog::Error(clString::Format(u"Couldn't write tags to file: %s", why.Text()), log, kWriteLabel);
        return false;
    }
    return writeTagsInternal(stream, tagEditor, attachmentEditor, log);
}

namespace Matroska {

bool DeleteFromTagRecord(bool deleteAll, const std::vector<clString>& names, TagRecord& record) {
    // What the read shows, or would show, of the only audio track goes the
    // same way as the file-level tags, so that a deleted name doesn't come
    // back from the track.
    const std::set<std::string> shown = ShownTrackKeys(record, true);
    TagValueMap* track = shown.empty() ? nullptr : &record.Tracks[*record.OnlyAudioTrack];
    auto erase = [&](const std::string& key) {
        size_t erased = record.Global.erase(key);
        if (track != nullptr && shown.count(key) != 0) erased += track->erase(key);
        return erased != 0;
    };
    if (deleteAll) {
        bool changed = !record.Global.empty();
        record.Global.clear();
        for (const std::string& key : shown) changed = erase(key) || changed;
        return changed;
    }
    bool changed = false;
    for (const clString& name : names) {
        const std::string utf8 = name.ToUtf8();
        for (const NumberPairRow& row : NumberPairs) {
            if (!EqualsNoCaseAscii(utf8, row.idTagKey)) continue;
            const bool erased = erase(row.numberKey);
            changed = erase(row.totalKey) || erased || changed;
        }
        const std::string key = IDTagNameToMatroskaKey(name);
        if (!key.empty() && erase(key)) changed = true;
    }
    return changed;
}

}  // namespace Matroska

namespace MatroskaTags {

bool Write(const clString& path, const IDTags& tags, const clLogTarget* log) {
    Matroska::AttachmentEditor attachmentEditor;
    for (int i = 0; i < tags.Count(); ++i) {
        if (!StartsWithArtOne(tags[i].Name)) continue;
        attachmentEditor = [&tags](EBML::Chain& chain) { return Matroska::MergeArt(tags, chain); };
        break;
    }
    const Matroska::TagEditor tagEditor = [&tags](Matroska::TagRecord& record) {
        return Matroska::MergeIDTags(tags, record);
    };
    return writeTagsInternal(path, tagEditor, attachmentEditor, log);
}

bool Delete(const clString& path, const char16_t* names, const clLogTarget* log) {
    const bool deleteAll = names == nullptr || names[0] == 0;
    const std::vector<clString> list = deleteAll ? std::vector<clString>() : SplitNames(names);
    Matroska::AttachmentEditor attachmentEditor;
    if (deleteAll) {
        attachmentEditor = [](EBML::Chain& chain) { return Matroska::RemoveAllImages(chain); };
    } else {
        const std::set<std::string> stems = Matroska::ArtKeysToStems(list);
        if (!stems.empty()) {
            attachmentEditor = [stems](EBML::Chain& chain) { return Matroska::RemoveNamedImages(chain, stems); };
        }
    }
    const Matroska::TagEditor tagEditor = [deleteAll, &list](Matroska::TagRecord& record) {
        return Matroska::DeleteFromTagRecord(deleteAll, list, record);
    };
    return writeTagsInternal(path, tagEditor, attachmentEditor, log);
}

}  // namespace MatroskaTags
