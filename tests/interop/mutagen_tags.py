"""usage: mutagen_tags.py ape-expect|ape-write|id3v1-expect|id3v1-write FILE TAGS.json
       mutagen_tags.py id3v2-write FILE VERSION PNG JPEG | id3v2-dump FILE

APE tags: {"Key": {"text": [values]} | {"cover": {"name": str, "data_file": path}}}, keys
without case. ID3v1 tags: {"title", "artist", ..., "genre"}: strings, absent when empty.
id3v2-write: puts a fixed set of ID3v2 frames (VERSION 3 or 4) at the start of FILE, with
the two images as front and back covers. id3v2-dump: prints the ID3v2 frames of FILE as
JSON, in file order: [[id, value], ...]; a picture's bytes go to FILE.apicN, named there.
"""

import json
import sys

import mutagen.apev2
import mutagen.id3
from mutagen.id3 import (APIC, COMM, GEOB, ID3, MCDI, POPM, PRIV, TALB, TCOM, TCON, TDRC, TIT2, TPE1, TPE2,
                         TRCK, TXXX, UFID, USLT, WXXX, ID3NoHeaderError)

ID3V1_FRAMES = {"title": "TIT2", "artist": "TPE1", "album": "TALB", "year": "TDRC",
                "comment": "COMM", "track": "TRCK"}


def read_bytes(path):
    with open(path, "rb") as f:
        return f.read()


def ape_actual(path, expected):
    actual = {}
    for key, value in mutagen.apev2.APEv2(path).items():
        key = key.lower()
        if value.kind == mutagen.apev2.TEXT:
            actual[key] = {"text": list(value)}
            continue
        name, _, data = value.value.partition(b"\0")
        data_file = expected.get(key, {}).get("cover", {}).get("data_file", "")
        same = data_file and data == read_bytes(data_file)
        actual[key] = {"cover": {"name": name.decode("latin-1"), "data_file": data_file if same else "<differs>"}}
    return actual


def ape_write(path, wanted):
    try:
        tag = mutagen.apev2.APEv2(path)
    except mutagen.apev2.APENoHeaderError:
        tag = mutagen.apev2.APEv2()
    for key, item in wanted.items():
        if "text" in item:
            tag[key] = mutagen.apev2.APEValue("\0".join(item["text"]), mutagen.apev2.TEXT)
        else:
            data = item["cover"]["name"].encode("latin-1") + b"\0" + read_bytes(item["cover"]["data_file"])
            tag[key] = mutagen.apev2.APEValue(data, mutagen.apev2.BINARY)
    tag.save(path)


def id3v1_actual(path):
    frames = mutagen.id3.ParseID3v1(read_bytes(path)[-128:]) or {}
    actual = {name: str(frames[frame]) for name, frame in ID3V1_FRAMES.items() if frame in frames}
    if "TCON" in frames:
        actual["genre"] = frames["TCON"].genres[0]
    return actual


def id3v1_write(path, wanted):
    frames = {frame: getattr(mutagen.id3, frame)(encoding=0, text=[wanted[name]])
              for name, frame in ID3V1_FRAMES.items() if name in wanted}
    if "genre" in wanted:
        frames["TCON"] = mutagen.id3.TCON(encoding=0, text=[wanted["genre"]])
    with open(path, "ab") as f:
        f.write(mutagen.id3.MakeID3v1(frames))


def id3v2_write(path, version, png, jpeg):
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


def id3v2_dump(path):
    try:
        tag = ID3(path, translate=False)
    except ID3NoHeaderError:
        print(json.dumps({"version": None, "frames": []}))
        return
    frames = [[frame.FrameID, describe(frame, path, i)] for i, frame in enumerate(tag.values())]
    print(json.dumps({"version": tag.version[1], "frames": frames}, ensure_ascii=False))


def compare(actual, expected):
    for label, value in (("expected:", expected), ("actual:  ", actual)):
        print(label, json.dumps(value, sort_keys=True, ensure_ascii=False))
    return 0 if actual == expected else 1


def main(argv):
    if len(argv) == 6 and argv[1] == "id3v2-write":
        id3v2_write(argv[2], int(argv[3]), argv[4], argv[5])
        return 0
    if len(argv) == 3 and argv[1] == "id3v2-dump":
        id3v2_dump(argv[2])
        return 0
    if len(argv) != 4 or argv[1] not in ("ape-expect", "ape-write", "id3v1-expect", "id3v1-write"):
        print(__doc__, file=sys.stderr)
        return 2
    command, path = argv[1], argv[2]
    with open(argv[3], encoding="utf-8") as f:
        wanted = json.load(f)
    if command == "ape-expect":
        expected = {key.lower(): item for key, item in wanted.items()}
        return compare(ape_actual(path, expected), expected)
    if command == "id3v1-expect":
        return compare(id3v1_actual(path), wanted)
    (ape_write if command == "ape-write" else id3v1_write)(path, wanted)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
