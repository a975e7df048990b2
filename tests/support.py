"""What the tests in Python share: the programs, their inputs, and what must hold of every run."""

import os
import pathlib
import subprocess
import tempfile
import unittest

MURMURASE, MURMURASE_XMP = os.environ["MURMURASE"], os.environ["MURMURASE_XMP"]
SOURCE = pathlib.Path(os.environ["MURMURASE_SOURCE"])
SAMPLE, CLIP = SOURCE / "assets/sample.mov", SOURCE / "assets/sample-clip.xml"
INTERVIEW = SOURCE / "tests/data/interview.xmp"
PACKET = INTERVIEW.read_bytes()
PLAIN_TOOL = SOURCE / "tests/data/print_packet"
PLAIN = r"[^\x00-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069]"  # fit for a terminal


def run(*command, **options):
    """The exit status, standard output and standard error."""
    streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
    done = subprocess.run(command, **{**streams, **options})
    return done.returncode, (done.stdout or b"").decode(), (done.stderr or b"").decode()


class Case(unittest.TestCase):
    program = MURMURASE

    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.options = {"cwd": self.folder}

    def write(self, name, content, mode=0o644):
        path = os.path.join(self.folder, os.fsdecode(name))
        with open(path, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        os.chmod(path, mode)
        return path

    def tool(self, script):
        return self.write(f"tool{len(os.listdir(self.folder))}", "#!/bin/sh\n" + script, 0o755)

    def call(self, *arguments, **options):
        return run(self.program, *arguments, **{**self.options, **options})

    def expect(self, *arguments, **options):
        status, printed, said = self.call(*arguments, **options)
        self.assertEqual((status, said), (0, ""), arguments)
        return printed

    def expect_failure(self, *arguments, said=(), status=1, **options):
        """The program fails with one plain line that says all of this, and prints nothing else."""
        got, printed, line = self.call(*arguments, **options)
        self.assertEqual((got, printed), (status, ""), (arguments, line))
        self.assertRegex(line, rf"\A{os.path.basename(self.program)}: {PLAIN}+\n\Z", arguments)
        for part in [said] if isinstance(said, str) else said:
            self.assertIn(part, line, arguments)
