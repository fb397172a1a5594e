"""usage: mutagen_tags.py ape-expect|ape-write|id3v1-expect|id3v1-write FILE TAGS.json

APE tags: {"Key": {"text": [values]} | {"cover": {"name": str, "data_file": path}}}, keys
without case. ID3v1 tags: {"title", "artist", ..., "genre"}: strings, absent when empty.
"""

import json
import sys

import mutagen.apev2
import mutagen.id3

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


def compare(actual, expected):
    for label, value in (("expected:", expected), ("actual:  ", actual)):
        print(label, json.dumps(value, sort_keys=True, ensure_ascii=False))
    return 0 if actual == expected else 1


def main(argv):
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
