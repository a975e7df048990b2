"""From movies whose packets are written in the ways of the wild to phrases, by the built programs.
MURMURASE and MURMURASE_XMP name them. ffmpeg makes the movies and exiftool writes their packets."""
import json
import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

MURMURASE, TOOL = (os.path.abspath(os.environ[name]) for name in ("MURMURASE", "MURMURASE_XMP"))
HEAD = """<?xpacket begin="\ufeff" id="W5M0MpCehiHzreSzNTczkc9d"?><x:xmpmeta xmlns:x="adobe:ns:meta/">
<rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
<rdf:Description rdf:about="" xmlns:xmpDM="http://ns.adobe.com/xmp/1.0/DynamicMedia/"
 xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:xmpMM="http://ns.adobe.com/xap/1.0/mm/"
 xmlns:stRef="http://ns.adobe.com/xap/1.0/sType/ResourceRef#" %s>
"""
TAIL = '</rdf:Description></rdf:RDF></x:xmpmeta><?xpacket end="w"?>'
NTSC = 30000 / 1001


def fields(**values):
    return "".join(f"<xmpDM:{name}>{value}</xmpDM:{name}>" for name, value in values.items())


def resource(name, content):
    return f'<xmpDM:{name} rdf:parseType="Resource">{content}</xmpDM:{name}>'


def duration(scale, value=900):
    return resource("duration", fields(value=value, scale=scale))


def timecode(form, value, name="startTimecode"):
    return resource(name, fields(timeFormat=form, timeValue=value))


def marker(**values):
    return f'<rdf:li rdf:parseType="Resource">{fields(**values)}</rdf:li>'


def track(*markers, kind="Speech", base="f1000"):
    rate = "" if base is None else fields(frameRate=base)
    return (f'<rdf:li rdf:parseType="Resource">{fields(trackType=kind)}{rate}'
            f'<xmpDM:markers><rdf:Seq>{"".join(markers)}</rdf:Seq></xmpDM:markers></rdf:li>')


def tracks(*all_tracks):
    return f'<xmpDM:Tracks><rdf:Bag>{"".join(all_tracks)}</rdf:Bag></xmpDM:Tracks>'


def word(name, start=0, length=0, speaker="A"):
    return marker(startTime=start, duration=length, name=name, speaker=speaker)


HELLO = tracks(track(word("hello", 1500, 250)))
OTHER_CLIP = (duration("1/3000") + timecode("30Timecode", "09:09:09:09")
              + tracks(track(word("stranger", speaker="Z"))))


def rate(scale, properties="", attributes=""):
    return HEAD % attributes + duration(scale) + properties + HELLO + TAIL


def phrases_of(*markers, base="f1000", before=""):
    return HEAD % "" + duration("1/2500") + before + tracks(track(*markers, base=base)) + TAIL


RATES = {  # the packet: the frame rate that the readers compute from it
    "90000, drop": (rate("1/90000", timecode("2997DropTimecode", "01:00:00;00")), NTSC),
    "30000, non-drop": (rate("1/30000", timecode("2997NonDropTimecode", "01:00:00:00")), NTSC),
    "24000": (rate("1/24000", timecode("23976Timecode", "01:00:00:00")), 24000 / 1001),
    "60000": (rate("1/60000", timecode("5994DropTimecode", "01:00:00;00")), 60000 / 1001),
    "60000 ndf": (rate("1/60000", timecode("5994NonDropTimecode", "01:00:00:00")), 60000 / 1001),
    "48000": (rate("1/48000", timecode("25Timecode", "01:00:00:00")), 25),
    "1000": (rate("1/1000", timecode("24Timecode", "01:00:00:00")), 24),
    "600": (rate("1/600", timecode("30Timecode", "01:00:00:00")), 30),
    "50": (rate("1/90000", timecode("50Timecode", "01:00:00:00")), 50),
    "60": (rate("1/90000", timecode("60Timecode", "01:00:00:00")), 60),
    "2997": (rate("1/2997", timecode("2997DropTimecode", "01:00:00;00")), NTSC),
    **{f"video {text}": (rate("1/90000", fields(videoFrameRate=text)), frames) for text, frames in (
        ("24", 24), ("NTSC", NTSC), ("PAL", 25), ("29.970030", NTSC), ("29.97 fps", NTSC),
        ("23.976024", 24000 / 1001), ("23.98", 24000 / 1001), ("30.0", 30), ("29", 29),
        ("12.5", 12.5), ("119.88", 120000 / 1001), ("120", 120), ("24000/1001", 24000 / 1001))},
    "video as attribute": (rate("1/600", "", 'xmpDM:videoFrameRate="NTSC"'), NTSC),
    "time scale": (rate("1/90000", fields(startTimeScale=2997, startTimeSampleSize=100)), NTSC),
    "time scale 2": (rate("1/90000", fields(startTimeScale=600, startTimeSampleSize=25)), 24),
    "order": (rate("1/90000", fields(startTimeScale=24, startTimeSampleSize=1, videoFrameRate="PAL")
                   + timecode("30Timecode", "01:00:00:00")), 30),
    "second": (rate("1/90000", fields(startTimeScale=24, startTimeSampleSize=1,
                                      videoFrameRate="PAL")), 25),
    "samples are no frames": (rate("1/2500", fields(startTimeScale=48000, startTimeSampleSize=1)),
                              25),
    **{f"alone {scale}": (rate(scale), frames) for scale, frames in (
        ("1/2500", 25), ("1/25", 25), ("1001/30000", NTSC), ("1/2997", 29.97), ("1/90000", 900))},
    "no duration": (HEAD % "" + timecode("25Timecode", "00:00:01:00") + HELLO + TAIL, 25),
}
TIMECODES = {  # properties: the format, first frame and frame rate
    "alternative": (timecode("25Timecode", "01:00:00:00")
                    + timecode("24Timecode", "10:00:00:00", "altTimecode"), "NDF", 864000, 24),
    "alternative first": (timecode("24Timecode", "10:00:00:00", "altTimecode")
                          + timecode("25Timecode", "01:00:00:00"), "NDF", 864000, 24),
    "alternative without value": (timecode("25Timecode", "01:00:00:00")
                                  + timecode("24Timecode", "", "altTimecode"), "NDF", 90000, 25),
    "semicolons": (timecode("2997DropTimecode", "01;00;00;00"), "DF", 107892, NTSC),
    "semicolons, non-drop": (timecode("2997NonDropTimecode", "01;00;00;00"), "NDF", 108000, NTSC),
    "colons, drop": (timecode("2997DropTimecode", "01:00:00:00"), "DF", 107892, NTSC),
    "points": (timecode("2997DropTimecode", "01.00.00.00"), "DF", 107892, NTSC),
    "attributes": ('<xmpDM:startTimecode xmpDM:timeFormat="25Timecode" '
                   'xmpDM:timeValue="01:00:00:00"/>', "NDF", 90000, 25),
    "none": ("", "NDF", 0, 25),
}
FORM = '<xmpDM:Tracks><rdf:Bag><rdf:li><rdf:Description xmpDM:frameRate="f1000" ' \
       'xmpDM:trackType="Speech"><xmpDM:markers><rdf:Seq>%s</rdf:Seq></xmpDM:markers>' \
       '</rdf:Description></rdf:li></rdf:Bag></xmpDM:Tracks>'
HI = 'xmpDM:startTime="1500" xmpDM:duration="250" xmpDM:speaker="A"'
ALT = ('<xmpDM:name><rdf:Alt><rdf:li xml:lang="de">hallo</rdf:li>'
       '<rdf:li xml:lang="x-default">hello</rdf:li></rdf:Alt></xmpDM:name>')
WORDS = {  # the packet: the phrases, as (in, length, words, speaker)
    **{f"form {i}": (HEAD % "" + duration("1/2500") + FORM % item + TAIL,
                     [(1.5, .25, "hello", "A")]) for i, item in enumerate((
        f'<rdf:li {HI} xmpDM:name="hello"/>',
        f'<rdf:li><rdf:Description {HI} xmpDM:name="hello"/></rdf:li>',
        f'<rdf:li><rdf:Description {HI}>{fields(name="hello")}</rdf:Description></rdf:li>',
        f'<rdf:li><rdf:Description {HI}>{ALT}</rdf:Description></rdf:li>',
        f'<rdf:li><rdf:Description {HI}><xmpDM:name rdf:parseType="Resource"><rdf:value>hello'
        '</rdf:value><dc:x>q</dc:x></xmpDM:name></rdf:Description></rdf:li>',
        f'<rdf:li><rdf:Description {HI}><xmpDM:name><rdf:Description rdf:value="hello" dc:x="q"/>'
        '</xmpDM:name></rdf:Description></rdf:li>',
        f'<rdf:li rdf:parseType="Resource"><rdf:value rdf:parseType="Resource">'
        f'{fields(startTime=1500, duration=250, speaker="A", name="hello")}</rdf:value>'
        '<dc:x>q</dc:x></rdf:li>'))},
    "other clips first": (
        HEAD % "" + f'<xmpMM:Pantry><rdf:Bag><rdf:li rdf:parseType="Resource">{OTHER_CLIP}</rdf:li>'
        f'</rdf:Bag></xmpMM:Pantry><xmpMM:Ingredients><rdf:Bag><rdf:li><rdf:Description>{OTHER_CLIP}'
        f'</rdf:Description></rdf:li></rdf:Bag></xmpMM:Ingredients>{duration("1/2500")}{HELLO}' + TAIL,
        [(1.5, .25, "hello", "A")]),
    "other tracks": (
        HEAD % "" + duration("1/2500") + tracks(
            track(marker(startTime=1, name="chapter"), kind="Chapter", base="f25"),
            track(word("hello", 1500, 250)),
            track(marker(startTime="x", name="note"), kind="Comment", base="f24000s1001")) + TAIL,
        [(1.5, .25, "hello", "A")]),
    "a marker's own type": (
        HEAD % "" + duration("1/2500") + tracks(
            track(marker(startTime=3, name="said", speaker="A", type="Speech"),
                  marker(startTime=4, name="unsaid"), kind="Comment", base=None),
            track(marker(startTime=1, name="note", type="Cue"), word("hello", 4000, 0, "B"))) + TAIL,
        [(3, 0, "said", "A"), (4, 0, "hello", "B")]),
    "speaker carried forward": (
        phrases_of(word("a", 0, 100), marker(startTime=200, duration=100, name="b"),
                   word("c", 400, 100, "B"), marker(startTime=600, name="d")),
        [(0, .1, "a b", "A"), (.4, .1, "c d", "B")]),
    "speaker empty, not left out": (
        phrases_of(word("a"), word("b", 500, 0, ""), marker(name="c", startTime=700)),
        [(0, 0, "a", "A"), (.5, 0, "b c", "")]),
    "times left out": (phrases_of(marker(name="a", speaker="A")), [(0, 0, "a", "A")]),
    "maximum": (phrases_of(word("a", 2.5, "maximum"), base="f1").replace(">900<", ">25000<"),
                [(2.5, 7.5, "a", "A")]),
    "own rates": (phrases_of(word("a", "15f30000s1001", "15f1000"), word("b", "30f25", 7, "B")),
                  [(15 * 1001 / 30000, .015, "a", "A"), (1.2, .007, "b", "B")]),
    "no time base": (phrases_of(word("a", 3, 2), base=None), [(3, 2, "a", "A")]),
    **{base: (phrases_of(word("a", 900, 90), base=base), [(900 * unit, 90 * unit, "a", "A")])
       for base, unit in (("f1000", .001), ("f25", .04), ("f24000s1001", 1001 / 24000),
                          ("f30000s1001", 1001 / 30000), ("f48000", 1 / 48000),
                          ("f254016000000", 1 / 254016000000), ("f29.97", 100 / 2997),
                          ("f1000s1", .001))},
    "decimals": (phrases_of(word("a", "450.25", "1e2")), [(.45025, .1, "a", "A")]),
    "texts": (phrases_of(word(" a&#10;&lt;b&gt; ", 0, 0, " A &amp;"), word("\u00e9\ufffd", 1, 0, "a")),
              [(0, 0, " a\n<b> ", " A &"), (.001, 0, "\u00e9", "a")]),
    "two speech tracks": (
        HEAD % "" + duration("1/2500") + tracks(track(word("a", 900)),
                                                track(word("b", 50, 25, "B"), base="f25")) + TAIL,
        [(.9, 0, "a", "A"), (2, 1, "b", "B")]),
}


class XmpNormaliseTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.raw_tool = cls.folder / "print-packet"
        cls.raw_tool.write_text(f'#!/bin/sh\nexec "{TOOL}" get --raw "$2"\n')
        cls.raw_tool.chmod(0o755)

    def run_in_folder(self, *command):
        return subprocess.run(command, cwd=self.folder, capture_output=True)

    def write(self, packet, name="clip.xmp"):
        (self.folder / name).write_bytes(packet if isinstance(packet, bytes) else packet.encode())
        return name

    def read(self, movie, *options, warning=None):
        result = self.run_in_folder(MURMURASE, "phrases", "--json", movie, *options)
        self.assertEqual(result.returncode, 0, result.stderr)
        said = result.stderr.decode()
        self.assertIn(warning, said) if warning else self.assertEqual(said, "")
        return json.loads(result.stdout)

    def get(self, movie):
        result = self.run_in_folder(TOOL, "get", movie)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout

    def assert_stable(self, movie):
        once = self.get(movie)
        self.assertEqual(self.get(self.write(once, "again.xmp")), once)
        return once

    def assert_phrases(self, data, expected):
        self.assertEqual([(p["words"], p["speaker"]) for p in data["phrases"]],
                         [(words, speaker) for _, _, words, speaker in expected])
        for phrase, (start, length, _, _) in zip(data["phrases"], expected):
            self.assertAlmostEqual(phrase["time_in"], start, 12)
            self.assertAlmostEqual(phrase["time_out"] - phrase["time_in"], length, 12)

    def test_rates(self):
        for case, (packet, frames) in RATES.items():
            with self.subTest(case):
                doubtful = "nothing tells the frame rate" if case == "alone 1/90000" else \
                    "gives no frame rate" if case.startswith("samples") else None
                data = self.read(self.write(packet), warning=doubtful)
                self.assertAlmostEqual(data["frame_rate"], frames, 12)
                self.assert_phrases(data, [(1.5, .25, "hello", "A")])
                self.assert_stable("clip.xmp")

    def test_timecodes(self):
        for case, (properties, form, first_frame, frames) in TIMECODES.items():
            with self.subTest(case):
                data = self.read(self.write(rate("1/2500", properties)))
                self.assertEqual((data["displayformat"], data["first_frame"]), (form, first_frame))
                self.assertAlmostEqual(data["frame_rate"], frames, 12)
                self.assert_stable("clip.xmp")

    def test_words(self):
        for case, (packet, expected) in WORDS.items():
            with self.subTest(case):
                self.assert_phrases(self.read(self.write(packet)), expected)
                self.assertNotIn(b"stranger", self.assert_stable("clip.xmp"))

    def test_not_understood(self):
        for packet, *said in (
                (phrases_of(word("a"), word("b", "soon")), '"soon"', '"b"', "marker 2", "track 1"),
                (phrases_of(word("a", 1, "2 s")), 'duration "2 s"'),
                (phrases_of(word("a", "15f0")), '"15f0"'),
                (phrases_of(word("a"), base="often"), '"often"', "time base"),
                (phrases_of(word("a", "99999999999999999999")), "no count"),
                (phrases_of(word("a", "999999999999999999", "1f48000")), "too large")):
            with self.subTest(said):
                result = self.run_in_folder(TOOL, "get", self.write(packet))
                self.assertEqual((result.returncode, result.stdout), (1, b""))
                self.assertEqual(result.stderr.count(b"\n"), 1)
                for part in said:
                    self.assertIn(part, result.stderr.decode())

    def test_assumed(self):
        hello = [(1.5, .25, "hello", "A")]
        whole = phrases_of(word("hello", 1500, 250))
        for packet, warning, expected in (
                (whole.replace("</rdf:Bag>", "</rdf:Bog>"), "damaged", hello),
                (whole[:whole.index("</rdf:Seq>")], "damaged", hello),
                (whole.replace("hello", "hell\u00f6", 1).encode("latin-1", "ignore"), "damaged",
                 [(1.5, .25, "hell\u00f6", "A")]),
                (phrases_of(marker(name="a"), word("b")), "1 of the words of track 1 come before",
                 [(0, 0, "a", ""), (0, 0, "b", "A")]),
                (HEAD % "" + tracks(track(word("a", 1, "maximum"))) + TAIL, "until the end",
                 [(.001, 0, "a", "A")]),
                (phrases_of(word("hello", 1500, 250),
                            before=timecode("FeetFrames", "1+2")), "no timecode", hello)):
            with self.subTest(warning):
                self.assert_phrases(self.read(self.write(packet), warning=warning), expected)

    def movie(self, name, *options):
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                        "color=c=black:s=32x32:r=30000/1001:d=0.2", *options, "-c:v", "mpeg4", name],
                       cwd=self.folder, check=True, stdin=subprocess.DEVNULL)
        return name

    def write_into(self, movie, *arguments):
        subprocess.run(["exiftool", "-q", "-n", "-overwrite_original", *arguments, movie],
                       cwd=self.folder, check=True)

    @unittest.skipUnless(shutil.which("ffmpeg") and shutil.which("exiftool"), "no ffmpeg, exiftool")
    def test_movies(self):
        self.write(RATES["90000, drop"][0], "other.xmp")
        structures = ("-XMP-xmpDM:Tracks=[{TrackType=Comment,FrameRate=f25,Markers=[{StartTime=1,"
                      "Name=note}]},{TrackType=Speech,FrameRate=f30000s1001,Markers=[{StartTime=30,"
                      "Duration=15,Name=hello,Speaker=A},{StartTime=60,Name=there}]}]",
                      "-XMP-xmpDM:StartTimecode={TimeFormat=2997DropTimecode,"
                      "TimeValue=01;00;00;00}", "-XMP-xmpDM:Duration={Value=18000,Scale=1/90000}")
        for name in "clip.mov", "clip.mp4":
            for how, arguments, expected in (
                    ("packet", ["-xmp<=other.xmp"], [(1.5, .25, "hello", "A")]),
                    ("elements", structures, [(1.001, .5005, "hello there", "A")]),
                    ("attributes", ["-api", "Compact=Shorthand", *structures],
                     [(1.001, .5005, "hello there", "A")])):
                with self.subTest(name=name, how=how):
                    self.write_into(self.movie(name), *arguments)
                    raw = self.run_in_folder(TOOL, "get", "--raw", name).stdout
                    if how == "attributes":
                        self.assertIn(b"xmpDM:name='hello'", raw)
                    data = self.read(name)
                    self.assert_phrases(data, expected)
                    self.assertAlmostEqual(data["frame_rate"], NTSC, 12)
                    self.assertEqual((data["displayformat"], data["first_frame"]), ("DF", 107892))
                    self.assert_stable(name)

    @unittest.skipUnless(shutil.which("ffmpeg") and shutil.which("exiftool"), "no ffmpeg, exiftool")
    def test_timecode_track(self):
        packet = HEAD % "" + HELLO + TAIL
        for case, sidecar in ("embedded", None), ("sidecar", "clip.xmp"), ("sidecar", "clip.mov.xmp"):
            with self.subTest(case, sidecar=sidecar):
                self.movie("clip.mov", "-timecode", "01:00:00;00")
                self.write(packet, sidecar or "other.xmp")
                if sidecar is None:
                    self.write_into("clip.mov", "-xmp<=other.xmp")
                data = self.read("clip.mov")
                (self.folder / (sidecar or "other.xmp")).unlink()
                self.assertEqual((data["displayformat"], data["first_frame"]), ("DF", 107892))
                self.assertAlmostEqual(data["frame_rate"], NTSC, 12)
                self.assert_phrases(data, [(1.5, .25, "hello", "A")])

    def test_readers_own_form(self):
        shutil.copy(Path(__file__).parent / "data/interview.xmp", self.folder)
        for movie in "interview.xmp", self.write(phrases_of(
                word("a", "450.5", 90), word("b", 12345679, 1), word("c", 7, 7, "B"), base="f90000")):
            for words in "3", "100":
                with self.subTest(movie, words=words):
                    ours, raw = (self.read(movie, "--words", words, *tool)
                                 for tool in ([], ["--xmp-tool", str(self.raw_tool)]))
                    self.assertEqual(ours["phrases"], raw["phrases"])
                    self.assertEqual(ours["speakers"], raw["speakers"])
                    self.assertGreater(len(ours["phrases"]), 1)

    def test_details_of_speakers(self):
        self.write(phrases_of(*(word(f"w{i}") for i in range(9)), word("x y", speaker="B")))
        command = [MURMURASE, "speakers", "--details", "clip.xmp"]
        self.assertEqual(self.run_in_folder(*command).stdout.decode(),
                         "Speaker  Words  First words\nA        9      w0 w1 w2 w3 w4 w5 w6 w7\n"
                         "B        1      x y\n")
        self.assertEqual(json.loads(self.run_in_folder(*command, "--json").stdout)[1],
                         {"Speaker": "B", "Name": None, "Words": 1, "FirstWords": "x y"})

    def test_inspect(self):
        self.write(HEAD % 'dc:format="a\tb"' + duration("1/90000") + fields(videoFrameRate="PAL")
                   + timecode("24Timecode", "01;00;00;00") + tracks(
            track(marker(startTime=1, name="chapter"), kind="Chapter", base=None),
            track(marker(startTime=500, duration=300, name="first", probability=20),
                  marker(startTime=700, duration=100, name="over", speaker="B", probability=80),
                  word("back", 400), word("before", -1, 0, "B"), marker(startTime=900))) + TAIL)
        result = self.run_in_folder(TOOL, "inspect", "--json", "clip.xmp")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        found = json.loads(result.stdout)
        self.assertEqual((found["packet"]["source"], found["packet"]["form"]),
                         ("sidecar", "elements and attributes"))
        self.assertEqual(
            [(e["property"], e["text"], e["rate"], e["used"]) for e in found["rate"]["evidence"]],
            [("startTimecode/timeFormat", "24Timecode", "24", True),
             ("videoFrameRate", "PAL", "25", False), ("duration/scale", "1/90000", None, False)])
        self.assertEqual((found["rate"]["duration_scale"], found["start_timecode"]),
                         ("1/24", "01:00:00:00"))
        self.assertEqual([(t["type"], t["time_base"], t["markers"], t["words"])
                          for t in found["tracks"]],
                         [("Chapter", "", 1, 0), ("Speech", "f1000", 5, 4)])
        self.assertEqual([(s["speaker"], s["words"], s["first_words"]) for s in found["speakers"]],
                         [("", 1, "first"), ("B", 2, "over before"), ("A", 1, "back")])
        self.assertEqual([(w["word"], w["time"]) for w in found["doubtful_words"]], [("first", .5)])
        for warning, said in zip(found["warnings"], (
                "1 of the words of track 2 come before its first speaker", "videoFrameRate gives 25",
                'start before the word before them: 2, the first is "back"',
                'before them ends: 1, the first is "over"',
                'negative time: 1, the first is "before"'), strict=True):
            self.assertIn(said, warning)
        shown = self.run_in_folder(TOOL, "inspect", "clip.xmp").stdout.decode()
        self.assertIn('"B": 2 words: over before', shown)
        self.assertIn("* startTimecode/timeFormat: 24Timecode = 24", shown)
        self.write(HEAD % "" + fields(videoFrameRate=24) + TAIL)
        self.assertIn("no Speech track", self.run_in_folder(TOOL, "inspect", "clip.xmp").stdout.decode())
        self.assertIn(b"<xmpDM:videoFrameRate", self.get("clip.xmp"))


if __name__ == "__main__":
    unittest.main()
