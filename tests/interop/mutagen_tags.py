"""Reads and writes APEv2 and ID3v1 tags with mutagen, for the interop tests.

  mutagen_tags.py ape-expect FILE EXPECTED.json    compare the APEv2 tag with EXPECTED
  mutagen_tags.py ape-write FILE SPEC.json         write an APEv2 tag from SPEC
  mutagen_tags.py id3v1-expect FILE EXPECTED.json  compare the ID3v1 tag with EXPECTED
  mutagen_tags.py id3v1-write FILE SPEC.json       append an ID3v1.1 tag made from SPEC

APE form: {"Key": {"text": [values]} | {"cover": {"name": str, "data_file": path}}
                 | {"binary_file": path}}; keys compare without case.
ID3v1 form: {"title", "artist", "album", "year", "comment", "track", "genre"}, each a
string, absent when the field is empty.
Exit status 0 on a match or success, 1 on a mismatch (both sides printed), 2 on misuse.
"""

import json
import sys

import mutagen.apev2
import mutagen.id3


def read_bytes(path):
    with open(path, "rb") as f:
        return f.read()


def ape_actual(path, expected):
    tag = mutagen.apev2.APEv2(path)
    actual = {}
    for key, value in tag.items():
        want = expected.get(key.lower(), {})
        if value.kind == mutagen.apev2.TEXT:
            actual[key.lower()] = {"text": list(value)}
        elif "cover" in want:
            name, _, data = value.value.partition(b"\0")
            same = data == read_bytes(want["cover"]["data_file"])
            actual[key.lower()] = {"cover": {"name": name.decode("latin-1"),
                                             "data_file": want["cover"]["data_file"] if same else "<differs>"}}
        elif "binary_file" in want:
            same = value.value == read_bytes(want["binary_file"])
            actual[key.lower()] = {"binary_file": want["binary_file"] if same else "<differs>"}
        else:
            actual[key.lower()] = {"binary_hex": value.value.hex()}
    return actual


def ape_write(path, spec):
    try:
        tag = mutagen.apev2.APEv2(path)
    except mutagen.apev2.APENoHeaderError:
        tag = mutagen.apev2.APEv2()
    for key, item in spec.items():
        if "text" in item:
            tag[key] = mutagen.apev2.APEValue("\0".join(item["text"]), mutagen.apev2.TEXT)
        elif "cover" in item:
            data = item["cover"]["name"].encode("latin-1") + b"\0" + read_bytes(item["cover"]["data_file"])
            tag[key] = mutagen.apev2.APEValue(data, mutagen.apev2.BINARY)
        else:
            tag[key] = mutagen.apev2.APEValue(read_bytes(item["binary_file"]), mutagen.apev2.BINARY)
    tag.save(path)


ID3V1_FRAMES = {"title": "TIT2", "artist": "TPE1", "album": "TALB", "year": "TDRC",
                "comment": "COMM", "track": "TRCK"}


def id3v1_actual(path):
    data = read_bytes(path)[-128:]
    frames = mutagen.id3.ParseID3v1(data) or {}
    actual = {}
    for name, frame_id in ID3V1_FRAMES.items():
        if frame_id in frames:
            actual[name] = str(frames[frame_id])
    if "TCON" in frames:
        actual["genre"] = frames["TCON"].genres[0]
    return actual


def id3v1_write(path, spec):
    frames = {}
    for name, frame_id in ID3V1_FRAMES.items():
        if name in spec:
            frames[frame_id] = getattr(mutagen.id3, frame_id)(encoding=0, text=[spec[name]])
    if "genre" in spec:
        frames["TCON"] = mutagen.id3.TCON(encoding=0, text=[spec["genre"]])
    with open(path, "ab") as f:
        f.write(mutagen.id3.MakeID3v1(frames))


def compare(actual, expected):
    if actual == expected:
        return 0
    print("expected:", json.dumps(expected, sort_keys=True, ensure_ascii=False))
    print("actual:  ", json.dumps(actual, sort_keys=True, ensure_ascii=False))
    return 1


def main(argv):
    if len(argv) != 4:
        print(__doc__, file=sys.stderr)
        return 2
    command, path = argv[1], argv[2]
    with open(argv[3], encoding="utf-8") as f:
        spec = json.load(f)
    if command == "ape-expect":
        expected = {key.lower(): item for key, item in spec.items()}
        return compare(ape_actual(path, expected), expected)
    if command == "ape-write":
        ape_write(path, spec)
        return 0
    if command == "id3v1-expect":
        return compare(id3v1_actual(path), spec)
    if command == "id3v1-write":
        id3v1_write(path, spec)
        return 0
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
