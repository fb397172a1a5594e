"""usage: mutagen_id3.py write FILE VERSION PNG JPEG | dump FILE

write: puts a fixed set of ID3v2 frames (VERSION 3 or 4) at the start of FILE,
with the two images as front and back covers.
dump: prints the ID3v2 frames of FILE as JSON, in file order: [[id, value], ...]; a
picture's bytes go to FILE.apicN, whose name stands in the JSON.
"""

import json
import sys

from mutagen.id3 import (APIC, COMM, GEOB, ID3, MCDI, POPM, PRIV, TALB, TCOM, TCON, TDRC, TIT2, TPE1, TPE2,
                         TRCK, TXXX, UFID, USLT, WXXX, ID3NoHeaderError)


def read_bytes(path):
    with open(path, "rb") as f:
        return f.read()


def write(path, version, png, jpeg):
    v4 = version == 4
    tag = ID3()
    tag.add(TIT2(encoding=1, text=["Gr\u00fc\u00dfe \u263a"]))
    tag.add(TALB(encoding=0, text=["Caf\u00e9"]))
    tag.add(TPE1(encoding=3, text=["A", "B"]))
    tag.add(TPE2(encoding=0, text=["AC/DC"]))
    tag.add(TCOM(encoding=2, text=["Comp\u00f6ser"]))
    tag.add(TCON(encoding=0, text=["17", "Electronic", "(8)"] if v4 else ["Rock; 8; (RX)"]))
    tag.add(TRCK(encoding=0, text=["3/12"]))
    tag.add(TDRC(encoding=0, text=["2004-05-06" if v4 else "2001-03-02"]))
    tag.add(COMM(encoding=1, lang="eng", desc="", text=["plain"]))
    tag.add(COMM(encoding=0, lang="deu", desc="note", text=["Notiz"]))
    tag.add(TXXX(encoding=0, desc="replaygain_track_gain", text=["-6.50 dB"]))
    tag.add(TXXX(encoding=3, desc="Mood[2]", text=["calm"]))
    tag.add(TXXX(encoding=1, desc="Catalog", text=["x", "y"]))
    tag.add(POPM(email="x@y", rating=196, count=3))
    tag.add(USLT(encoding=1, lang="eng", desc="d", text="la la"))
    tag.add(WXXX(encoding=0, desc="home", url="http://h.example/"))
    tag.add(APIC(encoding=1, mime="image/png", type=3, desc="Front C\u00f6ver", data=read_bytes(png)))
    tag.add(APIC(encoding=3 if v4 else 1, mime="image/jpeg", type=4, desc="Back", data=read_bytes(jpeg)))
    tag.add(PRIV(owner="org.example", data=b"\x00\x01private"))
    tag.add(MCDI(data=b"\x00\x12toc"))
    tag.add(UFID(owner="http://ufid.example", data=b"id-1"))
    tag.add(GEOB(encoding=0, mime="application/x-test", filename="f.bin", desc="obj", data=b"\x01\x02"))
    tag.save(path, v2_version=version)


def describe(frame, path, index):
    if isinstance(frame, APIC):
        name = "%s.apic%d" % (path, index)
        with open(name, "wb") as f:
            f.write(frame.data)
        return [frame.type, frame.desc, frame.mime, name]
    if isinstance(frame, (PRIV, MCDI, UFID)):
        return getattr(frame, "owner", "") + ":" + frame.data.hex()
    if isinstance(frame, GEOB):
        return [frame.mime, frame.filename, frame.desc, frame.data.hex()]
    if isinstance(frame, POPM):
        return [frame.email, frame.rating]
    if isinstance(frame, WXXX):
        return [frame.desc, frame.url]
    if isinstance(frame, (COMM, USLT)):
        return [frame.desc, frame.lang, str(frame)]
    if isinstance(frame, TXXX):
        return [frame.desc] + list(frame.text)
    if hasattr(frame, "url"):
        return frame.url
    return [str(t) for t in frame.text]


def dump(path):
    try:
        tag = ID3(path, translate=False)
    except ID3NoHeaderError:
        print(json.dumps({"version": None, "frames": []}))
        return
    frames = [[frame.FrameID, describe(frame, path, i)] for i, frame in enumerate(tag.values())]
    print(json.dumps({"version": tag.version[1], "frames": frames}, ensure_ascii=False))


def main(argv):
    if len(argv) == 6 and argv[1] == "write":
        write(argv[2], int(argv[3]), argv[4], argv[5])
        return 0
    if len(argv) == 3 and argv[1] == "dump":
        dump(argv[2])
        return 0
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
