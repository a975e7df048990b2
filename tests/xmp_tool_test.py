"""Runs murmurase-xmp as a host does. MURMURASE_XMP names the binary, MURMURASE_ASSETS the folder of
sample.mov; exiftool embeds other packets in copies of that movie."""
import os
import re
import shutil
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path

TOOL = os.path.abspath(os.environ["MURMURASE_XMP"])
SAMPLE = Path(os.environ["MURMURASE_ASSETS"], "sample.mov").read_bytes()
XMP_DM = "{http://ns.adobe.com/xmp/1.0/DynamicMedia/}"
WORD_FIELDS = ("name", "startTime", "duration", "speaker")

HEAD = """<?xpacket begin="\ufeff" id="W5M0MpCehiHzreSzNTczkc9d"?>
<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
<rdf:Description rdf:about="" xmlns:xmpDM="http://ns.adobe.com/xmp/1.0/DynamicMedia/">
"""
TAIL = """</rdf:Description></rdf:RDF></x:xmpmeta>
<?xpacket end="w"?>"""
AS_ELEMENTS = """<xmpDM:duration rdf:parseType="Resource"><xmpDM:value>7</xmpDM:value><xmpDM:scale>1/2500</xmpDM:scale></xmpDM:duration>
<xmpDM:Tracks><rdf:Bag><rdf:li rdf:parseType="Resource"><xmpDM:trackType>Speech</xmpDM:trackType><xmpDM:frameRate>f1000</xmpDM:frameRate>
<xmpDM:markers><rdf:Seq>WORDS</rdf:Seq></xmpDM:markers></rdf:li></rdf:Bag></xmpDM:Tracks>"""
AS_ATTRIBUTES = """<xmpDM:duration xmpDM:value="7" xmpDM:scale="1/2500"/>
<xmpDM:Tracks><rdf:Bag><rdf:li><rdf:Description xmpDM:trackType="Speech" xmpDM:frameRate="f1000">
<xmpDM:markers><rdf:Seq>WORDS</rdf:Seq></xmpDM:markers></rdf:Description></rdf:li></rdf:Bag></xmpDM:Tracks>"""
WORD_ELEMENTS = "".join(f"<xmpDM:{f}>{{{f}}}</xmpDM:{f}>" for f in WORD_FIELDS)
WORD_ATTRIBUTES = " ".join(f'xmpDM:{f}="{{{f}}}"' for f in WORD_FIELDS)
FORMS = {  # the frame, a word
    "elements": (AS_ELEMENTS, f'<rdf:li rdf:parseType="Resource">{WORD_ELEMENTS}</rdf:li>'),
    "elements in a description":
        (AS_ELEMENTS, f"<rdf:li><rdf:Description>{WORD_ELEMENTS}</rdf:Description></rdf:li>"),
    "attributes": (AS_ATTRIBUTES, f"<rdf:li {WORD_ATTRIBUTES}/>"),
    "attributes of a description":
        (AS_ATTRIBUTES, f"<rdf:li><rdf:Description {WORD_ATTRIBUTES}/></rdf:li>"),
}
TEXTS = {  # as written in the packet: as it must be read
    "plain": "plain", " blanks  ": " blanks  ", "": "", "a&#xA;b&#9;c": "a\nb\tc",
    "&amp;&lt;&gt;&quot;&apos;": "&<>\"'", "Amélie Дмитрий 😀 e\u0301": "Amélie Дмитрий 😀 e\u0301",
    "&#xE9;&#x41;&#x26;&#xa0;&#233;&#x0E9;&#x1F600;": "éA&\u00a0éé😀", "&amp;#xE9;": "&#xE9;",
}


def packet(form, texts=tuple(TEXTS)):
    frame, word = FORMS[form]
    words = (word.format(name=t, startTime=i, duration=i, speaker=t) for i, t in enumerate(texts))
    return (HEAD + frame.replace("WORDS", "\n".join(words)) + TAIL).encode()


def uuid_box(content):
    return ((len(content) + 24).to_bytes(4, "big") + b"uuid"
            + bytes.fromhex("BE7ACFCB97A942E89C71999491E3AFAC") + content)


PACKET = packet("elements", ["one"])
NO_PACKET = SAMPLE.replace(b"XMP_", b"free")


class XmpToolTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def write(self, **files):
        for name, content in files.items():
            (self.folder / name.replace("__", ".")).write_bytes(content)

    def run_tool(self, *arguments, **options):
        options = {"stdout": subprocess.PIPE, **options}
        return subprocess.run([TOOL, *arguments], cwd=self.folder, stderr=subprocess.PIPE, **options)

    def get(self, *arguments):
        result = self.run_tool("get", *arguments)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout

    def words(self, printed):
        """The words as the reader looks them up, after the rate and the track."""
        root = ElementTree.fromstring(printed)
        scale = root.find(f".//{XMP_DM}duration/{XMP_DM}scale").text
        track = root.find(f".//{XMP_DM}trackType/..")
        self.assertEqual([track.find(XMP_DM + f).text for f in ("trackType", "frameRate")],
                         ["Speech", "f1000"])
        parents = {child: parent for parent in root.iter() for child in parent}
        return scale, [tuple(parents[name].find(XMP_DM + f).text or "" for f in WORD_FIELDS)
                       for name in root.iter(XMP_DM + "name")]

    def assert_fails(self, result, status, *said):
        self.assertEqual(result.returncode, status)
        self.assertFalse(result.stdout)
        line = result.stderr.decode("utf-8")
        self.assertRegex(line, r"\Amurmurase-xmp: [^\n]+; [^\n]+\n\Z")
        self.assertEqual(len(line.splitlines()), 1)
        for part in said:
            self.assertIn(part, line)

    def test_sample(self):
        self.write(clip__mov=SAMPLE)
        printed = self.get("clip.mov")
        scale, words = self.words(printed)
        self.assertEqual(scale, "1001/30000")
        self.assertEqual([w[0] for w in words[:3]], ["Good", "morning,", "Amélie!"])
        self.assertEqual({w[3] for w in words}, {"Speaker 1", "Speaker 2", "Speaker 3"})
        self.assertTrue({"Q&A", "Дмитрий"} < {w[0] for w in words})
        self.assertEqual(ElementTree.fromstring(printed).find(f".//{XMP_DM}timeValue").text,
                         "01:00:00;00")

    @unittest.skipUnless(shutil.which("exiftool"), "exiftool is not installed")
    def test_forms_and_texts(self):
        expected = [(t, str(i), str(i), t) for i, t in enumerate(TEXTS.values())]
        for form in FORMS:
            with self.subTest(form):
                self.write(clip__mov=SAMPLE, other__xmp=packet(form))
                subprocess.run(["exiftool", "-q", "-overwrite_original", "-xmp<=other.xmp",
                                "clip.mov"], cwd=self.folder, check=True)
                self.assertEqual(self.words(self.get("clip.mov")), ("1/2500", expected))
                embedded = subprocess.run(["exiftool", "-b", "-xmp", "clip.mov"], cwd=self.folder,
                                          check=True, capture_output=True).stdout
                self.assertEqual(self.get("--raw", "clip.mov"), embedded)

    def test_where_the_packet_is(self):
        two, three = packet("attributes", ["two"]), packet("attributes", ["three"])
        for name, files, expected in (
                ("clip.mov", {"clip__mov": SAMPLE, "clip__xmp": PACKET}, None),
                ("clip.mov", {"clip__mov": NO_PACKET, "clip__xmp": PACKET, "clip__mov__xmp": two},
                 PACKET),
                ("long.mov", {"long__mov": NO_PACKET, "long__mov__xmp": two}, two),
                ("uuid.mov", {"uuid__mov": NO_PACKET + uuid_box(three)}, three),
                ("both.mov", {"both__mov": SAMPLE + uuid_box(three)}, None),
                ("both.mp4", {"both__mp4": SAMPLE.replace(b"qt  ", b"mp42") + uuid_box(three)}, three),
                ("alone.XMP", {"alone__XMP": two}, two)):
            with self.subTest(name):
                self.write(**files)
                raw = self.get("--raw", name)
                self.assertTrue(raw == expected if expected else raw in SAMPLE and len(raw) > 6000)
                self.assertEqual(self.words(self.get(name))[0], "1/2500" if expected else "1001/30000")

    def test_names(self):
        for name in ("it's \"$HOME\" `x`.mov", "two\nlines\t.mov", "-x.mov", "--long=a.mov",
                     "[a,b]{}%.mov", "Дмитрий.mov", b"latin-\xe9.mov"):
            with self.subTest(name):
                try:
                    Path(os.fsdecode(os.path.join(self.folder, os.fsdecode(name)))).write_bytes(SAMPLE)
                except OSError:
                    continue  # Not every file system takes every name.
                self.assertEqual(len(self.words(self.get(name))[1]), 46)
                self.assertEqual(self.get("--", name), self.get(name))

    def test_failures(self):
        deep = b"".join((8 * n).to_bytes(4, "big") + (b"trak" if n < 99_999 else b"moov")
                        for n in range(99_999, 0, -1))
        self.write(empty__mov=b"", text__mov=b"Dear diary,\n" * 99, zero__mov=bytes(5000),
                   picture__mov=b"\x89PNG\r\n\x1a\n" + bytes(99), moov__mov=SAMPLE[:3000],
                   mdat__mov=SAMPLE[:-9], head__mov=SAMPLE[:20], none__mov=NO_PACKET,
                   rdf__mov=SAMPLE.replace(b"rdf:RDF", b"rdf:RDG"), cut__xmp=PACKET[:99],
                   doctype__xmp=b"<!DOCTYPE x>" + PACKET,
                   prose__xmp=b"hello", empty__xmp=b"", deep__mov=SAMPLE[:20] + deep)
        (self.folder / "sub.mov").mkdir()
        for name, *said in (
                ("gone.mov", '"gone.mov"', "No such file"), ("sub.mov", "folder"),
                ("/dev/null", "regular file"), ("empty.mov", "empty"), ("text.mov", "not a movie"),
                ("zero.mov", "not a movie"), ("picture.mov", "not a movie"),
                ("moov.mov", "truncated", '"moov"'), ("mdat.mov", "truncated, 9 bytes"),
                ("head.mov", "truncated"), ("doctype.xmp", "document type"), ("rdf.mov", "no XMP"),
                ("none.mov", '"none.xmp" or "none.mov.xmp"'), ("cut.xmp", "well-formed"),
                ("prose.xmp", "well-formed"), ("deep.mov", "nested deeper"), ("empty.xmp", "empty"),
                ("a\nb\r\x1b\u2028\u0085.mov", r'"a\nb\r\x1b\xe2\x80\xa8\xc2\x85.mov"'),
                (b"\xff.mov", r'"\xff.mov"'), ("", '""')):
            with self.subTest(name):
                self.assert_fails(self.run_tool("get", name), 1, *said)

    @unittest.skipIf("/memcheck/" in TOOL, "valgrind's files are not another user's to write")
    def test_no_permission(self):
        self.write(clip__mov=SAMPLE)
        tool, options = TOOL, {}
        if os.geteuid() == 0:  # Whom nothing is forbidden.
            tool, options = shutil.copy(TOOL, self.folder), {"user": 65534}
        self.folder.chmod(0o755)
        (self.folder / "clip.mov").chmod(0)
        result = subprocess.run([tool, "get", "clip.mov"], cwd=self.folder, capture_output=True,
                                **options)
        self.assert_fails(result, 1, '"clip.mov"', "Permission denied")

    def test_failed_writes(self):
        self.write(clip__mov=SAMPLE)
        reader, writer = os.pipe()
        os.close(reader)
        with open("/dev/full", "wb") as full, open(writer, "wb") as closed:
            for stdout in full, closed:
                for arguments in ["get", "clip.mov"], ["get", "--raw", "clip.mov"], ["--help"]:
                    with self.subTest(arguments=arguments, stdout=stdout.name):
                        self.assert_fails(self.run_tool(*arguments, stdout=stdout), 1,
                                          "standard output")

    def test_usage(self):
        self.write(clip__mov=SAMPLE)
        for arguments in ([], ["get"], ["put", "clip.mov"], ["get", "clip.mov", "b\nc"],
                          ["get", "--bogus"], ["get", "--raw"], ["get", "-gone.mov"], ["--"]):
            with self.subTest(arguments):
                self.assert_fails(self.run_tool(*arguments), 2, "--help")
        for arguments, said in ((["--help"], r"get --raw"), (["get", "--help"], r"get -- -"),
                                (["--version"], r"\Amurmurase-xmp \d+\.\d+\.\d+\n\Z")):
            result = self.run_tool(*arguments)
            self.assertEqual((result.returncode, result.stderr), (0, b""))
            self.assertTrue(re.search(said, result.stdout.decode()), result.stdout)


if __name__ == "__main__":
    unittest.main()
