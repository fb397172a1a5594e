#!/usr/bin/env python3
"""Twenty one-line faults, spread over the code: each is applied, the tree
built, and the tests of its area run until one fails; the file is then put
back. Every fault must be caught.

    scripts/mutation-check.py [BUILD] [ID...]      Linux faults (BUILD: build)
    scripts/mutation-check.py --windows [BUILD]    the Windows one, under Wine (BUILD: build-windows)

Faults of a reader whose malformed inputs live as fuzz replays are, when no
test of their area fails, run through that fuzz target's regression and
hostile inputs too (FD_FUZZ_BUILD, default build-fuzz, from the test
command's fuzz stage).

A fault whose line is no longer found is reported as such, not as caught."""
import os, subprocess, sys, tempfile, time

# (id, file, the line as it stands, the fault, the tests of its area)
FAULTS = [
 ("M01", "codecs/decoders/ffmpeg/decoder.cpp", "out->endOfStream = got < want || dataRead >= dataSize ? 1 : 0;", "out->endOfStream = got < want ? 1 : 0;", "Worker|Decode|Seek|Quit"),
 ("M02", "codecs/decoders/ffmpeg/stderrparse.cpp", "LeadingInteger(value) * 1000, UINT32_MAX", "LeadingInteger(value) * 1024, UINT32_MAX", "StdErr|Decode|Worker"),
 ("M03", "codecs/decoders/ffmpeg/stderrqueue.cpp", "if (heldBytes_ <= kMaxHeldBytes) return;", "return;", "StdErr|Worker"),
 ("M04", "codecs/decoders/ffmpeg/wavestream.cpp", "bool formatSeen = false;", "bool formatSeen = true;", "Wave|Worker"),
 ("M05", "codecs/decoders/ffmpeg/qel-matroska/ebml_write.cpp", "if (value == 127) return 2;", "if (value == 128) return 2;", "Ebml|Matroska|Mkv"),
 ("M06", "codecs/decoders/ffmpeg/qel-matroska/matroskatags_write.cpp", "if (track != nullptr && shown.count(key) != 0) erased += track->erase(key);", "if (track != nullptr && shown.count(key) != 0 && false) erased += track->erase(key);", "Ebml|Matroska|Mkv"),
 ("M07", "codecs/decoders/ffmpeg/qel-matroska/ebml_read.cpp", "if (first == 0xFF) return kUnknownSize;", "if (first == 0xFE) return kUnknownSize;", "Ebml|Matroska|Mkv"),
 ("M08", "tags/tagapev2_write.cpp", "frame.flags = withHeader ? kApeHasHeader : 0;", "frame.flags = 0;", "APE|Ape|Tag|Mutagen|StdTags|FileSeam"),
 ("M09", "tags/tagid3v1.cpp", "tag[kTrackAt] = static_cast<uint8_t>(track & 0xFF);", "tag[kTrackAt] = static_cast<uint8_t>((track - 1) & 0xFF);", "ID3|Id3|Tag|Mutagen|StdTags"),
 ("M10", "tags/id3v2/id3reconcile.cpp", "value.substr(8, 2) + value.substr(5, 2)", "value.substr(5, 2) + value.substr(8, 2)", "ID3|Id3|Tag|Mutagen"),
 ("M11", "tags/id3v2/id3text.cpp", "return text::Utf16ToUtf8(Wide(bytes + 2, length - 2, true));", "return text::Utf16ToUtf8(Wide(bytes + 2, length - 2, false));", "ID3|Id3|Tag|Mutagen"),
 ("M12", "image/rasterformats.cpp", "stream.skipExact(uint64_t{3} << ((flags & 7u) + 1));", "stream.skipExact(uint64_t{3} << (flags & 7u));", "Image|Picture"),
 ("M13", "image/isoformat.cpp", "if (IsAlphaUrn(view)) result.alpha = true;", "if (IsAlphaUrn(view) && false) result.alpha = true;", "Image|Picture"),
 ("M14", "support/textcodec_posix.cpp", "out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));", "out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x1FF)));", "Text|ClString|FromUtf8|Utf|Tag|Fdhost"),
 ("M15", "support/filehandle_posix.cpp", "result = ::ftruncate(Fd(handle), here);", "result = 0;", "ClFile|FileSeam|APE|Ape|ID3|Id3|StdTags|Mutagen|Fdhost"),
 ("M16", "transport/worker_posix.cpp", "if (::pipe2(ends, O_CLOEXEC) != 0)", "if (::pipe2(ends, 0) != 0)", "Worker|Thread|Pipe|Concurrency|Quit"),
 ("M17", "transport/pipestream_posix.cpp", "        if (errno == EINTR) continue;\n        if (errno != EAGAIN && errno != EWOULDBLOCK) RaiseForErrno(errno);\n        if (!deadline)", "        if (errno == EINTR) RaiseForErrno(errno);\n        if (errno != EAGAIN && errno != EWOULDBLOCK) RaiseForErrno(errno);\n        if (!deadline)", "Worker|Pipe|Thread"),
 ("M18", "host/cmd_tags_write.cpp", "if (tags.Entries().empty()) throw UsageError(", "if (false) throw UsageError(", "Fdhost"),
 ("M19", "codecs/decoders/ffmpeg/exports.cpp", "    if (decoder == nullptr) return 0;\n    clDecoder_ffmpeg& self = *AsDecoder(decoder);\n    return Guarded(self, \"clDecoder_ffmpeg::Set\"", "    clDecoder_ffmpeg& self = *AsDecoder(decoder);\n    return Guarded(self, \"clDecoder_ffmpeg::Set\"", "Plugin|Export|Get|Trace|Fdhost"),
 ("W01", "transport/worker_win32.cpp", "if (arg.find(' ') != std::string::npos) {", "if (false) {", ""),
]


# Faults whose inputs are fuzz replays: the fuzz target that replays them.
FUZZ_REPLAY = {"M04": "wavestream_fuzz"}


def fuzz_replay(target):
    build = os.environ.get("FD_FUZZ_BUILD", "build-fuzz")
    if not os.path.isdir(build) or run(["cmake", "--build", build, "--target", target]).returncode:
        return None
    inputs = [os.path.join(d, f) for d in ("fuzz/regressions/" + target, "fuzz/hostile/" + target)
              if os.path.isdir(d) for f in sorted(os.listdir(d))]
    return run([os.path.join(build, "fuzz", target), "-rss_limit_mb=2048"] + inputs).returncode != 0


def run(args, **kw):
    return subprocess.run(args, capture_output=True, text=True, **kw)


def wine_ctest(build):
    # The test command's own Windows stage, Wine set-up and all. Its output goes
    # to a file: Wine's services keep any pipe they were given open.
    if not build.endswith("-windows"):
        sys.exit("the Windows build folder must end in -windows, as the test command names it")
    env = dict(os.environ, FD_BUILD_PREFIX=build[:-len("-windows")])
    with tempfile.TemporaryFile("w+") as out:
        code = subprocess.run(["bash", "scripts/test.sh", "windows"], stdout=out, stderr=subprocess.STDOUT,
                              env=env).returncode
        out.seek(0)
        return subprocess.CompletedProcess([], code, out.read(), "")


def check(fault, build, windows):
    name, path, line, wrong, area = fault
    text = open(path).read()
    if text.count(line) != 1:
        return "line not found (%d times)" % text.count(line)
    try:
        open(path, "w").write(text.replace(line, wrong))
        built = run(["cmake", "--build", build, "-j2"])
        if built.returncode:
            return "BUILD FAILED: " + built.stdout[-400:]
        tests = wine_ctest(build) if windows else run(
            ["ctest", "--test-dir", build, "-R", area, "--stop-on-failure", "-j2", "--timeout", "300", "--no-tests=error"])
        failed = [l.split(":", 1)[-1].split("...")[0].strip() for l in tests.stdout.splitlines() if "***" in l]
        if tests.returncode:
            return "caught by " + ", ".join(failed[:2])
        if name in FUZZ_REPLAY and fuzz_replay(FUZZ_REPLAY[name]):
            return "caught by the replay of " + FUZZ_REPLAY[name]
        return "MISSED"
    finally:
        open(path, "w").write(text)


def main(argv):
    os.chdir(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    windows = "--windows" in argv
    argv = [a for a in argv if a != "--windows"]
    build = argv[0] if argv else ("build-windows" if windows else "build")
    wanted = set(argv[1:])
    missed = 0
    for fault in FAULTS:
        if fault[0].startswith("W") != windows or (wanted and fault[0] not in wanted):
            continue
        started = time.time()
        verdict = check(fault, build, windows)
        missed += not verdict.startswith("caught")
        print("%s %s:%s (%.0f s)" % (fault[0], fault[1], " " + verdict, time.time() - started), flush=True)
    run(["cmake", "--build", build, "-j2"])
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
