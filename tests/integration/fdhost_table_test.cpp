// fdhost as a person or script meets it, one row per case: command, input, exit status, all of
// standard error, and whether the file stayed as it was or changed as it should (audio unchanged).

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "testkit.h"
#include "tests/tags/tagbytes.h"

namespace {

enum class Input { kNone, kTta, kTtaCover, kFolder, kEmpty, kText, kWav, kId3AndApe, kBadId3AndApe, kId3AndDamagedApe,
                   kDamagedApeItem, kCutMka };

struct Row {
    std::vector<std::string> args;    // {in} {out} {png} {dir} are filled in
    Input input;
    int exitCode;
    std::string err = "";             // all of standard error, filled in likewise
    const char* tagsAfter = nullptr;  // nullptr: the input is unchanged; "": only its audio is left;
                                      // else found in `tags --json` after, with the audio unchanged
    std::string outHas = "";          // found on standard output
};

struct Fixture {
    it::TempDir dir;
    std::string tta = dir.File("tone.tta"), png = dir.File("cover.png"), mka = dir.File("tone.mka"), tone, audio;
    std::map<std::string, std::string> values = {{"{png}", png}, {"{dir}", dir.File("dir")}};
    int made = 0;

    Fixture() {
        it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1", "-c:a", "tta", tta});
        it::Ffmpeg({"-f", "lavfi", "-i", "color=green:s=8x8", "-frames:v", "1", png});
        it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=3", "-c:a", "flac", mka});
        tone = it::ReadFile(tta);
        audio = tone.substr(0, tone.find("APETAGEX"));   // ffmpeg's APE tag stands behind the audio
        std::filesystem::create_directory(values["{dir}"]);
        it::WriteFile(values["{dir}"] + "/empty.png", "");
        it::WriteFile(values["{dir}"] + "/blob.bin", std::string("\0\1\2", 3));
        it::WriteFile(values["{dir}"] + "/blob.json", R"([{"name": "Blob", "data_file": "blob.bin"}])");
        it::WriteFile(values["{dir}"] + "/big.json", R"([{"name": "Comment", "value": ")" + std::string(20 << 20, 'v') + "\"}]");
    }

    std::string Make(Input input) {
        const std::string path = dir.File("in" + std::to_string(++made)), tta = path + ".tta";
        std::string id3("ID3\3\0\0\0\0\0\x0e" "TIT2\0\0\0\4\0\0\0v2!", 24);
        switch (input) {
            case Input::kNone: return path + ".flac";
            case Input::kTta: it::WriteFile(tta, tone); return tta;
            case Input::kTtaCover: it::WriteFile(tta, tone); it::Fdhost({"write", tta, "--picture", "back=" + png}); return tta;
            case Input::kFolder: std::filesystem::create_directory(path + ".flac"); return path + ".flac";
            case Input::kEmpty: it::WriteFile(path + ".mp3", ""); return path + ".mp3";
            case Input::kText: it::WriteFile(path + ".mp3", "These are notes, not audio.\n"); return path + ".mp3";
            case Input::kWav: it::WriteFile(path + ".wav", "RIFF"); return path + ".wav";
            case Input::kId3AndApe: it::WriteFile(tta, id3 + tone); return tta;
            case Input::kBadId3AndApe: id3[5] = 0x0F; it::WriteFile(tta, id3 + tone); return tta;   // flags no version has
            case Input::kId3AndDamagedApe:
                it::WriteFile(tta, id3 + audio + tagtest::ApeTag({{"Title", "t"}}, 2000, false).Stating(100000).Bytes()); return tta;
            case Input::kDamagedApeItem:   // two items where the footer counts one
                it::WriteFile(tta, audio + tagtest::ApeTag({{"Title", "hello"}, {"Broken", "x"}}, 2000, false).Stating(-1, 1).Bytes()); return tta;
            case Input::kCutMka: it::WriteFile(path + ".mka", it::ReadFile(mka).substr(0, 3000)); return path + ".mka";
        }
        return path;
    }

    std::string Fill(std::string text) const {
        for (const auto& [key, value] : values)
            for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + value.size()))
                text.replace(at, key.size(), value);
        return text;
    }

    void Run(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            const std::string in = values["{in}"] = Make(row.input);
            values["{out}"] = dir.File("out" + std::to_string(made) + ".wav");
            std::vector<std::string> args;
            for (const std::string& arg : row.args) args.push_back(Fill(arg));
            SCOPED_TRACE(::testing::PrintToString(args));
            const std::string before = std::filesystem::is_regular_file(in) ? it::ReadFile(in) : "";
            const it::RunResult result = it::Fdhost(args);
            EXPECT_EQ(result.exitCode, row.exitCode) << result.err;
            EXPECT_EQ(result.err, Fill(row.err));
            EXPECT_NE(result.out.find(Fill(row.outHas)), std::string::npos) << result.out;
            EXPECT_TRUE(row.exitCode == 0 || result.out.empty()) << result.out;
            EXPECT_FALSE(std::filesystem::exists(values["{out}"])) << "no output from a failed or refused decode";
            const std::string after = std::filesystem::is_regular_file(in) ? it::ReadFile(in) : "";
            if (row.tagsAfter == nullptr) {
                EXPECT_TRUE(after == before) << "the file changed";
            } else if (*row.tagsAfter == 0) {
                EXPECT_TRUE(after == audio) << "more than the audio is left";
            } else {
                EXPECT_EQ(after.substr(0, audio.size()), audio) << "the audio changed";
                EXPECT_NE(it::Fdhost({"tags", "--json", in}).out.find(row.tagsAfter), std::string::npos);
            }
        }
    }
};

const std::string kOpening = "fdhost: {in}: Error opening file '{in}', check no other program has it open. (";
const std::string kNoAudio = "fdhost: {in}: File could not be decoded\n";
const std::string kDamagedApe = "fdhost: {in}: The APE tag is damaged: its items don't fill the size that its footer "
                                "states, so it was left as it is.\n";
const std::string kCutMkaWarning = "Couldn't parse Matroska tags: Corrupted file or unsupported format. The tags shown "
                                   "are the metadata that FFmpeg read.\n";
const std::string kApeKey = "' cannot be an APE item key (2 to 255 characters from 0x20 to 0x7E, not ID3, TAG, OggS or MP+)\n";

TEST(FdhostTable, Rows) {
    std::vector<Row> rows = {
        // Nothing to do, or a wrong argument: exit 2 before the plug-in is asked.
        {{"write", "{in}"}, Input::kTta, 2, "fdhost: nothing to write (give --set, --picture or --from-json)\n"},
        {{"write", "{in}", "--picture", "3={dir}"}, Input::kTtaCover, 2, "fdhost: the picture {dir} is no file\n"},
        {{"write", "{in}", "--picture", "front={dir}/empty.png"}, Input::kTtaCover, 2,
         "fdhost: the picture {dir}/empty.png is empty\n"},
        {{"write", "{in}", "--picture", "21={png}"}, Input::kTta, 2,
         "fdhost: unknown picture type '21' (a number from 0 to 20 or a name such as front or back; see write --help)\n"},
        {{"write", "{in}", "--from-json", "{dir}/none.json"}, Input::kTta, 2, "fdhost: the JSON file {dir}/none.json is no file\n"},
        {{"write", "{in}", "--set", "Title=x", "--set", "oggs=y"}, Input::kTta, 2, "fdhost: 'oggs" + kApeKey},
        {{"write", "{in}", "--set", "X=y"}, Input::kTta, 2, "fdhost: 'X" + kApeKey},
        {{"write", "{in}", "--set", "A\tB=y"}, Input::kTta, 2, "fdhost: 'A\\x09B" + kApeKey},
        {{"write", "{in}", "--set", std::string(256, 'k') + "=y"}, Input::kTta, 2, "fdhost: '" + std::string(256, 'k') + kApeKey},
        {{"decode", "{in}", "-o", "{in}", "-y"}, Input::kTta, 2, "fdhost: the output {in} is the input\n"},
        {{"decode", "{in}", "-o", "{out}", "--output", "{out}"}, Input::kTta, 2, "fdhost: option --output given twice\n"},
        {{"--json", "tags", "{in}", "--json"}, Input::kTta, 2, "fdhost: option --json given twice\n"},
        {{"info", "{in}", "--quit-after-ms", "soon"}, Input::kTta, 2,
         "fdhost: --quit-after-ms: needs a whole number of at least 0, not 'soon'\n"},
        {{}, Input::kNone, 2, "fdhost: no command given (try fdhost --help)\n"},
        // What fdhost or the plug-in can't do: the reason in one line, exit 1.
        {{"caps", "--plugin", "{dir}/absent.so"}, Input::kNone, 1,
         "fdhost: cannot load the plug-in: {dir}/absent.so: cannot open shared object file: No such file or directory\n"},
        {{"caps", "--trace-log", "{dir}/no/t.log"}, Input::kNone, 1,
         "fdhost: cannot open the log file {dir}/no/t.log: No such file or directory\n"},
        {{"delete", "{in}"}, Input::kWav, 1, "fdhost: {in}: Tagging not supported for this format.\n"},
        {{"write", "{in}", "--set", "Title=NEW"}, Input::kId3AndDamagedApe, 1, "fdhost: {in}: Could not write APE tag\n" + kDamagedApe},
        {{"delete", "{in}"}, Input::kId3AndDamagedApe, 1, "fdhost: {in}: Could not delete APE tag\n" + kDamagedApe},
        // Commands that change the tags as asked, and nothing else.
        {{"write", "{in}", "--picture", "back={png}:Inlay", "--picture", "17={png}"}, Input::kTta, 0, "",
         "\"_albumart_1_Back Album Cover\""},
        {{"write", "{in}", "--set", std::string(255, 'k') + "=long"}, Input::kTta, 0, "", "\"value\":\"long\""},
        {{"write", "{in}", "--from-json", "{dir}/blob.json"}, Input::kTta, 0, "", "{\"name\":\"Blob\",\"value\":\"\",\"data_size\":3"},
        {{"write", "{in}", "--from-json", "{dir}/big.json"}, Input::kTta, 0, "", "{\"name\":\"Comment\",\"value\":\"vvv"},
        {{"delete", "{in}", "encoder"}, Input::kTta, 0, "", "\"tags\":[]"},
        {{"delete", "{in}"}, Input::kTtaCover, 0, "", ""},
        // What reading shows: the format, the ID3v2 tag in front of the audio, none for a damaged header;
        // what can be read of a damaged file, with a warning.
        {{"info", "{in}", "--json"}, Input::kTta, 0, "", nullptr, "{\"path\":\"{in}\",\"format\":{\"format_tag\":1,"
         "\"channels\":1,\"sample_rate\":44100,\"avg_bytes_per_sec\":88200,\"block_align\":2,\"bits_per_sample\":16,"},
        {{"--json", "info", "{in}"}, Input::kId3AndApe, 0, "", nullptr, "{\"name\":\"ID Tag\",\"value\":\"APEv2 & ID3v2.3\""},
        {{"--json", "info", "{in}"}, Input::kBadId3AndApe, 0, "", nullptr, "{\"name\":\"ID Tag\",\"value\":\"APEv2\","},
        {{"tags", "--json", "{in}"}, Input::kDamagedApeItem, 0, "fdhost: warning: {in}: The APE tag has an item that "
         "can't be read; only the items in front of it are shown.\n", nullptr, "\"value\":\"hello\""},
        {{"--json", "info", "{in}"}, Input::kCutMka, 0, "fdhost: warning: {in}: " + kCutMkaWarning, nullptr,
         "\"warnings\":[\"" + kCutMkaWarning.substr(0, kCutMkaWarning.size() - 1)},
        {{"pictures", "{in}", "-o", "{dir}/pictures"}, Input::kTtaCover, 0, "", nullptr, "_albumart_1_Back Album Cover.png: PNG 8x8, "},
        {{"--json", "can-tag", "\xF0\x9F\x8E\xB5\xFF.mka"}, Input::kNone, 0, "", nullptr,
         "{\"path\":\"\xF0\x9F\x8E\xB5\xEF\xBF\xBD.mka\",\"value\":1,\"warnings\":[]}\n"},   // no UTF-8: U+FFFD
        {{"--version"}, Input::kNone, 0, "", nullptr, "fdhost "},
        {{"write", "--help"}, Input::kNone, 0, "", nullptr, "   4  back            Back Album Cover\n"},
    };
    // decode, info and tags on what is no audio: the plug-in's own reason, without its function label.
    const std::pair<Input, std::string> inputs[] = {{Input::kNone, kOpening + "No such file or directory)\n"},
        {Input::kFolder, kOpening + "Is a directory)\n"}, {Input::kEmpty, kNoAudio}, {Input::kText, kNoAudio}};
    for (const auto& [input, err] : inputs) {
        for (const auto& args : {std::vector<std::string>{"decode", "{in}", "-o", "{out}"}, {"info", "{in}"}, {"--json", "tags", "{in}"}})
            rows.push_back({args, input, 1, err});
    }
    Fixture().Run(rows);
}

// tags --json fed to write --from-json gives the same tags, pictures and several values included; a terminal sees
// control characters escaped. An existing output is replaced only with -y; an interrupted decode leaves no partial
// output; --error-log keeps a copy of the plug-in's log, each log started afresh; every --help line holds one option
// with its text.
TEST(FdhostTable, JsonRoundTripTerminalOutputsLogsAndHelp) {
    Fixture fixture;
    const std::string first = fixture.Make(Input::kTta), second = fixture.Make(Input::kTta);
    ASSERT_EQ(it::Fdhost({"write", first, "--set", "Artist=A", "--set", "artist=B", "--set", "Title=\x1b[31mred \xC3\xA9",
                          "--picture", "front=" + fixture.png, "--picture", "4=" + fixture.png}).exitCode, 0);
    const it::RunResult tags = it::Fdhost({"tags", "--json", first});
    EXPECT_NE(tags.out.find("\"value\":\"\\u001b[31mred \xC3\xA9\""), std::string::npos) << tags.out;
    EXPECT_NE(tags.out.find("{\"name\":\"Artist\",\"value\":\"A\\rB\""), std::string::npos) << tags.out;
    const std::string digest = it::Run({"/usr/bin/sha256sum", fixture.png}).out.substr(0, 64);
    EXPECT_NE(tags.out.find("\"data_sha256\":\"" + digest + "\""), std::string::npos) << digest;
    it::WriteFile(fixture.dir.File("tags.json"), tags.out);
    ASSERT_EQ(it::Fdhost({"write", second, "--from-json", fixture.dir.File("tags.json")}).exitCode, 0);
    EXPECT_EQ(it::ReadFile(second), it::ReadFile(first));
    const it::RunResult terminal = it::Run({"/usr/bin/script", "-qec", std::string(FD_HOST_PATH) + " tags " + first, "/dev/null"});
    EXPECT_NE(terminal.out.find("Title = \\x1B[31mred \xC3\xA9"), std::string::npos) << terminal.out;
    EXPECT_EQ(terminal.out.find('\x1b'), std::string::npos) << terminal.out;

    const std::string out = fixture.dir.File("out.wav");
    it::WriteFile(out, "keep me");
    EXPECT_EQ(it::Fdhost({"decode", fixture.tta, "-o", out}).err, "fdhost: the output " + out + " exists (give -y to replace it)\n");
    EXPECT_EQ(it::ReadFile(out), "keep me");
    EXPECT_EQ(it::Fdhost({"decode", "--quiet", fixture.tta, "-o", out, "-y"}).exitCode, 0);
    EXPECT_EQ(it::ReadFile(out).substr(0, 4), "RIFF");
    // ffmpeg feeds a FIFO in real time; the quit event comes while fdhost writes.
    const std::string fifo = fixture.dir.File("slow.wav"), partial = fixture.dir.File("partial.wav");
    const it::RunResult cut = it::Run({"/bin/sh", "-c",
        "mkfifo \"$2\" && \"$0\" -loglevel quiet -re -f lavfi -i sine=duration=30 -f wav -y \"$2\" & sleep 1; "
        "\"$1\" decode --quiet --quit-after-ms 8000 \"$2\" -o \"$3\"; s=$?; kill $! 2>/dev/null; exit $s",
        FD_FFMPEG_PATH, FD_HOST_PATH, fifo, partial});
    EXPECT_EQ(cut.exitCode, 1);
    EXPECT_EQ(cut.err, "fdhost: " + fifo + ": decoding stopped early; the partial output was removed\n");
    EXPECT_FALSE(std::filesystem::exists(partial));

    const std::string errors = fixture.dir.File("error.log"), trace = fixture.dir.File("trace.log"), missing = fixture.dir.File("m.flac");
    it::WriteFile(errors, "old content of an earlier run");
    EXPECT_EQ(it::Fdhost({"--error-log", errors, "info", missing, "--trace-log=" + trace}).exitCode, 1);
    std::string expected;
    for (const char c : "Error opening file '" + missing +
                            "', check no other program has it open. (No such file or directory)  [clDecoder_ffmpeg::SetPosition]\r\n")
        expected += std::string{c, '\0'};
    EXPECT_EQ(it::ReadFile(errors), expected);
    EXPECT_NE(it::ReadFile(trace).find(expected), std::string::npos) << "the trace has it too";
    for (const char* command : {"caps", "can-tag", "info", "tags", "pictures", "decode", "write", "delete"})
        EXPECT_EQ(it::Fdhost({command, "--help"}).out.find("\n                    "), std::string::npos)
            << command << ": a description on a line of its own";
}

}  // namespace
