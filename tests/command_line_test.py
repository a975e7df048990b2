"""The command line from outside: what it prints, what it writes, how it fails."""

import contextlib
import json
import os
import pathlib
import pty
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree

import xlrd

SOURCE = pathlib.Path(os.environ["MURMURASE_SOURCE"])
DATA = SOURCE / "tests/data"
SAMPLE = str(SOURCE / "assets/sample.mov")
CLIP = str(SOURCE / "assets/sample-clip.xml")
INTERVIEW = str(DATA / "interview.xmp")
PLAIN_TOOL = ["--xmp-tool", str(DATA / "print_packet")]

TRANSCRIPT = """  SPEAKER 1
[01:00:00:00] Hello and welcome
[01:00:01:06] to the

  BOB
[01:00:02:15] Thanks Bob
"""


def run(*arguments, **options):
    return subprocess.run([os.environ["MURMURASE"], *arguments], capture_output=True, text=True,
                          stdin=subprocess.DEVNULL, **options)


class CommandLine(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def tool(self, script):
        path = self.folder / f"tool{len(os.listdir(self.folder))}"
        path.write_text("#!/bin/sh\n" + script)
        path.chmod(0o755)
        return ["--xmp-tool", str(path)]

    def expect_failure(self, *arguments, status=1, message="", **options):
        done = run(*arguments, **options)
        self.assertEqual(done.returncode, status, (arguments, done.stderr))
        self.assertRegex(done.stderr, r"\Amurmurase: [^\n]+\n\Z", arguments)
        self.assertIn(message, done.stderr)
        self.assertEqual(done.stdout, "")

    def expect(self, *arguments):
        done = run(*arguments)
        self.assertEqual((done.returncode, done.stderr), (0, ""), arguments)
        return done.stdout

    def test_sample_movie(self):
        speakers = json.loads(self.expect("speakers", SAMPLE, "--json"))
        self.assertGreaterEqual(len(speakers), 2)
        self.assertEqual(self.expect("speakers", SAMPLE).splitlines(),
                         [entry["Speaker"] for entry in speakers])
        data = json.loads(self.expect("phrases", SAMPLE, "--json"))
        self.assertEqual((data["displayformat"], data["first_frame"]), ("DF", 107892))
        self.assertAlmostEqual(data["frame_rate"], 29.97, 2)
        text = self.expect("text", SAMPLE, "-")
        self.assertTrue(text.startswith("  SPEAKER 1\n[01:00:00;"))
        self.assertEqual(text.count("\n["), len(data["phrases"]))

    def test_phrases(self):
        shown = self.expect("phrases", INTERVIEW, "--words", "3", "--name", "Speaker 2=Zoë", *PLAIN_TOOL)
        self.assertEqual(shown.splitlines(), [
            "In           Out          Speaker    Words",
            "01:00:00:00  01:00:00:10  Speaker 1  Hello and welcome",
            "01:00:01:06  01:00:01:10  Speaker 1  to the",
            "01:00:02:15  01:00:03:00  Zoë        Thanks Bob"])
        exact = self.expect("phrases", INTERVIEW, "--words=3", "--json", *PLAIN_TOOL)
        self.assertEqual(json.loads(exact), {
            "frame_rate": 25.0, "displayformat": "NDF", "first_frame": 90000,
            "speakers": [{"Speaker": "Speaker 1", "Name": None}, {"Speaker": "Speaker 2", "Name": None}],
            "phrases": [
                {"time_in": 0, "time_out": 0.4, "words": "Hello and welcome", "speaker": "Speaker 1"},
                {"time_in": 1.25, "time_out": 1.25 + 0.15, "words": "to the", "speaker": "Speaker 1"},
                {"time_in": 2.6, "time_out": 3.0, "words": "Thanks Bob", "speaker": "Speaker 2"}]})

    def test_a_number_that_json_has_not_is_null(self):
        packet = pathlib.Path(INTERVIEW).read_text().replace("1/2500", "0/0").replace("timeValue", "x")
        (self.folder / "p").write_text(packet)
        data = json.loads(self.expect("phrases", str(self.folder / "p"), "--json", *PLAIN_TOOL))
        self.assertIsNone(data["frame_rate"])
        self.expect_failure("text", str(self.folder / "p"), "-", *PLAIN_TOOL, message="frame rate is")

    def test_text_and_names(self):
        out, names = self.folder / "out.txt", self.folder / "names.json"
        command = ["text", INTERVIEW, str(out), "--words", "3", *PLAIN_TOOL]
        self.assertEqual(self.expect(*command, "--name", "Speaker 2=Bob"), "")
        self.assertEqual(out.read_text(), TRANSCRIPT)
        entries = json.loads(self.expect("speakers", INTERVIEW, "--json", *PLAIN_TOOL))
        entries[1]["Name"] = "A=b"
        names.write_text(json.dumps(entries))
        self.expect(*command, "--names", str(names))
        self.assertEqual(out.read_text(), TRANSCRIPT.replace("BOB", "A=B"))
        self.expect(*command, "--names", str(names), "--name", "Speaker 2=Bob")  # the word has the last say
        self.assertEqual(out.read_text(), TRANSCRIPT)
        self.assertEqual(self.expect("text", INTERVIEW, "-", "--words=3", "--name=Speaker 2=Bob",
                                     *PLAIN_TOOL), TRANSCRIPT)

    def markers_of(self, clip):
        clip = xml.etree.ElementTree.fromstring(clip).find("clip")
        return [[marker.findtext(name) for name in ("name", "comment", "in", "out")]
                for marker in clip.findall("marker")]

    def test_markers(self):
        expected = [["Speaker 1", "Hello and welcome", "0", "-1"], ["Speaker 1", "to the", "0", "36"],
                    ["Bob", "Thanks Bob", "37", "77"]]
        out = self.folder / "marked.xml"
        command = ["markers", INTERVIEW, CLIP, "--words=3", "--name=Speaker 2=Bob", *PLAIN_TOOL]
        before = pathlib.Path(CLIP).read_bytes()
        kept = self.expect(*command).rstrip("\n")
        self.assertEqual(kept, os.environ["XDG_DATA_HOME"] + "/Fernwork/Parlenda.xml")
        self.assertEqual(self.markers_of(pathlib.Path(kept).read_bytes()), expected)
        opener = self.tool('echo "opened $#: $1" > "$(dirname "$0")/opened"')[1]
        self.expect(*command, str(out), "--open-with", opener)
        self.assertEqual((self.folder / "opened").read_text(), f"opened 1: {out}\n")
        self.assertEqual(out.read_bytes(), pathlib.Path(kept).read_bytes())
        self.assertEqual(self.expect(*command, "-"), out.read_text())
        self.expect(*command, "--open-with", opener)
        self.assertEqual((self.folder / "opened").read_text(), f"opened 1: {kept}\n")
        self.assertEqual(pathlib.Path(CLIP).read_bytes(), before)
        self.expect_failure(*command, "-", "--open-with", opener, status=2)
        self.expect_failure(*command, "/none/x", message="cannot write /none/x")
        self.expect_failure("markers", INTERVIEW, INTERVIEW, str(out), *PLAIN_TOOL, message="xmeml")
        self.assertEqual(out.read_bytes(), pathlib.Path(kept).read_bytes())

    def test_a_repaired_clip_is_told(self):
        bad = self.folder / "bad.xml"
        text = pathlib.Path(CLIP).read_text().replace("<name>", "<name>A & B ", 1)
        bad.write_text(text)
        line = text[:text.index("A & B")].count("\n") + 1
        done = run("markers", INTERVIEW, str(bad), "-", *PLAIN_TOOL)
        self.assertEqual(done.returncode, 0)
        self.assertRegex(done.stderr, rf"\Amurmurase: .*bad.xml was repaired [^\n]*: line {line}\n\Z")
        self.assertIn("A &amp; B ", done.stdout)
        self.expect_failure("markers", INTERVIEW, str(bad), "/none/x", *PLAIN_TOOL, message="/none/x")

    def test_bad_clips(self):
        path, out = self.folder / "clip.xml", self.folder / "out.xml"
        small = (b'<xmeml version="5"><clip><name>c</name><rate><timebase>25</timebase></rate>'
                 b"<updatebehavior>x</updatebehavior></clip></xmeml>\n")
        command = ["markers", INTERVIEW, str(path), str(out), *PLAIN_TOOL]
        for clip, message in [(b"", str(path)), (b"\x7fELF\0\1\2", "XML"), (b"<a/>", "xmeml"),
                              (small.replace(b"clip>", b"klip>"), "clip element"),
                              (small.replace(b"updatebehavior", b"other"), "updatebehavior"),
                              (small.replace(b"timebase", b"base"), "rate/timebase")]:
            path.write_bytes(clip)
            self.expect_failure(*command, message=message)
            self.assertFalse(out.exists())
        for clip in (small.replace(b">c<", b">\xe9t\xe9\x01<"), small.replace(b"><", b">\r\n<"),
                     b"<!DOCTYPE xmeml>" + small, small.replace(b'"5"', b'"v5"')):
            path.write_bytes(clip)
            self.assertEqual(run(*command).returncode, 0, clip)
            self.assertEqual(path.read_bytes(), clip)
            self.assertEqual(b"<color>" in out.read_bytes(), b'"v5"' not in clip)
            self.assertEqual(len(self.markers_of(out.read_bytes())), 2)
        for length in range(len(small) - 1):
            path.write_bytes(small[:length])
            out.unlink(missing_ok=True)
            done = run(*command)
            self.assertEqual(out.exists(), done.returncode == 0, length)
            self.assertRegex(done.stderr, r"\A(murmurase: [^\n]+\n)?\Z")
            if out.exists():
                self.markers_of(out.read_bytes())  # well-formed
        path.unlink()
        path.mkdir()
        self.expect_failure(*command, message="Is a directory")

    def test_runs_at_the_same_time_do_not_mix(self):
        runs = [(f"Name {i}", self.folder / f"{i}.xml") for i in range(8)]
        started = [subprocess.Popen([os.environ["MURMURASE"], "markers", INTERVIEW, CLIP, str(out),
                                     f"--name=Speaker 1={name}", *PLAIN_TOOL]) for name, out in runs]
        self.assertEqual([each.wait() for each in started], [0] * len(runs))
        for name, out in runs:
            self.assertEqual(self.markers_of(out.read_bytes())[0][0], name)

    def test_runs_at_the_same_time_open_their_own_clip(self):
        started = []
        for i in range(6):
            opener = self.tool(f'exec grep -q "<name>Name {i}</name>" "$1"')[1]
            started.append(subprocess.Popen(
                [os.environ["MURMURASE"], "markers", INTERVIEW, CLIP, "--open-with", opener,
                 f"--name=Speaker 1=Name {i}", *PLAIN_TOOL], stdout=subprocess.DEVNULL))
        self.assertEqual([each.wait() for each in started], [0] * len(started))

    def test_what_is_read_is_never_overwritten(self):
        movie, clip = self.folder / "take.txt", self.folder / "take.xml"
        movie.write_bytes(pathlib.Path(INTERVIEW).read_bytes())
        clip.write_bytes(pathlib.Path(CLIP).read_bytes())
        before = movie.read_bytes(), clip.read_bytes()
        for arguments in (["text", movie, movie], ["excel", movie, movie], ["markers", movie, clip, clip],
                          ["export", movie, "--out", self.folder],
                          ["export", INTERVIEW.replace("interview", "./interview"), movie, "--out",
                           self.folder, "--clip", clip]):
            self.expect_failure(*map(str, arguments), *PLAIN_TOOL, message="would be overwritten")
        self.assertEqual((movie.read_bytes(), clip.read_bytes()), before)

    def test_excel(self):
        out = self.folder / "out.xls"
        self.expect("excel", INTERVIEW, str(out), "--words=3", "--name=Speaker 2=Зоя", *PLAIN_TOOL)
        sheet = xlrd.open_workbook(out).sheet_by_index(0)
        self.assertEqual([sheet.row_values(row) for row in range(sheet.nrows)], [
            ["Time In", "Time Out", "Speaker", "Transcript", "File Path"],
            ["01:00:00:00", "01:00:00:10", "Speaker 1", "Hello and welcome", INTERVIEW],
            ["01:00:01:06", "01:00:01:10", "Speaker 1", "to the", INTERVIEW],
            ["01:00:02:15", "01:00:03:00", "Зоя", "Thanks Bob", INTERVIEW]])
        book = xlrd.open_workbook(out, formatting_info=True)
        widths = {column: info.width for column, info in book.sheet_by_index(0).colinfo_map.items()}
        self.assertEqual([round((widths[column] * 7 / 256 - 5) / 7) for column in range(4)],
                         [11, 11, 10, 50])  # a digit is 7 pixels wide, with 5 of padding
        self.assertNotIn(4, widths)
        bold = lambda row: [book.font_list[book.xf_list[cell.xf_index].font_index].bold
                            for cell in book.sheet_by_index(0).row(row)]
        self.assertEqual((bold(0), bold(1)), ([1] * 5, [0] * 5))

        packet = pathlib.Path(INTERVIEW).read_text()
        wordless = self.folder / "wordless.xmp"
        wordless.write_text(packet.replace("xmpDM:name", "xmpDM:comment"))
        self.expect("excel", str(wordless), str(self.folder / "empty.xls"), *PLAIN_TOOL)
        self.assertEqual(xlrd.open_workbook(self.folder / "empty.xls").sheet_by_index(0).nrows, 1)

        before = out.read_bytes()
        start = packet.index("        <rdf:li")
        end = packet.index("</rdf:li>") + len("</rdf:li>\n")
        full = self.folder / "full.xmp"
        full.write_text(packet[:start] + packet[start:end] * 65536 + packet[end:])
        self.expect_failure("excel", str(full), str(out), "--words=1", *PLAIN_TOOL, message="cell A65537")
        words = pathlib.Path(INTERVIEW).read_text().replace(">Hello<", ">" + "x" * 32768 + "<")
        (self.folder / "long.xmp").write_text(words)
        self.expect_failure("excel", str(self.folder / "long.xmp"), str(out), *PLAIN_TOOL, message="D2")
        self.assertEqual(out.read_bytes(), before)

    def test_export(self):
        movies, out = [], self.folder / "out"
        for name in ("a/take.mov", "b/Take.mov", "b/take-2.mov", "b/none.mov", "b/line\nfeed.mov"):
            path = self.folder / name
            path.parent.mkdir(exist_ok=True)
            if "none" not in name:
                path.write_bytes(pathlib.Path(INTERVIEW).read_bytes())
            movies.append(str(path))
        command = ["export", *movies, "--out", str(out), "--words=3", *PLAIN_TOOL]
        for more, endings in ([], ("txt", "xls")), (["--clip", CLIP, "--jobs", "2"], ("txt", "xls", "xml")):
            done = run(*command, *more)
            self.assertEqual(done.returncode, 1)
            self.assertRegex(done.stderr, r"\Amurmurase: [^\n]*none.mov: [^\n]+\n\Z")
            self.assertEqual(len(done.stdout.splitlines()), 4)
            self.assertEqual({path.name for path in out.iterdir()},
                             {f"{name}.{ending}" for ending in endings
                              for name in ("take", "Take-3", "take-2", "line\nfeed")})
        movie_of = lambda name: xlrd.open_workbook(out / name).sheet_by_index(0).cell_value(1, 4)
        self.assertEqual([movie_of(name) for name in ("take.xls", "Take-3.xls", "take-2.xls")], movies[:3])
        done = run("export", movies[0], "--out", "/dev/null/x", *PLAIN_TOOL)
        self.assertRegex(done.stderr, r"\Amurmurase: [^\n]*/dev/null/x[^\n]*\n\Z")

    def test_progress_on_a_terminal(self):
        master, terminal = pty.openpty()
        done = subprocess.run([os.environ["MURMURASE"], "export", INTERVIEW, "--out", str(self.folder / "o"),
                               *PLAIN_TOOL], stdout=terminal, stderr=subprocess.PIPE)
        os.close(terminal)
        shown = b""
        with contextlib.suppress(OSError):  # Linux: an error is the end of a terminal that nobody holds
            while part := os.read(master, 10000):
                shown += part
        os.close(master)
        shown = shown.decode()
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertTrue(shown.startswith("\r[....") and shown.endswith("#] 1/1\r\n"), shown)

    def test_failures_leave_the_output_alone(self):
        out = self.folder / "out.txt"
        empty = pathlib.Path(INTERVIEW).read_text().replace(">Speech<", ">Comment<")
        (self.folder / "silent.xmp").write_text(empty)
        silent = str(self.folder / "silent.xmp")
        (self.folder / "bad.json").write_text('[{"Speaker": 1}]')
        cases = [
            ([INTERVIEW, *self.tool("echo '<x/>'; echo why >&2; exit 1")], "why"),
            ([INTERVIEW, *self.tool("kill -9 $$")], "Killed"),
            ([INTERVIEW, *self.tool("exit 7")], "without saying why"),
            ([INTERVIEW, *self.tool("echo no packet")], "XML"),
            ([INTERVIEW, "--xmp-tool", "/none/tool"], "/none/tool"),
            ([str(self.folder / "new\nline.mov")], "new\\nline.mov"),
            ([silent, *PLAIN_TOOL], "no speech transcription"),
            ([silent, *self.tool('echo a warning >&2; exec cat "$2"')], "no speech transcription"),
            ([INTERVIEW, *PLAIN_TOOL, "--name", "Bob=B"], '"Bob" to name; its speakers are "Speaker 1", "Speaker 2"'),
            ([INTERVIEW, *PLAIN_TOOL, "--names", "/none"], "/none cannot be opened"),
            ([INTERVIEW, *PLAIN_TOOL, "--names", str(self.folder / "bad.json")], "speakers --json"),
        ]
        for arguments, message in cases:
            for command in (["speakers"], ["phrases"], ["text"]):
                target = [str(out)] if command == ["text"] else []
                self.expect_failure(*command, arguments[0], *target, *arguments[1:], message=message)
                self.assertFalse(out.exists())
        out.write_text("old")
        self.expect_failure("text", silent, str(out), *PLAIN_TOOL)
        self.assertEqual(out.read_text(), "old")
        for target in ("/none/out", str(self.folder), "/dev/full"):
            self.expect_failure("text", INTERVIEW, target, *PLAIN_TOOL, message=target)
        with open("/dev/full", "w") as full:
            done = subprocess.run([os.environ["MURMURASE"], "speakers", INTERVIEW, *PLAIN_TOOL],
                                  stdout=full, stderr=subprocess.PIPE, text=True)
        self.assertEqual((done.returncode, done.stderr),
                         (1, f"murmurase: {INTERVIEW}: cannot write standard output: No space left on device\n"))

    def test_closed_standard_streams(self):
        out = self.folder / "out.txt"
        for closed in ([1], [2], [1, 2], [0, 1, 2]):
            for arguments, status in ((["speakers", INTERVIEW], int(1 in closed)),
                                      (["text", INTERVIEW, str(out), "--words=3", "--name=Speaker 2=Bob"], 0),
                                      (["export", INTERVIEW, INTERVIEW, "--jobs=1", f"--out={self.folder}/d"],
                                       int(1 in closed)), (["speakers", "/none"], 1)):
                done = subprocess.run([os.environ["MURMURASE"], *arguments, *PLAIN_TOOL], stdout=subprocess.DEVNULL,
                                      stderr=subprocess.DEVNULL, preexec_fn=lambda: [os.close(n) for n in closed])
                self.assertEqual(done.returncode, status, (closed, arguments))
            self.assertEqual(out.read_text(), TRANSCRIPT)

    def test_wrong_usage(self):
        for arguments in ([], ["speak", "x"], ["text", INTERVIEW], ["speakers"],
                          ["phrases", INTERVIEW, "--words", "0"], ["phrases", INTERVIEW, "--words", "x"],
                          ["phrases", INTERVIEW, "--words", "1.5"], ["phrases", INTERVIEW, "--name", "x"],
                          ["speakers", INTERVIEW, "--other"], ["timecode", "label", "1"],
                          ["timecode", "label", "x", "--rate", "25"], ["timecode", "label", "1", "--rate", "0"]):
            self.expect_failure(*arguments, status=2)

    def test_timecode(self):
        for arguments, printed in [
                (["label", "107892", "--rate", "29.97", "--drop-frame"], "01:00:00;00"),
                (["label", "1234.5", "--rate", "25"], "00:00:49:10"),
                (["frames", "01:00:00;00", "--rate", "29.97", "--drop-frame"], "107892"),
                (["frames", "01:00:00;00", "--rate", "30"], "108000"),
                (["clock", "3725.5"], "01:02:06")]:
            self.assertEqual(self.expect("timecode", *arguments), printed + "\n")

    def test_help_and_version(self):
        self.assertRegex(self.expect("--version"), r"\Amurmurase \d+\.\d+\.\d+\n\Z")
        for arguments in ([], ["speakers"], ["phrases"], ["text"], ["excel"], ["markers"], ["export"],
                          ["timecode", "label"]):
            self.assertIn("Example", self.expect(*arguments, "--help"))

    def test_start_up_failure_and_a_home_without_anything(self):
        (self.folder / "data").mkdir()
        (self.folder / "data/Fernwork").write_text("")
        self.expect_failure("speakers", INTERVIEW, *PLAIN_TOOL, message="Fernwork",
                            env={**os.environ, "XDG_DATA_HOME": str(self.folder / "data")})
        fresh = {key: value for key, value in os.environ.items() if key != "XDG_DATA_HOME"}
        for home in (str(self.folder / "home"), "/dev/null", ""):
            done = run("speakers", INTERVIEW, *PLAIN_TOOL, env={**fresh, "HOME": home})
            self.assertEqual((done.returncode, done.stderr), (0, ""), home)
        self.assertTrue((self.folder / "home/.local/share/Fernwork").is_dir())


if __name__ == "__main__":
    unittest.main()
