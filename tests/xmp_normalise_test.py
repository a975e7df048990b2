"""From movies whose packets are written in the ways of the wild to phrases, by the built programs.
ffmpeg makes the movies and exiftool writes their packets."""

import ctypes.util
import json
import unittest

from support import MURMURASE, MURMURASE_XMP, Case, run

HEAD = """<?xpacket begin="\ufeff" id="W5M0MpCehiHzreSzNTczkc9d"?><x:xmpmeta xmlns:x="adobe:ns:meta/">
<rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
<rdf:Description rdf:about="" xmlns:xmpDM="http://ns.adobe.com/xmp/1.0/DynamicMedia/"
 xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:xmpMM="http://ns.adobe.com/xap/1.0/mm/" %s>
"""
TAIL = '</rdf:Description></rdf:RDF></x:xmpmeta><?xpacket end="w"?>'
# libmediainfo reads these, if it is there.
FOREIGN = ("mxf", "mkv", "avi") if ctypes.util.find_library("mediainfo") else ()
NTSC, FILM = 30000 / 1001, 24000 / 1001


def packet(*properties, attributes=""):
    return HEAD % attributes + "".join(properties) + TAIL


def fields(**values):
    return "".join(f"<xmpDM:{name}>{value}</xmpDM:{name}>" for name, value in values.items())


def resource(name, content):
    return f'<{name} rdf:parseType="Resource">{content}</{name}>'


def duration(scale, value=900):
    return resource("xmpDM:duration", fields(value=value, scale=scale))


def timecode(form, value, name="startTimecode"):
    return resource("xmpDM:" + name, fields(timeFormat=form, timeValue=value))


def marker(**values):
    return resource("rdf:li", fields(**values))


def word(name, start=0, length=0, speaker="A"):
    return marker(startTime=start, duration=length, name=name, speaker=speaker)


def track(*markers, kind="Speech", base="f1000"):
    rate = "" if base is None else fields(frameRate=base)
    return resource("rdf:li", fields(trackType=kind) + rate
                    + f'<xmpDM:markers><rdf:Seq>{"".join(markers)}</rdf:Seq></xmpDM:markers>')


def tracks(*all_tracks):
    return f'<xmpDM:Tracks><rdf:Bag>{"".join(all_tracks)}</rdf:Bag></xmpDM:Tracks>'


def words(*markers, base="f1000", before=""):
    return packet(duration("1/2500"), before, tracks(track(*markers, base=base)))


HELLO, HELLO_READ = tracks(track(word("hello", 1500, 250))), [(1.5, .25, "hello", "A")]
OTHER_CLIP = (duration("1/3000") + timecode("30Timecode", "09:09:09:09")
              + tracks(track(word("stranger", speaker="Z"))))
TIME_SCALE = fields(startTimeScale=24, startTimeSampleSize=1)

RATES = {  # the duration's scale, and further properties: the frame rate that the readers compute
    **{f"{form} {scale}": (scale, timecode(form, "01:00:00:00"), frames) for scale, form, frames in (
        ("1/90000", "2997DropTimecode", NTSC), ("1/30000", "2997NonDropTimecode", NTSC),
        ("1/24000", "23976Timecode", FILM), ("1/60000", "5994DropTimecode", 60000 / 1001),
        ("1/60000", "5994NonDropTimecode", 60000 / 1001), ("1/48000", "25Timecode", 25),
        ("1/1000", "24Timecode", 24), ("1/90000", "48Timecode", 48), ("1/2997", "2997DropTimecode", NTSC))},
    **{f"video {text}": ("1/90000", fields(videoFrameRate=text), frames) for text, frames in (
        ("24", 24), ("NTSC", NTSC), ("PAL", 25), ("29.970030", NTSC), ("29.97 fps", NTSC), ("23.98", FILM),
        ("29", 29), ("12.5", 12.5), ("119.88", 120000 / 1001), ("120", 120), ("24000/1001", FILM), ("pal", 25),
        ("23.98p", FILM), ("50 P", 50), ("29.97PsF", NTSC), ("50i", 25), ("59.94I", NTSC), ("29.97i", NTSC))},
    "time scale": ("1/90000", fields(startTimeScale=2997, startTimeSampleSize=100), NTSC),
    "the timecode first": ("1/90000", TIME_SCALE + fields(videoFrameRate="PAL")
                           + timecode("30Timecode", "01:00:00:00"), 30),
    "then the video": ("1/90000", TIME_SCALE + fields(videoFrameRate="PAL"), 25),
    "samples are no frames": ("1/2500", fields(startTimeScale=48000, startTimeSampleSize=1), 25),
    **{f"alone {scale}": (scale, "", frames) for scale, frames in (
        ("1/2500", 25), ("1/2_500", 25), ("1/25", 25), ("1001/30000", NTSC), ("1/2997", 29.97))},
}
TIMECODES = {  # properties: the format, first frame and frame rate
    "alternative": (timecode("25Timecode", "01:00:00:00")
                    + timecode("24Timecode", "10:00:00:00", "altTimecode"), "NDF", 864000, 24),
    "alternative without value": (timecode("25Timecode", "01:00:00:00")
                                  + timecode("24Timecode", "", "altTimecode"), "NDF", 90000, 25),
    "semicolons, non-drop": (timecode("2997NonDropTimecode", "01;00;00;00"), "NDF", 108000, NTSC),
    "colons, drop": (timecode("2997DropTimecode", "01:00:00:00"), "DF", 107892, NTSC),
    "points": (timecode("2997DropTimecode", "01.00.00.00"), "DF", 107892, NTSC),
    "none": ("", "NDF", 0, 25),
}
FORM = '<xmpDM:Tracks><rdf:Bag><rdf:li><rdf:Description xmpDM:frameRate="f1000" ' \
       'xmpDM:trackType="Speech"><xmpDM:markers><rdf:Seq>%s</rdf:Seq></xmpDM:markers>' \
       '</rdf:Description></rdf:li></rdf:Bag></xmpDM:Tracks>'
HI = 'xmpDM:startTime="1500" xmpDM:duration="250" xmpDM:speaker="A"'
ALT = ('<xmpDM:name><rdf:Alt><rdf:li xml:lang="de">hallo</rdf:li>'
       '<rdf:li xml:lang="x-default">hello</rdf:li></rdf:Alt></xmpDM:name>')
TEXTS = {  # as written in the packet: as it must be read
    "": "", " blanks  ": " blanks  ", "a&#13;&#xA;b&#9;c\u2028": "a b\tc ", "&amp;&lt;b&gt;&quot;&apos;": "&<b>\"'",
    "Amélie Дмитрий 😀 e\u0301": "Amélie Дмитрий 😀 e\u0301", "&amp;#xE9;": "&#xE9;",
    "&#xE9;&#x41;&#x26;&#xa0;&#233;&#x0E9;&#x1F600;": "éA&\u00a0éé😀",
}
READ_TEXTS = [(0, 0, text, text) for text in TEXTS.values()]
WORDS = {  # the packet: the phrases, as (in, length, words, speaker)
    **{f"form {i}": (packet(duration("1/2500"), FORM % item), HELLO_READ) for i, item in enumerate((
        f'<rdf:li {HI} xmpDM:name="hello"/>',
        f'<rdf:li><rdf:Description {HI} xmpDM:name="hello"/></rdf:li>',
        f'<rdf:li><rdf:Description {HI}>{fields(name="hello")}</rdf:Description></rdf:li>',
        f'<rdf:li><rdf:Description {HI}>{ALT}</rdf:Description></rdf:li>',
        f'<rdf:li><rdf:Description {HI}><xmpDM:name rdf:parseType="Resource"><rdf:value>hello'
        '</rdf:value><dc:x>q</dc:x></xmpDM:name></rdf:Description></rdf:li>',
        f'<rdf:li><rdf:Description {HI}><xmpDM:name><rdf:Description rdf:value="hello" dc:x="q"/>'
        '</xmpDM:name></rdf:Description></rdf:li>',
        resource("rdf:li", resource("rdf:value", fields(startTime=1500, duration=250, speaker="A",
                                                        name="hello")) + "<dc:x>q</dc:x>")))},
    "other clips first": (
        packet("<xmpMM:Pantry><rdf:Bag>", resource("rdf:li", OTHER_CLIP), "</rdf:Bag></xmpMM:Pantry>",
               f"<xmpMM:Ingredients><rdf:Bag><rdf:li><rdf:Description>{OTHER_CLIP}"
               "</rdf:Description></rdf:li></rdf:Bag></xmpMM:Ingredients>", duration("1/2500"), HELLO),
        HELLO_READ),
    "other tracks": (
        packet(duration("1/2500"), tracks(
            track(marker(startTime=1, name="chapter"), kind="Chapter", base="f25"),
            track(word("hello", 1500, 250), kind="Index ,Speech"),
            track(marker(startTime="x", name="note"), kind="Comment", base="f24000s1001"))), HELLO_READ),
    "a marker's own type": (
        packet(duration("1/2500"), tracks(
            track(marker(startTime=3, name="said", speaker="A", type="Cue,Speech"),
                  marker(startTime=4, name="unsaid"), kind="Comment", base=None),
            track(marker(startTime=1, name="note", type="Cue"), word("hello", 4000, 0, "B")))),
        [(3, 0, "said", "A"), (4, 0, "hello", "B")]),
    "two speech tracks": (
        packet(duration("1/2500"), tracks(track(word("a", 900)), track(word("b", 50, 25, "B"), base="f25"))),
        [(.9, 0, "a", "A"), (2, 1, "b", "B")]),
    "speaker carried forward": (
        words(word("a", 0, 100), marker(startTime=200, duration=100, name="b"),
              word("c", 400, 100, "B"), marker(startTime=600, name="d")),
        [(0, .1, "a b", "A"), (.4, .1, "c d", "B")]),
    "speaker empty, not left out": (
        words(word("a"), word("b", 500, 0, ""), marker(name="c", startTime=700)),
        [(0, 0, "a", "A"), (.5, 0, "b c", "")]),
    "maximum": (words(word("a", 2.5, "maximum"), base="f1").replace(">900<", ">25000<"),
                [(2.5, 7.5, "a", "A")]),
    "own rates": (words(word("a", "15f30000s1001", "15f1000"), word("b", "30f25", 7, "B"),
                        word("c", fields(value=50, scale="1/25"), fields(scale="1001/30000", value=1))),
                  [(15 * 1001 / 30000, .015, "a", "A"), (1.2, .007, "b", "B"), (2, 1001 / 30000, "c", "A")]),
    **{f"base {base}": (words(word("a", 900, 90), base=base), [(900 * unit, 90 * unit, "a", "A")])
       for base, unit in ((None, 1), ("f25", .04), ("f24000s1001", 1001 / 24000), ("f48000", 1 / 48000),
                          ("f254016000000", 1 / 254016000000), ("f29.97", 100 / 2997), ("f1000s1", .001))},
    "decimals": (words(word("a", "450.25", "1e2")), [(.45025, .1, "a", "A")]),
    "texts": (words(*(word(text, 0, 0, text) for text in TEXTS)), READ_TEXTS),
    "texts of attributes": (packet(duration("1/2500"), FORM % "".join(
        f'<rdf:li xmpDM:name="{text}" xmpDM:speaker="{text}"/>' for text in TEXTS)), READ_TEXTS),
}


class XmpNormaliseTest(Case):
    program = MURMURASE_XMP

    def read(self, movie, warning=None):
        status, printed, said = run(MURMURASE, "phrases", "--json", movie, **self.options)
        self.assertEqual(status, 0, said)
        self.assertIn(warning, said) if warning else self.assertEqual(said, "")
        return json.loads(printed)

    def assert_stable(self, movie):
        once = self.call("get", movie)[1]
        self.assertTrue(once)
        self.assertEqual(self.call("get", self.write("again.xmp", once))[1], once)
        return once

    def assert_phrases(self, data, expected):
        self.assertEqual([(p["words"], p["speaker"]) for p in data["phrases"]], [each[2:] for each in expected])
        for phrase, (start, length, _, _) in zip(data["phrases"], expected):
            self.assertAlmostEqual(phrase["time_in"], start, 12)
            self.assertAlmostEqual(phrase["time_out"] - phrase["time_in"], length, 12)

    def test_rates(self):
        for case, (scale, properties, frames) in RATES.items():
            with self.subTest(case):
                doubtful = "gives no frame rate" if case == "samples are no frames" else None
                data = self.read(self.write("clip.xmp", packet(duration(scale), properties, HELLO)), doubtful)
                self.assertAlmostEqual(data["frame_rate"], frames, 12)
                self.assert_phrases(data, HELLO_READ)
                self.assert_stable("clip.xmp")
        for without in (packet(timecode("25Timecode", "00:00:01:00"), HELLO),
                        packet(HELLO, attributes='xmpDM:videoFrameRate="PAL"')):
            self.assertEqual(self.read(self.write("clip.xmp", without))["frame_rate"], 25)

    def test_timecodes(self):
        for case, (properties, form, first_frame, frames) in TIMECODES.items():
            with self.subTest(case):
                data = self.read(self.write("clip.xmp", packet(duration("1/2500"), properties, HELLO)))
                self.assertEqual((data["displayformat"], data["first_frame"]), (form, first_frame))
                self.assertAlmostEqual(data["frame_rate"], frames, 12)
                self.assert_stable("clip.xmp")

    def test_no_rate(self):
        for properties, out in (
                (timecode("", "01:00:00:00"), "rate; the start timecode is left out"),
                (duration("1/0"), "no rate"), (duration(""), "rate; the duration is left out"),
                (duration("1/90000"), "900 frames per second; the duration is left out"),
                (duration("abc") + timecode("", "01:00:00:00"),
                 '"abc", which reads as no rate; the duration and the start timecode are left out'),
                (duration("3/1"), "0.3333333333333333 frames per second; the duration is left out"),
                (duration("1/1e300"), "298 frames per second; the duration is left out")):
            data = self.read(self.write("clip.xmp", packet(properties, HELLO)), out)
            self.assert_phrases(data, HELLO_READ)
            self.assertEqual((data["frame_rate"], data["first_frame"]), (None, 0))
            self.assertRegex(self.expect("inspect", "clip.xmp"), r"(?s)rate       unknown[^*]*times are clock times$")
            self.assertNotIn("xmpDM:duration rdf", self.assert_stable("clip.xmp"))

    def test_words(self):
        for case, (content, expected) in WORDS.items():
            with self.subTest(case):
                self.assert_phrases(self.read(self.write("clip.xmp", content)), expected)
                self.assertNotIn("stranger", self.assert_stable("clip.xmp"))

    def test_not_understood(self):
        for content, *said in (
                (words(word("a"), word("b", "soon")), '"soon"', '"b"', "marker 2", "track 1"),
                (words(word("a", 1, "2 s")), 'duration "2 s"'), (words(word("a", "15f0")), '"15f0"'),
                (words(word("a", fields(value=15, scale="1/0"))), "value=15 scale=1/0"),
                (words(marker(name="a", speaker="A" * 2**16), *[marker(name="b")] * 2000), "too long"),
                (words(word("a"), base="often"), '"often"', "time base"),
                (words(word("a", "99999999999999999999")), "no count"),
                (words(word("a", "999999999999999999", "1f48000")), "too large")):
            self.expect_failure("get", self.write("clip.xmp", content), said=said)

    def test_assumed(self):
        whole = words(word("hello", 1500, 250))
        for content, warning, expected in (
                (whole.replace("</rdf:Bag>", "</rdf:Bog>"), "damaged", HELLO_READ),
                (whole[:whole.index("</rdf:Seq>")], "(line 5)", HELLO_READ),
                ("<?xml version='1.0' encoding='ISO-8859-1'?>".encode()
                 + whole[whole.index("<x:"):whole.index("</rdf:Seq>")].replace("hello", "hell\u00f6").encode("latin-1"),
                 "damaged", [(1.5, .25, "hell\u00f6", "A")]),
                (whole.replace("hello", "he\0ll\u00f6", 1).encode("latin-1", "ignore"), "damaged",
                 [(1.5, .25, "hell\u00f6", "A")]),
                (words(marker(name="a"), word("b")), "1 of the words of track 1 come before",
                 [(0, 0, "a", ""), (0, 0, "b", "A")]),
                (packet(tracks(track(word("a", 1, "maximum")))), "until the end", [(.001, 0, "a", "A")]),
                (packet(duration("1/25"), timecode("FeetFrames", "1+2"), HELLO), "not count frames", HELLO_READ),
                (packet(duration("1/25"), timecode("25Timecode", "9" * 90), HELLO), "9 digits", HELLO_READ)):
            with self.subTest(warning):
                self.assert_phrases(self.read(self.write("clip.xmp", content), warning), expected)

    def movie(self, name, *options):
        run("ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "color=c=black:s=32x32:r=30000/1001:d=0.2",
            *options, "-c:v", "mpeg2video", name, check=True, **self.options)

    def write_into(self, movie, *arguments):
        run("exiftool", "-q", "-n", "-overwrite_original", *arguments, movie, check=True, **self.options)

    def expect_drop_frame(self, movie, expected):
        data = self.read(movie)
        self.assert_phrases(data, expected)
        self.assertAlmostEqual(data["frame_rate"], NTSC, 12)
        self.assertEqual((data["displayformat"], data["first_frame"]), ("DF", 107892))
        self.assert_stable(movie)

    def test_movies(self):
        self.write("other.xmp", packet(duration("1/90000"), timecode("2997DropTimecode", "01:00:00;00"), HELLO))
        structures = ("-XMP-xmpDM:Tracks=[{TrackType=Comment,FrameRate=f25,Markers=[{StartTime=1,"
                      "Name=note}]},{TrackType=Speech,FrameRate=f30000s1001,Markers=[{StartTime=30,"
                      "Duration=15,Name=hello,Speaker=A},{StartTime=60,Name=there}]}]",
                      "-XMP-xmpDM:StartTimecode={TimeFormat=2997DropTimecode,"
                      "TimeValue=01;00;00;00}", "-XMP-xmpDM:Duration={Value=18000,Scale=1/90000}")
        there = [(1.001, .5005, "hello there", "A")]
        for name in "clip.mov", "clip.mp4":
            for how, arguments, expected in (
                    ("packet", ["-xmp<=other.xmp"], HELLO_READ), ("elements", structures, there),
                    ("attributes", ["-api", "Compact=Shorthand", *structures], there)):
                with self.subTest(name=name, how=how):
                    self.movie(name)
                    self.write_into(name, *arguments)
                    raw = self.expect("get", "--raw", name)
                    self.assertEqual(raw, run("exiftool", "-b", "-xmp", name, **self.options)[1])
                    self.assertEqual("xmpDM:name='hello'" in raw, how == "attributes")
                    self.expect_drop_frame(name, expected)

    def test_timecode_track(self):
        for name, file in (("clip.mov", "embedded.xmp"), ("clip.mov", "clip.xmp"), ("clip.mp4", "clip.mp4.xmp"),
                           *((f"clip.{kind}", "clip.xmp") for kind in FOREIGN)):
            with self.subTest(name=name, file=file):
                self.movie(name, "-timecode", "01:00:00;00")
                self.write(file, packet(duration("1/90000"), HELLO))
                if file == "embedded.xmp":
                    self.write_into(name, "-xmp<=" + file)
                self.expect_drop_frame(name, HELLO_READ)
                (self.folder / file).unlink()
        self.write("clip.xmp", packet(HELLO))
        movie = bytearray((self.folder / "clip.mov").read_bytes())
        media_time = movie.rindex(b"elst") + 16  # of the edit list of the last track
        movie[media_time:media_time + 4] = (30 * 1001).to_bytes(4, "big")
        self.write("clip.mov", bytes(movie))
        self.assertEqual(self.read("clip.mov")["first_frame"], 107892 + 30)

    def test_video_track(self):
        self.movie("clip.mov")
        for scale, frames in ("1/90000", NTSC), ("1/1000", NTSC), ("1/2500", 25), ("", NTSC):
            self.write("clip.xmp", packet(duration(scale), HELLO))
            self.assertAlmostEqual(self.read("clip.mov")["frame_rate"], frames, 12)
            self.assertIn("video track: 30000/1001", self.expect("inspect", "clip.mov"))
        self.movie("clip.mov", "-r", "240")
        self.assertEqual(self.read("clip.mov")["frame_rate"], 240)
        self.assert_stable("clip.mov")
        self.movie("clip.mov", "-vf", "settb=1/30000,setpts=N*N*1001", "-fps_mode", "vfr")  # has no rate
        self.assertNotIn("video track", self.expect("inspect", "clip.mov"))

    def test_words_of_the_sidecar(self):
        self.movie("clip.mov")
        self.write("embedded.xmp", packet(duration("1/2500"), timecode("24Timecode", "01:00:00:00")))
        self.write_into("clip.mov", "-xmp<=embedded.xmp")
        self.write("clip.xmp", words(word("hello", 1500, 250), before=timecode("25Timecode", "09:00:00:00")))
        data = self.read("clip.mov", 'those of the sidecar "clip.xmp" are used')
        self.assert_phrases(data, HELLO_READ)
        self.assertEqual((data["frame_rate"], data["first_frame"]), (24, 86400))
        self.assertIn("own packet has no words", self.expect("inspect", "clip.mov"))

    def test_details_of_speakers(self):
        self.write("clip.xmp", words(*(word(f"w{i}") for i in range(9)), word("x y", speaker="B")))
        self.assertEqual(run(MURMURASE, "speakers", "--details", "clip.xmp", **self.options)[1],
                         "Speaker  Words  First words\nA        9      w0 w1 w2 w3 w4 w5 w6 w7\n"
                         "B        1      x y\n")

    def test_inspect(self):
        self.write("clip.xmp", packet(
            duration("1/90000"), fields(videoFrameRate="PAL"), timecode("24Timecode", "01;00;00;00"), tracks(
                track(marker(startTime=1, name="chapter"), kind="Chapter", base=None),
                track(marker(startTime=500, duration=300, name="first", probability=20),
                      marker(startTime=700, duration=100, name="over", speaker="B", probability=80),
                      word("back", 400), word("before", -1, 0, "B"), marker(startTime=900))),
            attributes='dc:format="a\tb"'))
        found = json.loads(self.expect("inspect", "--json", "clip.xmp"))
        self.assertEqual((found["packet"]["source"], found["packet"]["form"]),
                         ("sidecar", "elements and attributes"))
        self.assertEqual(
            [(e["property"], e["text"], e["rate"], e["used"]) for e in found["rate"]["evidence"]],
            [("startTimecode/timeFormat", "24Timecode", "24", True),
             ("videoFrameRate", "PAL", "25", False), ("duration/scale", "1/90000", None, False)])
        self.assertEqual((found["rate"]["duration_scale"], found["start_timecode"]), ("1/24", "01:00:00:00"))
        self.assertEqual([(t["type"], t["time_base"], t["markers"], t["words"]) for t in found["tracks"]],
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
        shown = self.expect("inspect", "clip.xmp")
        self.assertIn('"B": 2 words: over before', shown)
        self.assertIn("* startTimecode/timeFormat: 24Timecode = 24", shown)
        for properties, said in (
                (fields(videoFrameRate=24), "no Speech track"),
                (resource("xmpMM:Pantry", OTHER_CLIP), "stands in xmpMM:Pantry"),
                ("<dc:creator><rdf:Seq><rdf:li>a</rdf:li></rdf:Seq></dc:creator>", "rate       unknown"),
                (timecode("25Timecode", "1:2:3:4", "altTimecode") + fields(altTimecode="a"), "altTimecode: 1:2:3:4"),
                ('<a:b xmlns:a="no URI &amp; no address">c</a:b>' + tracks(track(kind="Cue")), "warnings   1"),
                (duration("1\u009b\u202e/2500"), r'written as the scale "1\xc2\x9b\xe2\x80\xae/2500"'),
                (tracks(track(word("a&#10;[0:0] b"))), 'line ends in their name')):
            self.write("clip.xmp", packet(properties))
            self.assertIn(said, self.expect("inspect", "clip.xmp"))
            self.assert_stable("clip.xmp")


if __name__ == "__main__":
    unittest.main()
