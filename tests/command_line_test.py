"""The command line from outside: what it prints, what it writes, how it fails."""

import contextlib
import json
import os
import pathlib
import pty
import re
import subprocess
import unittest
import xml.etree.ElementTree

import xlrd

from support import CLIP, INTERVIEW, MURMURASE, PACKET, PLAIN_TOOL, SAMPLE, Case

TRANSCRIPT = """  SPEAKER 1
[01:00:00:00] Hello and welcome
[01:00:01:06] to the

  BOB
[01:00:02:15] Thanks Bob
"""
AS_BOB = ["--words=3", "--name=Speaker 2=Bob"]


class CommandLine(Case):
    def test_phrases(self):
        self.assertEqual(self.expect("phrases", INTERVIEW, "--words", "3", "--name", "Speaker 2=Zoë"),
                         "In           Out          Speaker    Words\n"
                         "01:00:00:00  01:00:00:10  Speaker 1  Hello and welcome\n"
                         "01:00:01:06  01:00:01:10  Speaker 1  to the\n"
                         "01:00:02:15  01:00:03:00  Zoë        Thanks Bob\n")
        self.assertEqual(json.loads(self.expect("phrases", INTERVIEW, "--words=3", "--json")), {
            "frame_rate": 25.0, "displayformat": "NDF", "first_frame": 90000,
            "speakers": [{"Speaker": "Speaker 1", "Name": None}, {"Speaker": "Speaker 2", "Name": None}],
            "phrases": [
                {"time_in": 0, "time_out": 0.4, "words": "Hello and welcome", "speaker": "Speaker 1"},
                {"time_in": 1.25, "time_out": 1.25 + 0.15, "words": "to the", "speaker": "Speaker 1"},
                {"time_in": 2.6, "time_out": 3.0, "words": "Thanks Bob", "speaker": "Speaker 2"}]})

    def test_a_number_that_json_has_not_is_null(self):
        self.write("p", PACKET.replace(b"1/2500", b"0/0").replace(b"timeValue", b"x"))
        printed = self.expect("phrases", "p", "--json", "--xmp-tool", PLAIN_TOOL)
        self.assertIsNone(json.loads(printed)["frame_rate"])
        self.expect_failure("text", "p", "-", "--xmp-tool", PLAIN_TOOL, said="frame rate is")

    def test_names(self):
        entries = json.loads(self.expect("speakers", INTERVIEW, "--json"))
        entries[1]["Name"] = "A=b"
        entries.append({"Speaker": "Speaker 9", "Name": "is not in this movie"})
        lines = "\ufeffSpeaker 2 = A=b\r\n\nSpeaker 9=Zoe\nSpeaker 1="
        for content in json.dumps(entries), lines:
            names = ["--names", self.write("names", content)]
            self.assertEqual(self.expect("speakers", INTERVIEW, *names), "Speaker 1\nSpeaker 2  A=b\n")
            for options, name in (AS_BOB, "BOB"), (["--words=3", *names], "A=B"), ([*names, *AS_BOB], "BOB"):
                self.assertEqual(self.expect("text", INTERVIEW, "-", *options), TRANSCRIPT.replace("BOB", name))
        with subprocess.Popen(["cat", "names"], cwd=self.folder, stdout=subprocess.PIPE) as printed:
            self.assertIn("A=B", self.expect("text", INTERVIEW, "-", "--names=/dev/stdin", stdin=printed.stdout))

    def markers_of(self, path):
        return [[marker.findtext(name) for name in ("name", "comment", "in", "out")]
                for marker in xml.etree.ElementTree.parse(path).find("clip").findall("marker")]

    def test_markers(self):
        command = ["markers", INTERVIEW, CLIP, *AS_BOB]
        before = CLIP.read_bytes()
        kept = self.expect(*command).rstrip("\n")
        self.assertEqual(kept, os.environ["XDG_DATA_HOME"] + "/Fernwork/Parlenda.xml")
        self.assertEqual(self.markers_of(kept), [
            ["Speaker 1", "Hello and welcome", "0", "-1"], ["Speaker 1", "to the", "0", "36"],
            ["Bob", "Thanks Bob", "37", "77"]])
        written = pathlib.Path(kept).read_text()
        opener = self.tool('echo "opened $#: $1" >opened')
        for out, opened in (["-out.xml"], "./-out.xml"), ([], kept):
            self.expect(*command, "--open-with", opener, "--", *out)
            self.assertEqual((self.folder / "opened").read_text(), f"opened 1: {opened}\n")
        self.assertEqual(self.expect(*command, "-"), written)
        self.expect_failure(*command, "-", "--open-with", opener, status=2)
        self.expect_failure(*command, "/none/x", said="cannot write /none/x")
        os.mkfifo(self.folder / "fifo")
        self.expect_failure("markers", INTERVIEW, "fifo", "./-out.xml", said="the clip fifo cannot be read")
        for clip, said in ((b"", "clip.xml"), (b"\x7fELF\0\1\2", "XML"), (PACKET, "xmeml")):
            self.expect_failure("markers", INTERVIEW, self.write("clip.xml", clip), "./-out.xml",
                                said=("murmurase: the clip ", said, "not of a sequence"))
        self.expect_failure("markers", INTERVIEW, self.folder, "./-out.xml", said="Is a directory")
        self.expect_failure(*command, "x", "--open-with", self.tool("exit 1"), said="x is written, but")
        self.assertEqual((self.folder / "-out.xml").read_text(), written)
        self.assertEqual(CLIP.read_bytes(), before)

    def test_a_repaired_clip_is_told(self):
        text = CLIP.read_text().replace("<name>", "<name>A & B ", 1)
        bad, line = self.write("bad.xml", text), text[:text.index("A & B")].count("\n") + 1
        status, printed, said = self.call("markers", INTERVIEW, bad, "-")
        self.assertEqual(status, 0)
        self.assertRegex(said, rf"\Amurmurase: .*bad.xml was repaired [^\n]*: line {line}\n\Z")
        self.assertIn("A &amp; B ", printed)
        self.expect_failure("markers", INTERVIEW, bad, "/none/x",
                            said=("/none/x", f"(the clip was repaired in memory: line {line})"))

    def test_a_clip_that_no_repair_helps_is_written_and_told(self):
        bad = self.write("bad.xml", CLIP.read_text().replace("<clip", "<!-- a -- b -->\n<clip", 1))
        for arguments, out in (["markers", INTERVIEW, bad, "o.xml"], "o.xml"), (
                ["export", INTERVIEW, "--out=o", "--clip", bad], "o/interview.xml"):
            status, _, said = self.call(*arguments)
            self.assertEqual(status, 0)
            found = re.fullmatch(rf"murmurase: {out} is written, but [^\n]*: its line (\d+) is not well-formed "
                                 r"XML \(Double hyphen [^\n]*\); correct that place in [^\n]*bad.xml [^\n]*\n", said)
            self.assertIsNotNone(found, said)
            lines = (self.folder / out).read_text().split("\n")
            self.assertIn("a -- b", lines[int(found[1]) - 1])

    def test_runs_at_the_same_time_do_not_mix(self):
        started = []
        for i in range(6):
            opener = self.tool(f'exec grep -q "<name>Name {i}</name>" "$1"')
            for out in [], [self.folder / f"{i}.xml"]:
                started.append(subprocess.Popen(
                    [MURMURASE, "markers", INTERVIEW, CLIP, *out, "--open-with", opener,
                     f"--name=Speaker 1=Name {i}"], stdout=subprocess.DEVNULL))
        self.assertEqual([each.wait() for each in started], [0] * len(started))

    def test_what_is_read_is_never_overwritten(self):
        movie, clip = self.write("take.txt", PACKET), self.write("take.xml", CLIP.read_bytes())
        names = self.write("names.json", "[]")
        sidecar = self.write("interview.xmp", PACKET)
        self.write("interview.mov", "")
        for arguments in (["text", "interview.mov", sidecar], ["text", INTERVIEW, names, "--names", names],
                          ["text", movie, movie], ["excel", movie, movie], ["markers", movie, clip, clip],
                          ["export", movie, "--out", self.folder],
                          ["export", INTERVIEW, "./take.txt", "--out", self.folder, "--clip", clip]):
            self.expect_failure(*arguments, "--xmp-tool", PLAIN_TOOL, said="would be overwritten")
        tool = self.write("tool", "exit 1", 0o755)
        path = {**os.environ, "PATH": str(self.folder)}
        for arguments in (["text", INTERVIEW, tool, "--xmp-tool=tool"],
                          ["text", INTERVIEW, tool, "--xmp-tool", tool],
                          ["markers", INTERVIEW, CLIP, tool, "--open-with=tool"]):
            self.expect_failure(*arguments, said="would be overwritten", env=path)
        self.assertEqual((self.folder / "take.txt").read_bytes(), PACKET)
        self.assertEqual((pathlib.Path(sidecar).read_bytes(), pathlib.Path(names).read_text()), (PACKET, "[]"))
        self.assertEqual((self.folder / "take.xml").read_bytes(), CLIP.read_bytes())

    def test_an_output_replaces_its_own_kind_alone(self):
        """The first bytes of a file, the outputs' kinds that may replace it, and what it is said to be."""
        self.expect("export", INTERVIEW, "--out=made", "--clip", CLIP, "--name=Speaker 1=<A>")
        made = {ending: (self.folder / "made/interview").with_suffix(ending).read_bytes()
                for ending in (".txt", ".xls", ".xml")}
        clip = CLIP.read_bytes()
        (self.folder / "o").mkdir()
        for old, replaced, said in (
                (b"", "txt xls xml", ""), (made[".txt"], "txt", "a text"),
                (made[".xls"], "xls", "a workbook"),
                (made[".xml"], "xml", "a clip of markers"),
                (b"\xffAn old [edit]\r\n", "txt", "a text"),
                ("\n[00:01] Grüße\n".encode("utf-16"), "txt", "a text"),
                (made[".txt"].decode().encode("utf-16-be"), "txt", "a text"), (clip, "", "a clip without markers"),
                (clip.replace(b"</clip>", b"<marker>\n<name/></marker></clip>"), "", "a clip without markers"),
                (made[".xml"].decode().encode("utf-16-le"), "xml", "a clip of markers"),
                (PACKET, "", "an XMP packet"), (b"\xef\xbb\xbf <x/>", "", "an XML document"),
                (b'[\n  {"Speaker":', "", "a JSON file"), (b"#!/bin/sh\n", "", "a script"),
                (SAMPLE.read_bytes(), "", "a movie"), (b"{\\rtf1", "", "a file of another kind"),
                (made[".xls"].replace(b"W\0o\0r\0k\0b", b"W\0o\0r\0d\0D"), "", "a file of another kind"),
                (pathlib.Path(MURMURASE).read_bytes(), "", "a file of another kind")):
            for ending, command in (("txt", ["text", INTERVIEW]), ("xls", ["excel", INTERVIEW]),
                                    ("xml", ["markers", INTERVIEW, CLIP])):
                link, file = self.folder / f"o/interview.{ending}", pathlib.Path(self.write("file", old))
                link.symlink_to(file)
                if ending in replaced.split():
                    self.expect(*command, link)
                    self.assertNotEqual(file.read_bytes(), old)
                else:
                    for arguments in ([*command, link], ["export", INTERVIEW, "--out=o", "--clip", CLIP]):
                        self.expect_failure(*arguments, said=(f"{link.name} is {said}", "move it away"))
                    self.assertEqual(file.read_bytes(), old)
                self.expect_failure(*command, link, "--keep", said="--keep is given")
                link.unlink()
        with open(self.write("m.txt", PACKET), "a") as end:  # an open descriptor is written on
            self.assertEqual(self.call("text", INTERVIEW, "/dev/stdout", "--keep", stdout=end)[0], 0)

    def test_excel(self):
        out = self.folder / "out.xls"
        self.expect("excel", INTERVIEW, out, "--words=3", "--name=Speaker 2=Зоя")
        sheet = xlrd.open_workbook(out, formatting_info=True).sheet_by_index(0)
        self.assertEqual([sheet.row_values(row) for row in range(sheet.nrows)], [
            ["Time In", "Time Out", "Speaker", "Transcript", "File Path"],
            ["01:00:00:00", "01:00:00:10", "Speaker 1", "Hello and welcome", str(INTERVIEW)],
            ["01:00:01:06", "01:00:01:10", "Speaker 1", "to the", str(INTERVIEW)],
            ["01:00:02:15", "01:00:03:00", "Зоя", "Thanks Bob", str(INTERVIEW)]])
        self.assertEqual([round((sheet.colinfo_map[column].width * 7 / 256 - 5) / 7) for column in range(4)],
                         [11, 11, 10, 50])
        before = out.read_bytes()
        start, end = PACKET.index(b"        <rdf:li"), PACKET.index(b"</rdf:li>") + len(b"</rdf:li>\n")
        long = PACKET.replace(b">Hello<", f">{'😀' * 8190}<".encode()).replace(b">and<", b">%s<" % (b"x" * 16380))
        for packet, words, said in ((PACKET[:start] + PACKET[start:end] * 65536 + PACKET[end:], 1,
                                     ("cell A65537", "65535 phrases", "group more words")),
                                    (PACKET.replace(b">Hello<", b">" + b"x" * 32768 + b"<"), 1, "cell D2"),
                                    (long, 100, "phrase 1 is longer"), (long, 3, "use --words 2 or less")):
            command = ["excel", self.write("p", packet), out, "--xmp-tool", PLAIN_TOOL]
            self.expect_failure(*command, f"--words={words}", said=said)
        self.assertEqual(out.read_bytes(), before)
        self.expect(*command, "--words=2")

    def test_export(self):
        movies = ["a/take.xmp", "b/Take.xmp", "b/take-2.xmp", "b/none.xmp", "b/line\nfeed.xmp", "a/\xe9.xmp",
                  "b/E\u0301.xmp"]
        out, names = self.folder / "out", ("take", "Take-3", "E\u0301-2")
        for movie in movies:
            (self.folder / movie).parent.mkdir(exist_ok=True)
            if "none" not in movie:
                self.write(movie, PACKET)
        for more, endings in ([], ("txt", "xls")), (["--clip", CLIP, "--jobs", "2"], ("txt", "xls", "xml")):
            status, printed, said = self.call("export", *movies, "--out", out, "--words=3", *more)
            self.assertEqual((status, len(printed.splitlines())), (1, 7))
            self.assertTrue(printed.endswith("\n6 movies written, 1 failed\n"))
            self.assertRegex(said, r"\Amurmurase: [^\n]*none.xmp[^\n]+\n\Z")
            self.assertEqual(set(os.listdir(out)), {f"{name}.{ending}" for ending in endings
                                                    for name in (*names, "take-2", "line\nfeed", "\xe9")})
        movie_of = lambda name: xlrd.open_workbook(out / name).sheet_by_index(0).cell_value(1, 4)
        self.assertEqual([movie_of(name) for name in ("take.xls", "Take-3.xls", "take-2.xls")], movies[:3])

    def test_export_goes_on_with_the_other_outputs(self):
        (self.folder / "o/interview.xls").mkdir(parents=True)
        self.expect_failure("export", INTERVIEW, "--out=o", "--clip", CLIP,
                            said=(f"{INTERVIEW}: ", "written: interview.txt interview.xml"))
        self.expect_failure("export", INTERVIEW, "--out=o", "--clip=none", said="the clip none: No such")

    def test_progress_on_a_terminal(self):
        master, terminal = pty.openpty()
        done = self.call("export", INTERVIEW, "--out", "o", stdout=terminal)
        os.close(terminal)
        shown = b""
        with contextlib.suppress(OSError):  # Linux: an error is the end of a terminal that nobody holds
            while part := os.read(master, 10000):
                shown += part
        os.close(master)
        self.assertEqual(done, (0, "", ""))
        self.assertRegex(shown.decode(), r"\A\r\[\.{4}(?s:.*)#\] 1/1\r\n\Z")

    def test_failures_leave_the_output_alone(self):
        silent = self.write("silent.xmp", PACKET.replace(b">Speech<", b">Comment<"))
        bad_names, bad_lines = self.write("bad.json", '[{"Speaker": 1}]'), self.write("bad.txt", "a=b\nAnna")
        empty = self.write("empty.mov", b"\0\0\0\x14ftypqt  \0\0\0\0qt  \0\0\0\x08moov")
        fifo = self.folder / "fifo"
        os.mkfifo(fifo)
        self.options["env"] = {**os.environ, "TMPDIR": "/none"}  # it takes none to tell why a tool failed
        with_tool = lambda script: ["--xmp-tool", self.tool(script)]
        for movie, options, said in (
                (INTERVIEW, with_tool("echo '<x/>'; echo why >&2; exit 1"), "why"),
                (INTERVIEW, with_tool("exit 7"), "without saying why"),
                (INTERVIEW, with_tool("echo no packet"), "XML"),
                (INTERVIEW, ["--xmp-tool", "/none/tool"], "/none/tool"),
                ("new\nline.mov", [], "new\\nline.mov"),
                (silent, [], "no speech transcription"),
                (silent, with_tool('echo a warning >&2; exec cat "$2"'), "no speech transcription"),
                (INTERVIEW, ["--name", "Bob=B"], '"Bob" to name; its speakers are "Speaker 1", "Speaker 2"'),
                (INTERVIEW, ["--names", "/none"], "names file /none: No such file"),
                (INTERVIEW, ["--names", bad_names], "speakers --json"),
                (INTERVIEW, ["--names", bad_lines], 'bad.txt cannot be used: line 2, "Anna"'),
                (INTERVIEW, ["--names", fifo], "it is empty"), (fifo, [], "not a regular file"),
                (INTERVIEW, ["--names", "/dev/zero"], "larger than 16 MiB"),
                (empty, [], f"{empty}: it has no speech transcription; no XMP packet")):
            for command in (["speakers"], ["phrases"], ["text"]):
                out = ["out.txt"] if command == ["text"] else []
                self.write("out.txt", "old")
                self.expect_failure(*command, movie, *out, *options, said=said)
                self.assertEqual((self.folder / "out.txt").read_text(), "old")
        with open("/dev/full", "w") as full:
            self.expect_failure("speakers", INTERVIEW, stdout=full,
                                said=f"{INTERVIEW}: cannot write standard output: No space left on device\n")
        self.expect_failure("export", INTERVIEW, "--out", "/dev/null/x", said="/dev/null/x")

    def test_closed_standard_streams(self):
        out = self.folder / "out.txt"
        for closed in ([1], [2], [1, 2], [0, 1, 2]):
            for arguments, status in (
                    (["speakers", INTERVIEW], int(1 in closed)), (["text", INTERVIEW, out, *AS_BOB], 0),
                    (["export", INTERVIEW, INTERVIEW, "--jobs=1", "--out=d"], int(1 in closed)),
                    (["speakers", "/none"], 1)):
                done = self.call(*arguments, preexec_fn=lambda: [os.close(n) for n in closed])
                self.assertEqual(done[0], status, (closed, arguments))
            self.assertEqual(out.read_text(), TRANSCRIPT)

    def test_wrong_usage(self):
        for arguments in ([], ["speak", "x"], ["text", INTERVIEW], ["speakers"],
                          ["speakers", INTERVIEW, "--other"],
                          *(["phrases", INTERVIEW, "--words", words] for words in ("0", "x", "1.5")),
                          ["phrases", INTERVIEW, "--name", "x"], ["timecode", "label", "1"],
                          ["timecode", "label", "x", "--rate=25"], ["timecode", "label", "1", "--rate=0"],
                          ["timecode", "clock", "--", "-1"], ["timecode", "frames", "1:2:3:4:5", "--rate=25"],
                          ["timecode", "frames", "hello", "--rate=25"], ["markers", INTERVIEW, CLIP, ""]):
            self.expect_failure(*arguments, status=2)
        for arguments, said in ((["phrase", "x"], "did you mean phrases?"), (["help", "xyz"], '"xyz"; '),
                                (["timecode", "lable"], "did you mean label?"), (["speakers", "-d.mov"], "./-d.mov"),
                                (["speakers", INTERVIEW, "--jso"], "did you mean --json? 'murmurase help speak"),
                                (["text", "a", "b", "c"], '"c" is one'), (["phrases", "a", "--words"], "needs a")):
            self.expect_failure(*arguments, status=2, said=said)

    def test_help_version_and_numbers(self):
        self.assertRegex(self.expect("--version"), r"\Amurmurase \d+\.\d+\.\d+\n\Z")
        for arguments in ([], ["speakers"], ["phrases"], ["text"], ["excel"], ["markers"], ["export"],
                          ["timecode", "label"]):
            shown = self.expect("help", *arguments)
            self.assertIn("Example", shown)
            self.assertEqual(shown, self.expect(*arguments, "--help"))
            self.assertLessEqual((max(map(len, shown.splitlines())), shown.count("\n")), (79, 23), shown)
        self.assertEqual(self.expect("phrases", INTERVIEW, "--words=none"), self.expect("phrases", INTERVIEW))
        self.assertEqual(self.expect("timecode", "label", "1234.5", "--rate", "25"), "00:00:49:10\n")
        self.assertEqual(self.expect("timecode", "label", "9007199254740993", "--rate", "25")[-4:], ":18\n")
        self.assertEqual(self.expect("timecode", "clock", "9007199254740993")[-4:], ":33\n")
        self.assertEqual(self.expect("timecode", "frames", "01:00:00;00", "--rate", "30"), "108000\n")

    def test_start_up_failure_and_a_home_without_anything(self):
        self.write("Fernwork", "")
        blocked = {**os.environ, "XDG_DATA_HOME": str(self.folder)}
        self.expect_failure("markers", INTERVIEW, CLIP, said="Fernwork", env=blocked)
        self.expect("markers", INTERVIEW, CLIP, "out.xml", env={**blocked, "TMPDIR": "."})
        self.assertTrue((self.folder / "out.xml").exists())
        fresh = {key: value for key, value in os.environ.items() if key != "XDG_DATA_HOME"}
        for home in (str(self.folder / "home"), "/dev/null", ""):
            self.expect("speakers", INTERVIEW, env={**fresh, "HOME": home})
        self.assertFalse((self.folder / "home").exists())
        self.expect("markers", INTERVIEW, CLIP, env={**fresh, "HOME": str(self.folder / "home")})
        self.assertTrue((self.folder / "home/.local/share/Fernwork/Parlenda.xml").exists())


if __name__ == "__main__":
    unittest.main()
