"""The commands that the documents show, run as they stand: each prints what the document says."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["MURMURASE_SOURCE"])
PROGRAMS = str(pathlib.Path(os.environ["MURMURASE"]).parent)


def examples(document):
    """Pairs of a command and what it prints, of every console block: "$ command", then its output."""
    for block in re.findall(r"^```console\n(.*?)^```", document.read_text(), re.M | re.S):
        for example in re.split(r"^\$ ", block, flags=re.M)[1:]:
            command, _, output = example.partition("\n")
            yield command, output


class Documents(unittest.TestCase):
    def test_examples(self):
        environment = {"HOME": "/", **os.environ}  # GNU parallel complains without one
        environment["PATH"] = PROGRAMS + ":" + os.environ["PATH"]
        shown = 0
        for document in [SOURCE / "README.md", *sorted((SOURCE / "docs").glob("*.md"))]:
            with tempfile.TemporaryDirectory() as folder:
                os.symlink(SOURCE / "assets", folder + "/assets")
                for command, output in examples(document):
                    with self.subTest(document=document.name, command=command):
                        done = subprocess.run(["bash", "-c", command], cwd=folder, env=environment,
                                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
                        self.assertEqual(done.stdout, output)
                        shown += 1
        self.assertGreater(shown, 5)


if __name__ == "__main__":
    unittest.main()
