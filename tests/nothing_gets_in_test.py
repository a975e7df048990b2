"""Hostile names, texts and documents: nothing runs, nothing is fetched, nothing but the outputs asked for
is written, and messages are plain lines."""

import os
import re
import socket
import unittest

from support import CLIP, MURMURASE, MURMURASE_XMP, PACKET, PLAIN, PLAIN_TOOL, Case, run

CLIP = CLIP.read_bytes()
TRACE = ["strace", "-f", "-qq", "-s", "999", "-e", "trace=openat,open,creat,connect,socket", "-o", "trace"]
OPENER = b'#!/bin/sh\ntest $# = 1 && test -f "$1" && >"${0%-opener}-opened"\n'

NAMES = [b"; touch pwned; | touch pwned && touch pwned &", b"$(touch pwned)`touch pwned`", b"a\ntouch pwned\n",
         b"'; touch pwned; '", b'"; touch pwned; "', b"\\\"; touch pwned; #", b"~", b"-x", b"--help", b"-",
         b"..", b"$HOME*{}%s%n", b"\x1b]0;pwned\x07\x1b[2J\xc2\x9b2J", b"\r\x08\xe2\x80\xa8\x7f", b"\xff\xfe",
         b"\x83\\", b"x=y"]

DECLARED = (b'<?oasis-xml-catalog catalog="file://CANARY"?><?xml-stylesheet href="URL/s"?>'
            b'<!DOCTYPE x SYSTEM "URL/d" [<!ENTITY % p SYSTEM "URL/p"> %p; <!ENTITY f SYSTEM "file://CANARY">'
            b'<!ENTITY n SYSTEM "URL/n">]>')
REFERRED = (b'&f;&n;<i:include xmlns:i="http://www.w3.org/2001/XInclude" parse="text" href="file://CANARY"/>')


class NothingGetsIn(Case):
    def setUp(self):
        super().setUp()
        for name in ("work", "home", "data", "tmp", "in"):
            (self.folder / name).mkdir()
        self.work = self.folder / "work"
        variables = {"HOME": "home", "TMPDIR": "tmp", "XDG_DATA_HOME": "data"}
        self.options = {"cwd": self.work, "env": {
            **os.environ, **{name: str(self.folder / folder) for name, folder in variables.items()}}}

    def files(self):
        return {os.path.relpath(os.path.join(folder, name), os.fsencode(self.folder))
                for folder, _, names in os.walk(os.fsencode(self.folder)) for name in names}

    def make(self, name, content, mode=0o644):
        return os.fsencode(self.write(b"in/" + name, content, mode))

    def test_hostile_names(self):
        for name in NAMES:
            movie, clip = self.make(name + b".xmp", PACKET), self.make(name + b".xml", CLIP)
            tool = self.make(name + b"-tool", PLAIN_TOOL.read_bytes(), 0o755)
            opener = self.make(name + b"-opener", OPENER, 0o755)
            in_cells = name not in (b"\xff\xfe", b"\x83\\")  # a workbook holds UTF-8 alone
            work, opened = b"work/" + name, b"in/" + name + b"-opened"
            exported = {work + b".d/" + name + ending for ending in (b".txt", b".xls", b".xml")}
            for arguments, made in (
                    ([b"text", b"--name=Speaker 1=" + name, b"--", movie, name + b".txt"], {work + b".txt"}),
                    ([b"text", b"--xmp-tool=" + tool, b"--", movie, name + b".txt"], {work + b".txt"}),
                    ([b"excel", b"--", movie, name + b".xls"], {work + b".xls"}),
                    ([b"markers", b"--open-with=" + opener, b"--", movie, clip, name + b".xml"],
                     {work + b".xml", opened}),
                    ([b"markers", b"--open-with=" + opener, b"--", movie, clip],
                     {b"data/Fernwork/Parlenda.xml", opened}),
                    ([b"export", b"--out=" + name + b".d", b"--clip=" + clip, b"--", movie], exported)):
                with self.subTest(name=name, arguments=arguments):
                    before = self.files()
                    status, _, said = self.call(*arguments)
                    if in_cells or arguments[0] not in (b"excel", b"export"):
                        self.assertEqual((status, said), (0, ""))
                    else:
                        self.assertIn("cell E2", said)
                        made = made - {work + b".xls", work + b".d/" + name + b".xls"}
                    self.assertEqual(self.files() ^ before, made)
                    for path in made:
                        os.unlink(os.path.join(os.fsencode(self.folder), path))

    def test_messages_are_plain_lines(self):
        movie, clip = self.make(b"movie.xmp", PACKET), self.make(b"c", CLIP)
        hostile = self.make(b"h.xmp", PACKET.replace(b"Speaker 2", b"&#x9b;2J\xe2\x80\xa8"))
        for name in NAMES:
            none = b"none/" + name
            for arguments, status in (
                    ([b"text", b"--", none, b"out"], 1),
                    ([b"text", b"--", movie, none], 1),
                    ([b"markers", b"--", movie, none, b"out"], 1),
                    ([b"markers", b"--open-with=" + none, b"--", movie, clip, b"out"], 1),
                    ([b"text", b"--xmp-tool=" + none, b"--", movie, b"-"], 1),
                    ([b"text", b"--names=" + none, b"--", movie, b"-"], 1),
                    ([b"text", b"--name=" + name + b"=N", b"--", hostile, b"-"], 1),
                    ([b"text", b"--words=" + name, b"--", movie, b"out"], 2),
                    ([b"timecode", b"label", b"1", b"--rate=" + name], 2),
                    ([b"export", b"--out=/dev/null/" + name, b"--", movie], 1),
                    ([b"speakers", b"--", movie, name], 2)):
                with self.subTest(name=name, arguments=arguments):
                    before = self.files() - {b"work/out"}
                    self.expect_failure(*arguments, status=status)
                    self.assertEqual(self.files() - {b"work/out"}, before)

    def test_texts_of_strangers_are_plain_on_a_terminal(self):
        movie = self.make(b"m.xmp", PACKET.replace(b"Speaker 2", b"\xc2\x9b2J\xe2\x80\xae")
                          .replace(b"welcome", b"&#9;&#10;\xc2\x9d0;"))
        noisy = self.tool("printf 'a\\033[2J\\nb\\n' >&2\nexec cat \"$2\"\n")
        for command in (["speakers"], ["speakers", "--details"], ["phrases"], ["phrases", "--xmp-tool", noisy]):
            status, printed, said = self.call(*command, movie)
            self.assertEqual(status, 0)
            self.assertRegex(printed + said, rf"\A({PLAIN}+\n)+\Z")

    def test_permissions(self):
        movie, clip = self.make(b"m.xmp", PACKET), self.make(b"c.xml", CLIP)
        self.write("work/old", "old", 0o4604)
        for mask in (0o022, 0o027, 0o077):
            for arguments in (["text", movie, "t"], ["excel", movie, "x"], ["markers", movie, clip, "m"],
                              ["markers", movie, clip], ["text", movie, "old"]):
                self.assertEqual(self.call(*arguments, umask=mask)[0], 0)
            for file in (*(self.work / name for name in "txm"), self.folder / "data/Fernwork/Parlenda.xml"):
                self.assertEqual(file.stat().st_mode & 0o7777, 0o666 & ~mask)
                file.unlink()
            self.assertEqual((self.work / "old").stat().st_mode & 0o7777, 0o604)

    def test_nothing_planted_at_the_own_file_is_followed(self):
        movie, clip, canary = self.make(b"m.xmp", PACKET), self.make(b"c.xml", CLIP), self.make(b"canary", b"")
        own = self.folder / "data/Fernwork/Parlenda.xml"
        own.parent.mkdir()
        for plant in (lambda: own.symlink_to(os.fsdecode(canary)), lambda: os.mkfifo(own)):
            plant()
            self.assertEqual(self.call("markers", movie, clip)[0], 0)
            self.assertEqual((own.is_symlink(), own.is_file(), os.path.getsize(canary)), (False, True, 0))
            own.unlink()

    def test_a_tool_is_no_option_of_any_shell(self):
        movie = self.make(b"m.xmp", b"#!/bin/sh\ntouch pwned\n", 0o755)
        self.write("work/-a", f"#!/bin/sh\nexec cat {os.fsdecode(self.make(b'p', PACKET))}\n", 0o755)
        inside = ["unshare", "-rm", "sh", "-ec", 'mount --bind "$0" /bin/sh; exec "$@"']
        for shell in [], [*inside, "/bin/dash"], [*inside, "/bin/bash"]:
            if not shell or run(*shell, "true")[0] == 0:
                done = run(*shell, MURMURASE, "text", "--xmp-tool=-a", movie, "out", **self.options)
                self.assertEqual((done, self.files() & {b"work/pwned"}), ((0, "", ""), set()), shell)

    def documents(self, canary, url):
        """Commands on documents that ask for both."""
        packet = PACKET.replace(b"welcome", REFERRED).replace(b"<x:xmpmeta", DECLARED + b"<x:xmpmeta", 1)
        text = re.sub(rb"<!DOCTYPE[^>]*>", b"", CLIP).replace(b"<name>", b"<name>" + REFERRED, 1)
        text = text.replace(b"<xmeml", DECLARED.replace(b"DOCTYPE x ", b"DOCTYPE xmeml ") + b"<xmeml", 1)
        movie, clip = (self.make(name, content.replace(b"CANARY", canary).replace(b"URL", url))
                       for name, content in ((b"m.xmp", packet), (b"c.xml", text)))
        tool = ["--xmp-tool", PLAIN_TOOL]
        return ([MURMURASE, "text", movie, "out", *tool], [MURMURASE_XMP, "inspect", movie],
                [MURMURASE_XMP, "get", movie],
                [MURMURASE, "markers", self.make(b"i.xmp", PACKET), clip, "out", *tool])

    def test_what_the_system_is_asked(self):
        canary = self.make(b"canary", b"a secret")
        self.options["env"]["ASAN_OPTIONS"] = "detect_leaks=0"  # under strace there is no such thing
        with socket.create_server(("127.0.0.1", 0)) as server:
            server.setblocking(False)
            for command in self.documents(canary, b"http://127.0.0.1:%d" % server.getsockname()[1]):
                with self.subTest(command=command):
                    self.write("work/out", "")
                    status, printed, said = run(*TRACE, *command, **self.options)
                    self.assertIn(status, (0, 1))
                    self.assertNotIn("a secret", printed + said + (self.work / "out").read_text())
                    self.check_trace((self.work / "trace").read_bytes(), canary, command[0] == MURMURASE)
            with self.assertRaises(BlockingIOError):
                server.accept()

    def check_trace(self, trace, canary, makes_files):
        self.assertIn(b"openat(", trace)
        self.assertNotIn(b"AF_INET", trace)
        self.assertNotIn(canary, trace)
        # What clang counts for `./dev coverage` goes to files of its own.
        made = re.findall(rb'(?<!profraw)", ([A-Z_|]*(?:O_CREAT|O_TMPFILE)[A-Z_|]*), (\d+)', trace)
        self.assertEqual(bool(made), makes_files)
        for flags, mode in made:
            self.assertRegex(flags, b"O_EXCL|O_TMPFILE")
            self.assertEqual(mode, b"0600")


if __name__ == "__main__":
    unittest.main()
