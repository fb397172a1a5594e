"""usage: mutagen_tags.py id3v2-roundtrip|ape-roundtrip FDHOST AUDIO DIR FIRST_SEED COUNT IMAGE...

id3v2-roundtrip: per seed, a random 2.3 or 2.4 tag by mutagen (some with a usual defect); fdhost
must read what mutagen reads; after "fdhost write" of one random field mutagen reads it as written,
every other frame is the same bytes and the bytes behind the tag are unchanged.
ape-roundtrip: per seed, a random APEv2 tag, ID3v1.1 tag, both or none by mutagen behind the audio;
the same checks, item by item, and the ID3v1 tag read back by mutagen as the update made it.
"""

import hashlib
import json
import mimetypes
import os
import random
import re
import struct
import subprocess
import sys

import mutagen.apev2
import mutagen.id3
import mutagen.id3 as m


def read_bytes(path):
    with open(path, "rb") as f:
        return f.read()


ONE = {"TIT2": "Title", "TIT3": "Subtitle", "TSST": "Set subtitle", "TALB": "Album", "TCOP": "Copyright",
       "TENC": "Encoded by", "TSSE": "Encoder Settings", "TOWN": "File owner/licensee", "TKEY": "Initial key",
       "TRSO": "Internet radio station owner", "TCMP": "Compilation", "TSOT": "Title Sort", "TSOA": "Album Sort",
       "TLEN": "Length", "TBPM": "BPM", "TMED": "Source", "TSRC": "ISRC", "TRSN": "Internet radio station name",
       "TDRL": "Release date", "TDRC": "Year", "TDOR": "Original release year", "TIPL": "Involved People",
       "TMCL": "Musician Credits", "TORY": "Original release year", "TRDA": "Recording dates", "TRCK": "Track",
       "TPOS": "Disc"}
MANY = {"TIT1": "Content Group", "TPE1": "Artist", "TPE2": "Album Artist", "TPE3": "Conductor",
        "TPE4": "Interpreted, remixed, or otherwise modified by", "TCOM": "Composer", "TEXT": "Lyricist/Text writer",
        "TPUB": "Label", "TOPE": "Original artist(s)/performer(s)", "TOAL": "Original album/movie/show title",
        "TSOP": "Artist Sort", "TSO2": "Album Artist Sort", "TSOC": "ComposerSort", "TLAN": "Language(s)"}
URLS = {"WCOM": "Commercial information", "WOAR": "Official artist/performer webpage", "WPAY": "Payment",
        "WOAS": "Official audio source webpage", "WPUB": "Official publisher webpage"}
GENRES = {"8": "Jazz", "13": "Pop", "17": "Rock", "52": "Electronic"}
PICTURE_TYPES = {0: "Undefined", 3: "Front Album Cover", 4: "Back Album Cover", 8: "Artist"}
TEXTS = ["plain", "Caf\u00e9 cr\u00e8me", "Gr\u00fc\u00dfe", "\u65e5\u672c\u8a9e \u03a9", "\u0395\u03bb\u03bb\u03ac\u03b4\u03b1",
         "emoji \U0001f3b5", "x y", "\u00c5ngstr\u00f6m", "\u20ac 5"]


def latin1(text):
    return all(ord(c) < 0x80 or 0xA0 <= ord(c) <= 0xFF for c in text)


def encoding_for(rng, texts, v4):
    choices = [e for e in ((0, 1, 2, 3) if v4 else (0, 1)) if e or all(latin1(t) for t in texts)]
    return rng.choice(choices)


def random_frames(rng, v4, images):
    """A random tag over every frame kind mutagen writes: [mutagen frame]."""
    frames, texts = [], list(TEXTS)
    rng.shuffle(texts)
    for fid in rng.sample(sorted(ONE.keys() - {"TDRC", "TDOR", "TIPL", "TMCL", "TORY", "TRDA", "TRCK", "TPOS",
                                               "TLEN", "TBPM", "TCMP", "TDRL"}), 4):
        t = [texts.pop()]
        frames.append(getattr(m, fid)(encoding=encoding_for(rng, t, v4), text=t))
    for fid in rng.sample(sorted(MANY), 3):
        t = rng.sample(["A", "B b", "\u00c7a", "\u4e2d\u6587", "Dee"], rng.randint(1, 2))
        frames.append(getattr(m, fid)(encoding=encoding_for(rng, t, v4), text=t))
    frames.append(m.TRCK(encoding=0, text=["%d/12" % rng.randint(1, 12)]))
    genres = rng.sample(["17", "(8)", "Electronic", "Tr\u00e4nce", "(13)"], rng.randint(1, 2))
    frames.append(m.TCON(encoding=encoding_for(rng, genres, v4), text=genres if v4 else ["; ".join(genres)]))
    date = rng.choice(["2004", "2004-05", "2004-05-06", "2004-05-06T07:08"])
    if v4 or rng.random() < 0.5:   # mutagen leaves TDRC in a 2.3 tag unless told otherwise
        frames.append(m.TDRC(encoding=0, text=[date]))
    else:
        frames.append(m.TYER(encoding=0, text=[date[:4]]))
        frames += [m.TDAT(encoding=0, text=[(date[8:10] or "00") + date[5:7]])] if len(date) > 4 else []
        frames += [m.TIME(encoding=0, text=[date[11:13] + date[14:16]])] if len(date) > 10 else []
    for desc in rng.sample(["", "note", "n\u00f6te", "\u8a55"], 2):
        t = [rng.choice(TEXTS)]
        frames.append(m.COMM(encoding=encoding_for(rng, t + [desc], v4), lang=rng.choice(["eng", "deu", "jpn"]),
                             desc=desc, text=t))
    lyric = rng.choice(["la la", "l\u00e4\nla", "\u6b4c"])
    frames.append(m.USLT(encoding=encoding_for(rng, [lyric], v4), lang="eng", desc=rng.choice(["", "d\u00e9"]),
                         text=lyric))
    for desc in rng.sample(["Catalog", "Mood[2]", "[1]", "\u00dcber", "replaygain_track_gain", "Soloists"], 3):
        t = ["-6.50 dB"] if desc.startswith("replay") else rng.sample(["x", "y\u00ff", "z z", "\u5b57"], rng.randint(1, 2))
        frames.append(m.TXXX(encoding=encoding_for(rng, t + [desc], v4), desc=desc, text=t))
    frames.append(m.WXXX(encoding=encoding_for(rng, ["h\u00f6me"], v4), desc=rng.choice(["", "h\u00f6me"]),
                         url="http://h.example/"))
    frames.append(getattr(m, rng.choice(sorted(URLS)))(url="http://u.example/%d" % rng.randint(0, 9)))
    frames.append(m.POPM(email="x@y", rating=rng.choice([1, 64, 196, 255]), count=3))
    for kind in rng.sample(sorted(images), 2):
        desc = rng.choice(["", "Front C\u00f6ver", "\u8868", "plain"])
        frames.append(m.APIC(encoding=encoding_for(rng, [desc], v4), mime=images[kind][0], data=images[kind][1],
                             type=rng.choice(sorted(PICTURE_TYPES)), desc=desc + kind))
    binary = bytes([1, 0xFF, 0, 2, 0xFF, 0xE0, 0xFF])
    frames += [m.PRIV(owner="org.example", data=binary), m.MCDI(data=b"\x00\x12" + binary),
               m.UFID(owner="http://ufid.example", data=binary),
               m.GEOB(encoding=0, mime="application/x-test", filename="f.bin", desc="obj", data=binary),
               m.SYLT(encoding=0, lang="eng", format=2, type=1, desc="s", text=[("one", 10), ("two", 20)])]
    people = [["role", "p\u00e9rson"], ["mix", "M"]]
    frames.append(m.TIPL(encoding=encoding_for(rng, sum(people, []), v4), people=people))
    return frames


def split_at_slash(text):   # the generated values have no blanks at their ends
    return [piece.strip(" ") for piece in text.split("/") if piece.strip(" ")]


def genre(text, v4):
    if text.isdigit() or (text.startswith("(") and text[1:-1].isdigit()):
        return GENRES.get(text.strip("()"), text if text.isdigit() else "")
    return text


class Values:
    """What the plug-in's reader gives for mutagen's frames: names without case."""

    def __init__(self):
        self.map, self.pictures, self.date = {}, [], {}

    def add(self, name, text):
        if text and name:
            self.map.setdefault(name.lower(), [name, []])[1].append(text)

    def frame(self, f, v4):
        fid, text = f.FrameID, [str(t) for t in getattr(f, "text", [])] if not isinstance(f, m.USLT) else [f.text]
        if fid in ("TIPL", "TMCL"):
            text = [f.people[0][0]]
        if fid in ("TYER", "TDAT", "TIME"):
            self.date[fid] = text[0]
        elif fid in ONE:   # mutagen shows a time stamp's "T" as a blank
            self.add(ONE[fid], text[0].replace(" ", "T") if fid in ("TDRC", "TDOR", "TDRL") else text[0])
        elif fid in MANY:
            for t in (split_at_slash(text[0]) if len(text) == 1 and not v4 else text):
                self.add(MANY[fid], t)
        elif fid == "TCON":
            for t in (text if v4 else [p.strip(" ") for p in text[0].split(";")]):
                self.add("Genre", genre(t, v4))
        elif fid in URLS:
            self.add(URLS[fid], f.url)
        elif fid == "COMM":
            self.add("Comment" + (" " + f.desc if f.desc else ""), text[0])
        elif fid == "USLT":
            self.add("Lyrics", f.text)
        elif fid == "POPM" and f.rating:
            self.map["rating"] = ["Rating", [str(next(i for i, s in enumerate(RATING_STEPS) if f.rating <= s))]]
        elif fid == "WXXX":
            self.add("User defined URL link" + (" " + f.desc if f.desc else ""), f.url)
        elif fid == "TXXX":
            name = f.desc if f.desc.startswith("replay") else re.sub(r"\[\d+\]$", "", f.desc)
            texts = text[:1] if f.desc.startswith("replay") else text
            for t in (split_at_slash(texts[0]) if name == "Soloists" and not v4 and len(texts) == 1 else texts):
                self.add(name, t)
        elif fid == "APIC":
            self.pictures.append((PICTURE_TYPES[f.type], f.desc, hashlib.sha256(f.data).hexdigest()))
        elif fid == "MCDI" and "_cdtoc" not in self.map:
            self.map["_cdtoc"] = ["_cdtoc", [hashlib.sha256(f.data).hexdigest()]]

    def result(self):
        d = self.date
        if d:
            year = d.get("TYER", "0000") + ("-" + d["TDAT"][2:] if "TDAT" in d else "")
            year += ("-" + d["TDAT"][:2] if "TDAT" in d and d["TDAT"][:2] != "00" else "")
            self.add("Year", year + ("T%s:%s" % (d["TIME"][:2], d["TIME"][2:]) if "TIME" in d and len(year) == 10 else ""))
        return {k: (n, "\r".join(v)) for k, (n, v) in self.map.items()}, sorted(self.pictures)


RATING_STEPS = [0, 0, 1, 32, 64, 96, 128, 160, 196, 228, 255]


def mutagen_values(path, v4):
    values = Values()
    for f in mutagen.id3.ID3(path, translate=False).values(): values.frame(f, v4)
    return values.result()


def our_values(fdhost, path):
    run = subprocess.run([fdhost, "tags", path, "--json"], capture_output=True, text=True)
    if run.returncode:
        return "fdhost tags failed: " + run.stderr
    values, pictures = {}, []
    for e in json.loads(run.stdout)["tags"]:
        name = e["name"]
        if name.startswith("_albumart_"):
            pictures.append((*(name.split("_", 3) + [""])[3].partition("<subdesc>")[::2], e["data_sha256"]))
        else:
            values[name.lower()] = (name, e["data_sha256"] if e["data_size"] else e["value"])
    return values, sorted(pictures)


def synchsafe(n, plain=False):
    return struct.pack(">I", n) if plain else bytes([(n >> s) & 0x7F for s in (21, 14, 7, 0)])


def walk(data):
    """The tag in front of `data`: (version, flags, end, [[id, flags, stored, content]])."""
    if data[:3] != b"ID3":
        return None
    v, flags = data[3], data[5]
    end = 10 + sum(b << s for b, s in zip(data[6:10], (21, 14, 7, 0))) + (10 if flags & 0x10 else 0)
    body = data[10:end]
    body, pos = mutagen.id3._util.unsynch.decode(body) if v == 3 and flags & 0x80 else body, 0
    if flags & 0x40 and not re.match(b"[A-Z0-9]{4}", body[:4]):
        pos = 4 + struct.unpack(">I", body[:4])[0] if v == 3 else sum(b << s for b, s in zip(body[:4], (21, 14, 7, 0)))
    plain = v == 4 and mutagen.id3._tags.determine_bpi(body[pos:], mutagen.id3.Frames) is int
    frames = []
    while pos + 10 <= len(body) and body[pos] != 0:
        size = sum(b << s for b, s in zip(body[pos + 4:pos + 8], (21, 14, 7, 0) if v == 4 and not plain else (24, 16, 8, 0)))
        ff, stored = body[pos + 9], body[pos + 10:pos + 10 + size]
        content = stored[4:] if v == 4 and ff & 1 else stored
        if v == 4 and (ff & 2 or flags & 0x80):
            try:
                content = mutagen.id3._util.unsynch.decode(content)
            except ValueError:
                pass   # not unsynchronised after all: the comparison shows it
        frames.append([body[pos:pos + 4].decode("latin-1"), body[pos + 8:pos + 10], stored, content])
        pos += 10 + size
    return v, flags, end, frames


def tag_bytes(v, flags, frames, padding, plain=False):
    body = b"".join(f[0].encode("latin-1") + synchsafe(len(f[2]), v == 3 or plain) + f[1] + f[2] for f in frames) + padding
    return b"ID3" + bytes([v, 0, flags]) + synchsafe(len(body)) + body


def damage(rng, kind, data, v):
    """The tag of `data` with one of the usual defects; None when it doesn't apply."""
    v, flags, end, frames = walk(data)
    audio, padding = data[end:], b"\0" * rng.choice([0, 40, 300])
    if kind == "no-bom":
        texts = [f for f in frames if f[0] in ONE and f[2][:3] == b"\x01\xff\xfe" and f[2].count(b"\0\0") == 1]
        if not texts:
            return None
        f = rng.choice(texts)
        f[2] = f[3] = b"\x01" + f[2][3:]
    elif kind == "unsync" and v == 4:
        for f in rng.sample(frames, 3):
            f[1], f[2] = bytes([f[1][0], f[1][1] | 2]), mutagen.id3._util.unsynch.encode(f[2])
    elif kind == "unsync":
        body = tag_bytes(v, 0, frames, padding)[10:]
        return b"ID3\x03\0\x80" + synchsafe(len(mutagen.id3._util.unsynch.encode(body))) + mutagen.id3._util.unsynch.encode(body) + audio
    elif kind == "header-unsync" and v == 4:   # every frame unsynchronised, their own flags not set
        frames = [[f[0], f[1], mutagen.id3._util.unsynch.encode(f[2]), f[3]] for f in frames]
        flags |= 0x80
    elif kind == "no-extended-header":
        flags |= 0x40
    elif kind == "plain-sizes" and v == 4:
        return tag_bytes(v, flags, frames, padding, plain=True) + audio
    elif kind == "junk-padding":
        padding = b"\0" * 20 + b"junk\xff\x01" + b"\0" * 10
    elif kind == "overrun":
        padding = b"PRIV" + synchsafe(5000, v == 3) + b"\0\0" + b"org.x\0" + b"\0" * 30
    elif kind == "stacked":
        return tag_bytes(v, flags, frames, padding) + tag_bytes(v, 0, frames[:2], b"") + audio
    else:
        return None
    return tag_bytes(v, flags, frames, padding) + audio


DAMAGE = [None] * 6 + ["no-bom", "unsync", "header-unsync", "no-extended-header", "plain-sizes", "junk-padding",
                       "overrun", "stacked"]
WRITES = [("Title", TEXTS), ("Album", TEXTS), ("Artist", [["A", "\u00df"], ["\u6f22", "Z"]]), ("Comment", TEXTS),
          ("Year", ["2001", "2001-03", "2001-03-02", "2001-03-02T10:11"]), ("Genre", ["Rock", "Tr\u00e4nce"]),
          ("Track", ["4/9"]), ("Mood", TEXTS), ("picture", [3, 4, 8])]


def frame_names(frame, v):
    values = Values()
    try:
        values.frame(mutagen.id3.Frames[frame[0]]._fromData(Header(v), 0, frame[3]), v == 4)
    except (KeyError, mutagen.id3.error):
        return set()
    return set(values.result()[0]) | {"picture %s" % p[0] for p in values.pictures}


class Header(mutagen.id3._tags.ID3Header):
    def __init__(self, v):
        self.version, self._flags = (2, v, 0), 0


def roundtrip_one(fdhost, audio, images, workdir, seed, notes, counts):
    rng = random.Random(seed)
    v = rng.choice([3, 4])
    path = os.path.join(workdir, "r%d.tta" % seed)
    with open(path, "wb") as f: f.write(audio)
    tag = mutagen.id3.ID3()
    for frame in random_frames(rng, v == 4, images): tag.add(frame)
    tag.save(path, v2_version=v, padding=lambda info: rng.choice([0, 100]))
    kind, data = rng.choice(DAMAGE), read_bytes(path)
    damaged = kind and damage(rng, kind, data, v)
    if damaged:
        data = damaged
        with open(path, "wb") as f: f.write(data)
    label = "seed %d, ID3v2.%d, %s:" % (seed, v, kind if damaged else "as written")
    before, faults, expected = walk(data), [], mutagen_values(path, v == 4)
    # The worker can't decode behind two tags, so the plug-in can't open such a file.
    ours = (lambda: expected) if kind == "stacked" else (lambda: our_values(fdhost, path))
    faults += differences("we read", ours(), expected)

    args, touched, name, value, kind_of_image = plan_write(rng, WRITES, images, expected, ["", "C\u00f6ver", "\u8868\u7d19"])
    write = subprocess.run([fdhost, "write", path] + args, capture_output=True, text=True)
    after = read_bytes(path)
    notes.append("%s %d frames, wrote %s" % (label, len(before[3]), " ".join(args[1::2])))
    if kind == "overrun" and damaged:
        return faults + (["a tag with a frame past its end was rewritten"] if write.returncode == 0 or after != data else [])
    if write.returncode:
        return faults + ["write failed: " + write.stderr]
    new = walk(after)
    if name == "picture":   # the MIME type comes from the picture's bytes
        mimes = {f.mime for f in mutagen.id3.ID3(path).getall("APIC") if f.type == value}
        if mimes != {images[kind_of_image][0]}:
            faults.append("the new picture's MIME type is %r, not %r" % (mimes, images[kind_of_image][0]))
    if after[new[2]:] != data[before[2]:]:
        faults.append("the bytes behind the tag changed")
    kept, now = ([f[:1] + f[3:] for f in t[3] if touched not in frame_names(f, v)] for t in (before, new))
    counts["frames"] += len(before[3])
    counts["checks"] += 3 * (len(expected[0]) + len(expected[1])) + len(kept) + 2
    if sorted(kept) != sorted(now):
        faults.append("frames that the write didn't touch changed:\n  before %r\n  after  %r" % (kept, now))
    faults += differences("after the write mutagen reads", mutagen_values(path, v == 4), expected)
    return faults + differences("after the write we read", ours(), expected)


def plan_write(rng, writes, images, expected, descs):
    """One random write for fdhost: (args, touched name, name, value, image kind); `expected` follows it."""
    (name, choices), kind, desc = rng.choice(writes), rng.choice(sorted(images)), rng.choice(descs)
    value = rng.choice(choices)
    if name == "picture":
        expected[1][:] = sorted([p for p in expected[1] if p[0] != PICTURE_TYPES[value]] +
                                [(PICTURE_TYPES[value], desc, hashlib.sha256(images[kind][1]).hexdigest())])
        return ["--picture", "%d=%s:%s" % (value, images[kind][2], desc)], "picture " + PICTURE_TYPES[value], name, value, kind
    values = value if isinstance(value, list) else [value]
    expected[0][name.lower()] = (expected[0].get(name.lower(), (name,))[0], "\r".join(values))
    return sum((["--set", "%s=%s" % (name, x)] for x in values), []), name.lower(), name, value, kind


def differences(what, got, expected):
    if isinstance(got, str):
        return [got]
    ours, theirs = set(got[0].items()) | set(got[1]), set(expected[0].items()) | set(expected[1])
    return ["%s %r where mutagen %r" % (what, sorted(ours - theirs), sorted(theirs - ours))] if ours != theirs else []


def run_roundtrips(one, fdhost, audio_path, workdir, first_seed, count, image_paths):
    images = {os.path.splitext(i)[1][1:]: (mimetypes.guess_type(i)[0], read_bytes(i), i) for i in image_paths}
    audio, notes, failures, counts = read_bytes(audio_path), [], 0, {"frames": 0, "checks": 0}
    for seed in range(first_seed, first_seed + count):
        faults = one(fdhost, audio, images, workdir, seed, notes, counts)
        print(notes[-1] + (" FAILED\n  " + "\n  ".join(faults) if faults else ""), flush=True)
        failures += bool(faults)
    print("%d files, %d frames, %d checks: %d files with differences" % (count, *counts.values(), failures))
    return 1 if failures else 0


# APE and ID3v1. Keys: what mutagen writes, with the values to pick from; a list ending in "" ends in
# a NUL, and "Link" is a locator, which we don't show but must keep. One cover per tag.
LATIN = [t for t in TEXTS if latin1(t)] + ["a title that runs well past thirty bytes"]
APE_KEYS = [("Title", TEXTS), ("Album", TEXTS), ("Comment", LATIN), ("Year", ["1999", "2004-05-06"]),
            ("Track", ["3", "7/12"]), ("Genre", [["Rock"], ["Jazz", "Tr\u00e4nce"]]),
            ("Artist", [["A"], ["A", "B b"], ["\u00c7a", "\u4e2d"]]), ("Composer", [["C", "D"]]),
            ("Foreign Key", TEXTS), ("Media JukeBox: Mood", TEXTS), ("Tool Name", ["enc 1.0"]), ("BPM", ["120"]),
            ("Rating", ["4.5", "3", "0.5"]), ("Blob", [b"\x00\x01\xff bin"]),
            ("Odd End", [["ab", ""]]), ("Link", ["http://example.org/a"])]
V1_FIELDS = [("Title", "TIT2", LATIN), ("Artist", "TPE1", [["A", "B"], ["\u00c7a"]]), ("Album", "TALB", LATIN),
             ("Year", "TDRC", ["1999"]), ("Comment", "COMM", ["note", "n\u00f6te twenty-eight bytes.."]),
             ("Track", "TRCK", ["9", "255"]), ("Genre", "TCON", ["Jazz", "Electronic", "Pop"])]
APE_WRITES = [("Title", LATIN), ("Album", LATIN), ("Artist", [["A", "\u00df"], ["X"]]), ("Comment", LATIN[:4]),
              ("Year", ["2001"]), ("Track", ["4"]), ("Genre", ["Jazz", "Tr\u00e4nce"]), ("Rating", ["7"]),
              ("Mood", ["glad"]), ("picture", [3, 4])]
SIDES = {"front": "Front Album Cover", "back": "Back Album Cover", "media": ""}


def ape_items(path):   # {lower key: (key, kind, value bytes, texts)}
    tag = mutagen.apev2.APEv2(path) if b"APETAGEX" in read_bytes(path)[-200:] else {}
    return {k.lower(): (k, v.kind, v._write(), list(v) if v.kind == mutagen.apev2.TEXT else []) for k, v in tag.items()}


def ape_view(path):
    """What the plug-in's reader gives for the APE and ID3v1 tags that mutagen reads."""
    values, pictures, v1 = Values(), [], v1_fields(read_bytes(path))
    for low, (key, kind, raw, texts) in ape_items(path).items():
        if kind == mutagen.apev2.EXTERNAL:
            continue
        texts = texts[:-1] if texts[-1:] == [""] else texts
        name = {"tool name": "Encoded by", "bpm": "tempo"}.get(low, key[15:] if low.startswith("media jukebox: ") else key)
        if low.startswith("cover art ("):
            pictures.append((SIDES[low[11:-1]], "", hashlib.sha256(raw.partition(b"\0")[2]).hexdigest()))
        for t in texts or ([] if low.startswith("cover art (") else [hashlib.sha256(raw).hexdigest()]):
            values.add(name, str(int(float(t) * 2)) if name.lower() == "rating" else t)
    for name, fid, _ in V1_FIELDS:
        for t in v1[fid].split("; ") if fid in v1 and name.lower() not in values.map else []:
            values.add(name, t)
    return values.result()[0], sorted(pictures)


def v1_fields(data):
    frames = mutagen.id3.ParseID3v1(data[-128:]) if data[-128:-125] == b"TAG" else {}
    return {fid: f.genres[0] if fid == "TCON" else str(f) for fid, f in frames.items()}


def v1_expected(fields, name, value):
    """The ID3v1 fields after `name` is written: the format's byte limits, known genres only."""
    fid, text = {n: f for n, f, _ in V1_FIELDS}.get(name), "; ".join(value) if isinstance(value, list) else value
    if fid and fields:
        fields[fid] = "" if fid == "TCON" and text not in m.TCON.GENRES[:126] else text[:{"TDRC": 4, "COMM": 28}.get(fid, 30)]
    return {k: v for k, v in fields.items() if v}


def ape_roundtrip_one(fdhost, audio, images, workdir, seed, notes, counts):
    rng, path, tag, v1 = random.Random(seed), os.path.join(workdir, "a%d.tta" % seed), mutagen.apev2.APEv2(), {}
    with open(path, "wb") as f: f.write(audio)
    for key, choices in rng.sample(APE_KEYS, rng.choice([0, 3, 6, 9])):
        value = rng.choice(choices)
        text = None if isinstance(value, bytes) else "\0".join([value] if isinstance(value, str) else value)
        kind = mutagen.apev2.BINARY if text is None else mutagen.apev2.EXTERNAL if key == "Link" else mutagen.apev2.TEXT
        tag[key] = mutagen.apev2.APEValue(value if text is None else text, kind)
    if tag and rng.random() < 0.7:
        kind = rng.choice(sorted(images))
        tag["Cover Art (%s)" % rng.choice(["Front", "Back", "Media"])] = mutagen.apev2.APEValue(
            rng.choice([b"cover.", b"c\xf6ver."]) + kind.encode() + b"\0" + images[kind][1], mutagen.apev2.BINARY)
    if tag:
        tag.save(path)
    for name, fid, choices in rng.sample(V1_FIELDS, rng.choice([0, 0, 2, 5])):
        value = rng.choice(choices)
        v1[fid] = getattr(m, fid)(encoding=0, text=["; ".join(value) if isinstance(value, list) else value])
    with open(path, "ab") as f: f.write(mutagen.id3.MakeID3v1(v1) if v1 else b"")
    data, items, expected = read_bytes(path), ape_items(path), ape_view(path)
    faults = differences("we read", our_values(fdhost, path), expected)

    args, touched, name, value, _ = plan_write(rng, APE_WRITES, images, expected, [""])
    touched = "cover art" if name == "picture" else touched
    notes.append("seed %d, %d APE items, %d ID3v1 fields: wrote %s" % (seed, len(tag), len(v1), " ".join(args[1::2])))
    write = subprocess.run([fdhost, "write", path] + args, capture_output=True, text=True)
    if write.returncode:
        return faults + ["write failed: " + write.stderr]
    after, now = read_bytes(path), ape_items(path)
    kept = [(k, i[1:3], now.get(k, ("gone",))[1:3]) for k, i in items.items() if touched not in k]
    faults += ["the audio changed"] if after[:len(audio)] != audio else []
    faults += ["items that the write didn't touch changed: %r" % [c for c in kept if c[1] != c[2]]] if any(a != b for _, a, b in kept) else []
    if v1_fields(after) != v1_expected(v1_fields(data), name, value):
        faults.append("ID3v1 after the write: %r, not %r" % (v1_fields(after), v1_expected(v1_fields(data), name, value)))
    counts["frames"] += len(tag) + len(v1)
    counts["checks"] += 3 * (len(expected[0]) + len(expected[1])) + len(kept) + 2
    faults += differences("after the write mutagen reads", ape_view(path), expected)
    return faults + differences("after the write we read", our_values(fdhost, path), expected)


def main(argv):
    ones = {"id3v2-roundtrip": roundtrip_one, "ape-roundtrip": ape_roundtrip_one}
    if len(argv) < 7 or argv[1] not in ones:
        print(__doc__, file=sys.stderr)
        return 2
    return run_roundtrips(ones[argv[1]], argv[2], argv[3], argv[4], int(argv[5]), int(argv[6]), argv[7:])


if __name__ == "__main__":
    sys.exit(main(sys.argv))
