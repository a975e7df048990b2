"""Faults from outside: whatever fails, an output is as it was or whole, nothing else is left, and one
line tells."""

import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE = pathlib.Path(os.environ["MURMURASE_SOURCE"])
INTERVIEW = SOURCE / "tests/data/interview.xmp"
PACKET = INTERVIEW.read_bytes()
CLIP = str(SOURCE / "assets/sample-clip.xml")
PLAIN_TOOL = str(SOURCE / "tests/data/print_packet")
OLD = b"what was there before"
# A sanitizer takes more than there is, and macOS heeds no such limit.
ADDRESS_SPACE_CAN_BE_LIMITED = sys.platform == "linux" and "MURMURASE_SANITIZED" not in os.environ


class Faults(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.temporary, self.target = self.folder / "tmp", self.folder / "target"
        self.temporary.mkdir()
        self.target.mkdir()
        self.out = self.target / "out"
        self.environment = {**os.environ, "TMPDIR": str(self.temporary)}

    def tool(self, script):
        path = self.folder / f"tool{len(os.listdir(self.folder))}"
        path.write_text("#!/bin/sh\n" + script)
        path.chmod(0o755)
        return str(path)

    def commands(self, out=None, tool=PLAIN_TOOL):
        out = out or str(self.out)
        for arguments in (["text", INTERVIEW, out], ["excel", INTERVIEW, out],
                          ["markers", INTERVIEW, CLIP, out]):
            yield [os.environ["MURMURASE"], *map(str, arguments), "--xmp-tool", tool]

    def run_limited(self, command, **limits):
        def limit():
            for name, value in limits.items():
                resource.setrlimit(getattr(resource, "RLIMIT_" + name), (value, value))
        return subprocess.run(command, capture_output=True, text=True, env=self.environment,
                              stdin=subprocess.DEVNULL, preexec_fn=limit)

    def expect_failure(self, done, message):
        self.assertEqual((done.returncode, done.stdout), (1, ""), (done.args, done.stderr))
        self.assertRegex(done.stderr, r"\Amurmurase: [^\n]+\n\Z", done.args)
        self.assertIn(message, done.stderr)

    def expect_nothing_left(self, *more):
        self.assertEqual({path.name for path in self.target.iterdir()}, {"out", *more})
        self.assertEqual(list(self.temporary.iterdir()), [])

    def test_a_write_failing_at_any_byte(self):
        for command in self.commands():
            subprocess.run(command, check=True)
            size = self.out.stat().st_size
            self.out.write_bytes(OLD)
            for offset in range(size) if command[1] == "text" else (0, 1, 511, 512, size - 1):
                self.expect_failure(self.run_limited(command, FSIZE=offset),
                                    f"cannot write {self.out}: File too large")
                self.assertEqual(self.out.read_bytes(), OLD)
                self.expect_nothing_left()

    def test_full_disk_and_read_only_folder(self):
        inside = ["unshare", "-rm", "sh", "-ec"]
        mount = f'mount -t tmpfs -o size=4k none {self.target}; printf "{OLD.decode()}" >{self.out}; '
        if not shutil.which("unshare") or subprocess.run([*inside, mount], capture_output=True).returncode:
            self.skipTest("no file system can be mounted here")
        after = f'"$@" || status=$?; ls -A {self.target}; cat {self.out}; exit $status'
        for prepare, message in (("", "No space left on device"),
                                 (f"mount -o remount,ro {self.target}; ", "Read-only file system")):
            for command in self.commands():
                done = subprocess.run([*inside, mount + prepare + after, "sh", *command],
                                      capture_output=True, text=True, env=self.environment)
                self.assertEqual((done.returncode, done.stdout), (1, "out\n" + OLD.decode()))
                self.assertEqual(done.stderr.count("\n"), 1)
                self.assertIn(f"cannot write {self.out}: {message}", done.stderr)

    def test_targets(self):
        for command in self.commands():
            self.out.unlink(missing_ok=True)
            subprocess.run(command, check=True)
            expected = self.out.read_bytes()
            self.out.unlink()
            self.out.symlink_to("elsewhere")
            subprocess.run(command, check=True)
            self.assertEqual((os.readlink(self.out), (self.target / "elsewhere").read_bytes()),
                             ("elsewhere", expected))
            self.out.unlink()
            (self.target / "elsewhere").unlink()
            os.mkfifo(self.out)
            with subprocess.Popen(["cat", self.out], stdout=subprocess.PIPE) as reader:
                subprocess.run(command, check=True)
                self.assertEqual(reader.stdout.read(), expected)
            self.assertTrue(self.out.is_fifo())
            self.expect_nothing_left()
        self.out.unlink()
        self.out.mkdir()
        for out, message in ((self.out, "Is a directory"), ("/dev/full", "No space left on device"),
                             (self.folder / "none/out", "No such file or directory"),
                             (f"{CLIP}/out", "Not a directory")):
            for command in self.commands(str(out)):
                self.expect_failure(self.run_limited(command), f"cannot write {out}: {message}")
                self.expect_nothing_left()

    def test_tools_that_fail(self):
        cases = [(f"head -c {len(PACKET) // 2} \"$2\"; kill -{number} $$", {},
                  f"the XMP tool was killed: {signal.strsignal(number)}")
                 for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGABRT, signal.SIGKILL,
                                signal.SIGSEGV, signal.SIGPIPE, signal.SIGALRM, signal.SIGTERM)]
        cases += [(":", {}, "it is empty"), ("exit 3", {}, "failed with status 3 without saying why")]
        large = [("exec head -c 2147483648 /dev/zero", {}, "it is larger than 512 MiB"),
                 ("exec head -c 536870912 /dev/zero", {}, "it holds no element")]
        if ADDRESS_SPACE_CAN_BE_LIMITED:
            large.append(("exec head -c 536870912 /dev/zero", {"AS": 1 << 29}, "out of memory"))
        for script, limits, message in cases + large:
            for command in self.commands(tool=self.tool(script)):
                self.out.write_bytes(OLD)
                self.expect_failure(self.run_limited(command, CORE=0, **limits), message)
                self.assertEqual(self.out.read_bytes(), OLD)
                self.expect_nothing_left()
                if (script, limits, message) in large:
                    break  # the others read it the same way

    def test_a_packet_cut_anywhere(self):
        for length in range(0, len(PACKET), 29):
            command = next(self.commands(tool=self.tool(f'exec head -c {length} "$2"')))
            self.out.write_bytes(OLD)
            done = self.run_limited(command)
            if done.returncode != 0:
                self.expect_failure(done, str(INTERVIEW))
            self.assertEqual(self.out.read_bytes() == OLD, done.returncode != 0)
            self.expect_nothing_left()

    def interrupt(self, command, number, ready):
        """Sends the signal to the program alone, once `ready` is there."""
        process = subprocess.Popen(command, env=self.environment, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        while not ready():
            self.assertIsNone(process.poll())
            time.sleep(0.002)
        process.send_signal(number)
        self.assertEqual((*process.communicate(timeout=60), process.returncode), (b"", b"", -number))

    def test_interrupted_while_the_tool_never_ends(self):
        pids = self.folder / "pids"
        tool = self.tool(f'echo $$ >>{pids}; exec sleep 1000')
        movies = [str(self.folder / f"{name}.xmp") for name in "abc"]
        export = [os.environ["MURMURASE"], "export", *movies, "--out", str(self.target), "--jobs=3",
                  "--clip", CLIP, "--xmp-tool", tool]
        for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
            for command in (*self.commands(tool=tool), export):
                pids.write_text("")
                self.out.write_bytes(OLD)
                tools = 3 if command is export else 1
                self.interrupt(command, number, lambda: pids.read_text().count("\n") == tools)
                self.assertEqual(self.out.read_bytes(), OLD)
                self.expect_nothing_left()
                for pid in map(int, pids.read_text().split()):
                    self.expect_ended(pid)

    def expect_ended(self, pid):
        for _ in range(5000):  # it was asked to end, and does so in its own time
            try:
                os.kill(pid, 0)
                if "\nState:\tZ" in pathlib.Path(f"/proc/{pid}/status").read_text():
                    return  # and nobody has asked how
            except (ProcessLookupError, FileNotFoundError):
                return
            time.sleep(0.002)
        self.fail("a tool lives on")

    def test_interrupted_while_an_output_is_not_taken(self):
        os.mkfifo(self.out)
        for command in self.commands():
            started = self.folder / "started"
            tool = self.tool(f'touch {started}; exec cat "$2"')
            self.interrupt([*command[:-1], tool], signal.SIGTERM, started.exists)
            started.unlink()
            self.expect_nothing_left()

    def test_interrupted_at_any_moment(self):
        for command in self.commands():
            subprocess.run(command, check=True)
            whole = self.out.read_bytes()
            for milliseconds in range(0, 30):
                self.out.write_bytes(OLD)
                process = subprocess.Popen(command, env=self.environment)
                time.sleep(milliseconds / 1000)
                process.send_signal(signal.SIGTERM)
                process.wait()
                self.assertIn(process.returncode, (0, -signal.SIGTERM))
                self.assertIn(self.out.read_bytes(), (whole,) if process.returncode == 0 else (OLD, whole))
                self.expect_nothing_left()

    def test_ignored_signals_stay_ignored(self):
        tool = self.tool(f'kill -HUP $PPID; exec cat "$2"')
        command = ["sh", "-c", 'trap "" HUP; exec "$@"', "sh", *next(self.commands(tool=tool))]
        self.assertEqual(self.run_limited(command).returncode, 0)

    @unittest.skipUnless(ADDRESS_SPACE_CAN_BE_LIMITED, "the memory cannot be limited here")
    def test_little_memory(self):
        outcomes = set()
        for megabytes in range(8, 72, 2):
            for command in self.commands():
                self.out.write_bytes(OLD)
                done = self.run_limited(command, AS=megabytes << 20)
                outcomes.add(done.returncode)
                self.assertIn(done.returncode, (0, 1, 127), (megabytes, done))
                self.assertEqual(self.out.read_bytes() == OLD, done.returncode != 0)
                self.expect_nothing_left()
        self.assertIn(0, outcomes)


if __name__ == "__main__":
    unittest.main()
