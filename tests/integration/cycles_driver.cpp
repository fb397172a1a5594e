// One cycles thread: a decoder that opens, decodes, seeks, closes and retags
// copies at random, and tells a quit-caused failure from any other.

#include <unistd.h>

#include <filesystem>
#include <optional>
#include <random>

#include "host/tagblob.h"
#include "host/tagblobwriter.h"
#include "host/text.h"
#include "cycles.h"
#include "tests/integration/testkit.h"
#include "tests/qel-matroska/ebmlwalk.h"

namespace cycles {
namespace {

class Driver {
public:
    Driver(Shared& shared, QuitFifo& quit, unsigned seed, int index)
        : shared_(shared), quit_(quit), random_(seed), index_(index),
          logPath_(shared.dir + "/error-" + std::to_string(index) + ".log"), log_(logPath_),
          copyStem_(shared.dir + "/copy-" + std::to_string(index)) {}

    void Run() {
        const std::u16string quitPath = host::Utf8ToUtf16(quit_.Path());
        DecoderParam param{};
        param.text = quitPath.c_str();
        DecoderCreateInfo info{};
        info.errorLog = log_.Get();
        while (!shared_.stop) {
            const host::Decoder decoder(shared_.plugin, info);
            if (decoder.Set(u"EventQuit", param) == 0) Fail("EventQuit refused", shared_.fixtures.front());
            // A decoder lives for a few jobs, so Create and Destroy churn too.
            for (int job = Pick(1, 12); job > 0 && !shared_.stop; --job) OneJob(decoder);
        }
    }

private:
    int Pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }

    void OneJob(const host::Decoder& decoder) {
        const Fixture& fixture = shared_.fixtures[static_cast<size_t>(Pick(0, int(shared_.fixtures.size()) - 1))];
        (void)::ftruncate(static_cast<int>(log_.Get()), 0);   // the log of this job only
        const int kind = Pick(0, 9);
        if (kind >= 4 && kind < 7) {
            Seek(decoder, fixture);
        } else if (kind >= 7 && fixture.retag) {
            Retag(decoder, fixture);
        } else {
            DecodeWhole(decoder, fixture, fixture.path, "decode");
        }
        decoder.Close();
    }

    // A failed call is the quit's doing when the event is set: the event is
    // then reset, as a host does before it goes on.
    bool QuitCaused() {
        if (!quit_.IsSet()) return false;
        quit_.Reset();
        ++shared_.tally.quits;
        return true;
    }

    void Fail(const std::string& what, const Fixture& fixture) {
        std::string log = it::ReadFile(logPath_);
        std::erase(log, '\0');   // UTF-16LE: ASCII is enough to tell what failed
        shared_.Fail("thread " + std::to_string(index_) + ", " + fixture.name + ": " + what + "; error log: " + log);
    }

    // A failure the quit didn't cause is one.
    void Refused(const std::string& what, const Fixture& fixture) {
        if (!QuitCaused()) Fail(what, fixture);
    }

    bool Open(const host::Decoder& decoder, const std::string& path, uint32_t flags, DecoderOpenInfo& info) {
        const std::u16string wide = host::Utf8ToUtf16(path);
        info = DecoderOpenInfo{};
        info.path = wide.c_str();
        info.flags = flags;
        ++shared_.tally.opens;
        return decoder.Open(info) != 0;
    }

    // Opens and decodes to the end. A quit in mid-stream is reset and the
    // decode goes on: the samples must still be the reference's, byte for byte.
    void DecodeWhole(const host::Decoder& decoder, const Fixture& fixture, const std::string& path,
                     const std::string& job) {
        DecoderOpenInfo info;
        if (!Open(decoder, path, kOpenWantTags | kOpenWantInfo, info)) return Refused(job + ": Open failed", fixture);
        std::string samples;
        for (int blocks = 0;; ++blocks) {
            DecoderBlockInfo block{};
            if (decoder.DecodeBlock(block) == 0) {
                if (QuitCaused()) continue;
                return Fail(job + ": DecodeBlock failed after " + std::to_string(blocks) + " blocks", fixture);
            }
            samples.append(static_cast<const char*>(block.samples), block.bytes);
            if (block.endOfStream || block.bytes == 0) break;
        }
        ++shared_.tally.decodes;
        if (samples != fixture.samples) {
            Fail(job + ": samples differ from the reference (" + std::to_string(samples.size()) + " against " +
                     std::to_string(fixture.samples.size()) + " bytes)",
                 fixture);
        }
    }

    void Seek(const host::Decoder& decoder, const Fixture& fixture) {
        DecoderOpenInfo info;
        if (!Open(decoder, fixture.path, 0, info)) return Refused("seek: Open failed", fixture);
        const int frames = static_cast<int>(fixture.samples.size() / fixture.blockAlign);
        for (int seeks = Pick(1, 4); seeks > 0 && !shared_.stop; --seeks) {
            ++shared_.tally.seeks;
            const int64_t target = Pick(0, frames - 1);
            if (decoder.SetPosition(target) == 0) {
                Refused("SetPosition(" + std::to_string(target) + ") failed", fixture);
                continue;
            }
            for (int blocks = Pick(1, 5); blocks > 0; --blocks) {
                DecoderBlockInfo block{};
                if (decoder.DecodeBlock(block) == 0) {
                    Refused("DecodeBlock after a seek failed", fixture);
                    break;
                }
                if (block.endOfStream || block.bytes == 0) break;
            }
        }
    }

    // The copy's title as Open hands it out (tag names without ASCII case:
    // Matroska hands out "TITLE"), or nothing after a quit.
    std::optional<std::u16string> TitleOfCopy(const host::Decoder& decoder, const Fixture& fixture) {
        DecoderOpenInfo info;
        if (!Open(decoder, copy_, kOpenWantTags, info)) {
            Refused("retag: Open of the copy failed", fixture);
            return std::nullopt;
        }
        std::u16string title;
        for (const host::BlobEntry& entry : host::ReadTagBlob(info.tags, info.tagsSize)) {
            std::u16string name = entry.name;
            for (char16_t& unit : name) unit = unit >= u'A' && unit <= u'Z' ? char16_t(unit + 32) : unit;
            if (name == u"title") title = entry.value;
        }
        decoder.Close();
        return title;
    }

    // Copies the fixture, writes a title (or deletes it), checks the tags
    // read back and that the copy's audio is what it was.
    void Retag(const host::Decoder& decoder, const Fixture& fixture) {
        // The copy keeps the extension: it decides the tag family.
        copy_ = copyStem_ + std::filesystem::path(fixture.path).extension().string();
        std::filesystem::copy_file(fixture.path, copy_, std::filesystem::copy_options::overwrite_existing);
        const std::u16string widePath = host::Utf8ToUtf16(copy_);
        const std::u16string title = host::Utf8ToUtf16("Retag " + std::to_string(random_()));
        const std::string blob =
            host::WriteTagBlob({{u"Title", title, {}}, {u"Comment", std::u16string(size_t(Pick(0, 3000)), u'c'), {}}});
        DecoderParam param{};
        param.text = widePath.c_str();
        param.data = blob.data();
        param.value = static_cast<int32_t>(blob.size());
        ++shared_.tally.retags;
        if (decoder.Set(u"IDTags", param) == 0) {
            Refused("retag: Set(IDTags) failed", fixture);
        } else if (const auto read = TitleOfCopy(decoder, fixture); read && *read != title) {
            Fail("retag: the title read back differs", fixture);
        }
        if (Pick(0, 1) == 1) {
            ++shared_.tally.deletes;
            if (decoder.DeleteATag(widePath.c_str(), u"Title\0") == 0)
                Refused("retag: DeleteATag(Title) failed", fixture);
        }
        CheckAudio(decoder, fixture);
        std::filesystem::remove(copy_);
    }

    // The bytes are checked whatever a quit did to the decode behind them:
    // the leading audio, or for Matroska every Cluster at its offset.
    void CheckAudio(const host::Decoder& decoder, const Fixture& fixture) {
        const std::string original = it::ReadFile(fixture.path), copy = it::ReadFile(copy_);
        if (fixture.audioBytes != 0) {
            if (copy.compare(0, fixture.audioBytes, original, 0, fixture.audioBytes) != 0)
                Fail("retag: the audio bytes of the copy changed", fixture);
        } else if (ebmltest::Clusters(copy) != ebmltest::Clusters(original)) {
            Fail("retag: the Clusters of the copy changed", fixture);
        }
        DecodeWhole(decoder, fixture, copy_, "retagged decode");
    }

    Shared& shared_;
    QuitFifo& quit_;
    std::mt19937 random_;
    int index_;
    std::string logPath_;
    it::SinkFile log_;
    std::string copyStem_, copy_;
};

}  // namespace

void RunDecoderThread(Shared& shared, QuitFifo& quit, unsigned seed, int index) {
    try {
        Driver(shared, quit, seed, index).Run();
    } catch (const std::exception& error) {
        shared.Fail("thread " + std::to_string(index) + " ended: " + error.what());
    }
}

void Shared::Fail(const std::string& text) {
    ++tally.failures;
    const std::lock_guard lock(mutex);
    if (failureTexts.size() < 50) failureTexts.push_back(text);
}

}  // namespace cycles
