"""murmurase-xmp as a host runs it: which packet it finds, in files of any name, and how it fails."""

import os
import shutil
import unittest

from support import MURMURASE_XMP, PACKET, SAMPLE, SOURCE, Case

SAMPLE, MOVIES = SAMPLE.read_bytes(), SOURCE / "tests/data/movies"
NO_PACKET = SAMPLE.replace(b"XMP_", b"free")
TWO, THREE = PACKET.replace(b"Hello", b"two"), PACKET.replace(b"Hello", b"three")


def uuid_box(content):
    return ((len(content) + 24).to_bytes(4, "big") + b"uuid"
            + bytes.fromhex("BE7ACFCB97A942E89C71999491E3AFAC") + content)


class XmpToolTest(Case):
    program = MURMURASE_XMP

    def test_where_the_packet_is(self):
        for name, files, expected in (
                ("clip.mov", {"clip.mov": SAMPLE, "clip.xmp": PACKET}, None),
                ("clip.mov", {"clip.mov": NO_PACKET, "clip.xmp": PACKET, "clip.mov.xmp": TWO}, PACKET),
                ("long.mov", {"long.mov": NO_PACKET, "long.mov.xmp": TWO}, TWO),
                ("c.MOV", {"c.MOV": NO_PACKET, "c.XMP": PACKET, "c.MOV.XMP": TWO}, PACKET),
                ("d.mov", {"d.mov": NO_PACKET, "d.mov.XMP": TWO}, TWO),
                ("uuid.mov", {"uuid.mov": NO_PACKET + uuid_box(THREE)}, THREE),
                ("both.mov", {"both.mov": SAMPLE + uuid_box(THREE)}, None),
                ("both.mp4", {"both.mp4": SAMPLE.replace(b"qt  ", b"mp42") + uuid_box(THREE)}, THREE),
                ("alone.XMP", {"alone.XMP": TWO}, TWO)):
            with self.subTest(name):
                for file, content in files.items():
                    self.write(file, content)
                raw = self.expect("get", "--raw", name).encode()
                self.assertTrue(raw == expected if expected else raw in SAMPLE and len(raw) > 6000)

    def test_names_like_options_and_short_names(self):
        (self.folder / "d").mkdir()
        sample = self.expect("get", self.write("sample.mov", SAMPLE))
        for name in "-x.mov", "--long=a.mov", "--raw.mov", "d/x.mov", "m":
            self.write(name, SAMPLE)
            self.assertEqual([self.expect("get", name), self.expect("get", "--", name)], [sample] * 2)

    def test_failures(self):
        deep = b"".join((8 * n).to_bytes(4, "big") + (b"trak" if n < 99_999 else b"moov")
                        for n in range(99_999, 0, -1))
        (self.folder / "sub.mov").mkdir()
        os.mkfifo(self.folder / "fifo.mov")
        for name, content, *said in (
                ("gone.mov", None, '"gone.mov"', "No such file"), ("sub.mov", None, "folder"),
                ("/dev/null", None, "regular file"),
                ("fifo.mov", None, "regular file"), ("", None, '""'),
                ("a\n\t\\\r\x1b\u2028\u0085.mov", None, r'"a\n\t\\\r\x1b\xe2\x80\xa8\xc2\x85.mov"'),
                (b"\xff.mov", None, r'"\xff.mov"'),
                ("empty.mov", b"", "empty"), ("text.mov", b"Dear diary,\n" * 99, "not a movie"),
                ("zero.mov", bytes(5000), "not a movie"),
                ("picture.mov", b"\x89PNG\r\n\x1a\n" + bytes(99), "not a movie"),
                ("moov.mov", SAMPLE[:3000], "truncated", '"moov"'),
                ("mdat.mov", SAMPLE[:-9], "truncated, 9 bytes"), ("head.mov", SAMPLE[:20], "truncated"),
                ("deep.mov", SAMPLE[:20] + deep, "no XMP packet"),
                ("crash.flv", (MOVIES / "crash.flv").read_bytes(), "libexempi crashed"),
                ("none.mov", NO_PACKET, '"none.xmp" or "none.mov.xmp"'),
                ("rdf.mov", SAMPLE.replace(b"rdf:RDF", b"rdf:RDG"), "no XMP"),
                ("doctype.xmp", b"<!DOCTYPE x>" + PACKET, "document type"),
                ("cut.xmp", PACKET[:99], "well-formed"), ("prose.xmp", b"hello", "well-formed"),
                ("empty.xmp", b"", "empty")):
            with self.subTest(name):
                if content is not None:
                    self.write(name, content)
                self.expect_failure("get", name, said=["; ", *said])

    def test_damaged_timecode_tracks(self):
        for name in "far_chunk.mov", "no_chunk.mov":
            status, printed, said = self.call("get", MOVIES / name)
            self.assertEqual((status, "startTimecode" in printed), (0, False))
            self.assertIn("the start of its timecode track cannot be read", said)

    def test_no_permission(self):
        self.write("clip.mov", SAMPLE, mode=0)
        options = {}
        if os.geteuid() == 0:  # Whom nothing is forbidden.
            self.program, options = shutil.copy(MURMURASE_XMP, self.folder), {"user": 65534}
        self.folder.chmod(0o755)
        self.expect_failure("get", "clip.mov", said=['"clip.mov"', "Permission denied"], **options)

    def test_failed_writes(self):
        self.write("clip.mov", SAMPLE)
        reader, writer = os.pipe()
        os.close(reader)
        with open("/dev/full", "wb") as full, open(writer, "wb") as closed:
            for stdout in full, closed:
                for arguments in ["get", "clip.mov"], ["get", "--raw", "clip.mov"], ["--help"]:
                    with self.subTest(arguments=arguments, stdout=stdout.name):
                        self.expect_failure(*arguments, stdout=stdout, said="standard output")

    def test_usage(self):
        self.write("clip.mov", SAMPLE)
        for arguments in ([], ["get"], ["put", "clip.mov"], ["get", "clip.mov", "b\nc"],
                          ["get", "--bogus"], ["get", "--raw"], ["get", "-gone.mov"], ["--"]):
            self.expect_failure(*arguments, status=2, said="--help")
        self.expect_failure("gte", "clip.mov", status=2, said="did you mean get?")
        for arguments, said in ((["--help"], "get --raw"), (["get", "--help"], "get -- -"),
                                (["--version"], r"\Amurmurase-xmp \d+\.\d+\.\d+\n\Z")):
            self.assertRegex(self.expect(*arguments), said)


if __name__ == "__main__":
    unittest.main()
