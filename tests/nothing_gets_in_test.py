"""Hostile names, texts and documents: nothing runs, nothing is fetched, nothing but the outputs asked for
is written, and messages are plain lines."""

import os
import pathlib
import re
import shutil
import socket
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["MURMURASE_SOURCE"])
MURMURASE = os.environ["MURMURASE"]
INTERVIEW = (SOURCE / "tests/data/interview.xmp").read_bytes()
CLIP = (SOURCE / "assets/sample-clip.xml").read_bytes()
PRINT_PACKET = (SOURCE / "tests/data/print_packet").read_bytes()
TRACE = ["strace", "-f", "-qq", "-s", "999", "-e", "trace=openat,open,creat,connect,socket", "-o", "trace"]
TRACED = {"ASAN_OPTIONS": "detect_leaks=0"}

OPENER = b'#!/bin/sh\ntest $# = 1 && test -f "$1" && >"${0%-opener}-opened"\n'

NAMES = [b"; touch pwned; | touch pwned && touch pwned &", b"$(touch pwned)`touch pwned`", b"a\ntouch pwned\n",
         b"'; touch pwned; '", b'"; touch pwned; "', b"\\\"; touch pwned; #", b"~", b"-x", b"--help", b"-", b"..",
         b"$HOME*{}%s%n", b"\x1b]0;pwned\x07\x1b[2J\xc2\x9b2J", b"\r\x08\xe2\x80\xa8\x7f", b"\xff\xfe", b"\x83\\", b"x=y"]

DECLARED = (b'<?oasis-xml-catalog catalog="file://CANARY"?><?xml-stylesheet href="URL/s"?>'
            b'<!DOCTYPE x SYSTEM "URL/d" [<!ENTITY % p SYSTEM "URL/p"> %p; <!ENTITY f SYSTEM "file://CANARY">'
            b'<!ENTITY n SYSTEM "URL/n">]>')
REFERRED = (b'&f;&n;<i:include xmlns:i="http://www.w3.org/2001/XInclude" parse="text" href="file://CANARY"/>')


class NothingGetsIn(unittest.TestCase):
    def setUp(self):
        self.root = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        for name in ("work", "home", "data", "tmp", "in"):
            (self.root / name).mkdir()
        self.work = self.root / "work"
        self.environment = {**os.environ, "HOME": str(self.root / "home"), "TMPDIR": str(self.root / "tmp"),
                            "XDG_DATA_HOME": str(self.root / "data")}

    def run_in(self, *command, **options):
        return subprocess.run(command, cwd=self.work, env={**self.environment, **options.pop("env", {})},
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=60, **options)

    def files(self):
        return {os.path.relpath(os.path.join(folder, name), os.fsencode(self.root))
                for folder, _, names in os.walk(os.fsencode(self.root)) for name in names}

    def make(self, name, content, mode=0o644):
        path = os.path.join(os.fsencode(self.root), b"in", name)
        with open(path, "wb") as file:
            file.write(content)
        os.chmod(path, mode)
        return path

    def test_hostile_names(self):
        for name in NAMES:
            movie = self.make(name + b".xmp", INTERVIEW)
            clip = self.make(name + b".xml", CLIP)
            tool = self.make(name + b"-tool", PRINT_PACKET, 0o755)
            opener = self.make(name + b"-opener", OPENER, 0o755)
            option = b"--name=Speaker 1=" + name
            in_cells = name not in (b"\xff\xfe", b"\x83\\")  # a workbook holds UTF-8 alone
            in_work = lambda *endings: {b"work/" + name + ending for ending in endings}
            for arguments, made in (
                    ([b"text", option, b"--", movie, name + b".txt"], in_work(b".txt")),
                    ([b"text", b"--xmp-tool=" + tool, b"--", movie, name + b".txt"], in_work(b".txt")),
                    ([b"excel", b"--", movie, name + b".xls"], in_work(b".xls")),
                    ([b"markers", b"--open-with=" + opener, b"--", movie, clip, name + b".xml"],
                     in_work(b".xml") | {b"in/" + name + b"-opened"}),
                    ([b"markers", b"--open-with=" + opener, b"--", movie, clip],
                     {b"data/Fernwork/Parlenda.xml", b"in/" + name + b"-opened"}),
                    ([b"export", b"--out=" + name + b".d", b"--clip=" + clip, b"--", movie],
                     in_work(*(b".d/" + name + ending for ending in (b".txt", b".xls", b".xml"))))):
                with self.subTest(name=name, arguments=arguments):
                    before = self.files()
                    done = self.run_in(MURMURASE, *arguments)
                    if in_cells or arguments[0] not in (b"excel", b"export"):
                        self.assertEqual((done.returncode, done.stderr), (0, b""))
                    else:
                        self.assertIn(b"cell E2", done.stderr)
                        made = self.files() & {b"work/" + name + b".d/" + name + b".txt"}
                    self.assertEqual(self.files() - before, made)
                    self.assertEqual(before - self.files(), set())
                    for path in made:
                        os.unlink(os.path.join(os.fsencode(self.root), path))

    def test_messages_are_plain_lines(self):
        movie = self.make(b"movie.xmp", INTERVIEW)
        for name in NAMES:
            hostile = INTERVIEW.replace(b"Speaker 2", b"&#x9b;2J\xe2\x80\xa8")
            for arguments, status in (
                    ([b"text", b"--", b"none/" + name, b"out"], 1),
                    ([b"text", b"--", movie, b"none/" + name], 1),
                    ([b"markers", b"--", movie, b"none/" + name, b"out"], 1),
                    ([b"markers", b"--open-with=none/" + name, b"--", movie, self.make(b"c", CLIP), b"out"], 1),
                    ([b"text", b"--xmp-tool=none/" + name, b"--", movie, b"out"], 1),
                    ([b"text", b"--names=none/" + name, b"--", movie, b"out"], 1),
                    ([b"text", b"--name=" + name + b"=N", b"--", self.make(b"h.xmp", hostile), b"out"], 1),
                    ([b"text", b"--words=" + name, b"--", movie, b"out"], 2),
                    ([b"timecode", b"label", b"1", b"--rate=" + name], 2),
                    ([b"export", b"--out=/dev/null/" + name, b"--", movie], 1),
                    ([b"speakers", b"--", movie, name], 2)):
                with self.subTest(name=name, arguments=arguments):
                    before = self.files() - {b"work/out"}
                    done = self.run_in(MURMURASE, *arguments)
                    self.assertEqual(self.files() - {b"work/out"}, before)
                    line = done.stderr.decode("utf-8")
                    self.assertEqual(done.returncode, status, line)
                    self.assertRegex(line, r"\Amurmurase: [^\x00-\x1f\x7f-\x9f\u2028\u2029]+\n\Z")

    def test_texts_of_strangers_are_plain_on_a_terminal(self):
        movie = self.make(b"m.xmp", INTERVIEW.replace(b"Speaker 2", b"\xc2\x9b2J\xe2\x80\xa8")
                          .replace(b"welcome", b"&#9;&#10;\xc2\x9d0;"))
        noisy = self.make(b"tool", b"#!/bin/sh\nprintf 'a\\033[2J\\nb\\n' >&2\nexec cat \"$2\"\n", 0o755)
        for command in (["speakers"], ["speakers", "--details"], ["phrases"], ["phrases", "--xmp-tool", noisy]):
            done = self.run_in(MURMURASE, *command, movie)
            self.assertRegex((done.stdout + done.stderr).decode(), r"\A[^\x00-\x09\x0b-\x1f\x7f-\x9f\u2028\u2029]+\Z")

    def test_permissions(self):
        movie, clip = self.make(b"m.xmp", INTERVIEW), self.make(b"c.xml", CLIP)
        (self.work / "old").write_text("old")
        (self.work / "old").chmod(0o4604)
        for mask in (0o022, 0o027, 0o077):
            for arguments in (["text", movie, "t"], ["excel", movie, "x"], ["markers", movie, clip, "m"],
                              ["markers", movie, clip]):
                done = self.run_in(MURMURASE, *arguments, umask=mask)
                self.assertEqual(done.returncode, 0, done.stderr)
            for file in (*(self.work / name for name in "txm"), self.root / "data/Fernwork/Parlenda.xml"):
                self.assertEqual(file.stat().st_mode & 0o7777, 0o666 & ~mask)
                file.unlink()
            self.assertEqual(self.run_in(MURMURASE, "text", movie, "old", umask=mask).returncode, 0)
            self.assertEqual((self.work / "old").stat().st_mode & 0o7777, 0o604)

    def documents(self, url):
        """Commands on documents that ask for what lies outside them."""
        canary = self.make(b"canary", b"a secret")
        packet = INTERVIEW.replace(b"welcome", REFERRED).replace(b"<x:xmpmeta", DECLARED + b"<x:xmpmeta", 1)
        text = re.sub(rb"<!DOCTYPE[^>]*>", b"", CLIP).replace(b"<name>", b"<name>" + REFERRED, 1)
        text = text.replace(b"<xmeml", DECLARED.replace(b"DOCTYPE x ", b"DOCTYPE xmeml ") + b"<xmeml", 1)
        movie, clip = (self.make(name, content.replace(b"CANARY", canary).replace(b"URL", url))
                       for name, content in ((b"m.xmp", packet), (b"c.xml", text)))
        tool = ["--xmp-tool", SOURCE / "tests/data/print_packet"]
        return canary, ([MURMURASE, "text", movie, "out", *tool], [MURMURASE + "-xmp", "inspect", movie],
                        [MURMURASE + "-xmp", "get", movie],
                        [MURMURASE, "markers", self.make(b"i.xmp", INTERVIEW), clip, "out", *tool])

    def test_nothing_outside_a_document_is_read(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            server.setblocking(False)
            url = b"http://127.0.0.1:%d" % server.getsockname()[1]
            for command in self.documents(url)[1]:
                with self.subTest(command=command):
                    done = self.run_in(*command)
                    self.assertIn(done.returncode, (0, 1))
                    out = self.work / "out"
                    written = done.stdout + done.stderr + (out.read_bytes() if out.exists() else b"")
                    self.assertNotIn(b"a secret", written)
            with self.assertRaises(BlockingIOError):
                server.accept()

    @unittest.skipUnless(shutil.which("strace"), "strace is not installed")
    def test_what_the_system_is_asked(self):
        if self.run_in(*TRACE, "true").returncode != 0:
            self.skipTest("nothing may be traced here")
        canary, commands = self.documents(b"http://127.0.0.1:9")
        for command in commands:
            with self.subTest(command=command):
                (self.work / "out").write_text("old")
                self.run_in(*TRACE, *command, env=TRACED)
                trace = (self.work / "trace").read_bytes()
                self.assertIn(b"openat(", trace)
                self.assertNotIn(b"AF_INET", trace)
                self.assertNotIn(canary, trace)
                made = re.findall(rb", ([A-Z_|]*(?:O_CREAT|O_TMPFILE)[A-Z_|]*), (\d+)", trace)
                self.assertEqual(bool(made), "-xmp" not in command[0])
                for flags, mode in made:
                    self.assertRegex(flags, b"O_EXCL|O_TMPFILE")
                    self.assertEqual(mode, b"0600")


if __name__ == "__main__":
    unittest.main()
