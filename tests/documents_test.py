"""The commands that the documents show, run as they stand: each prints what the document says."""

import os
import re
import shutil
import subprocess
import unittest

from support import MURMURASE, SOURCE, Case, run


def examples(document):
    """Pairs of a command and what it prints, of every console block: "$ command", then its output."""
    for block in re.findall(r"^```console\n(.*?)^```", document.read_text(), re.M | re.S):
        for example in re.split(r"^\$ ", block, flags=re.M)[1:]:
            yield example.split("\n", 1)


class Documents(Case):
    def test_examples(self):
        environment = {"HOME": "/", **os.environ}  # GNU parallel complains without one
        environment["PATH"] = os.path.dirname(MURMURASE) + ":" + os.environ["PATH"]
        shown = 0
        for document in [SOURCE / "README.md", *sorted((SOURCE / "docs").glob("*.md"))]:
            folder = self.folder / document.name
            folder.mkdir()
            shutil.copytree(SOURCE / "assets", folder / "assets")  # an example may write over them
            for command, output in examples(document):
                with self.subTest(document=document.name, command=command):
                    printed = run("bash", "-c", command, cwd=folder, env=environment, stderr=subprocess.STDOUT)[1]
                    self.assertEqual(printed, output)
                    shown += 1
        self.assertGreater(shown, 5)


if __name__ == "__main__":
    unittest.main()
