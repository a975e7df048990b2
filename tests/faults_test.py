"""Faults from outside: whatever fails, an output is as it was or whole, nothing else is left, and one
line tells."""

import contextlib
import os
import pathlib
import resource
import signal
import struct
import subprocess
import sys
import time
import unittest

from support import CLIP, INTERVIEW, MURMURASE, PACKET, PLAIN_TOOL, Case, run

# What an export may replace.
OLD = {"text": b"what was there before", "markers": b"<xmeml><clip><marker> <name>",
       "excel": (b"\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1" + bytes(22) + b"\t").ljust(512, b"\0")
                + "Workbook".encode("utf-16-le")}
for ignored in signal.SIGHUP, signal.SIGINT, signal.SIGQUIT:  # by nohup, and by a shell's background jobs
    signal.signal(ignored, signal.SIG_DFL)
# A sanitizer takes more than there is, and macOS heeds no such limit.
# Those that a program can catch, and that end it if it does not, without its own faults and SIGPIPE.
ENDING = signal.valid_signals() - {getattr(signal, "SIG" + name) for name in (
    "KILL STOP CHLD CONT TSTP TTIN TTOU URG WINCH PIPE SEGV BUS FPE ILL TRAP SYS").split()}
ADDRESS_SPACE_CAN_BE_LIMITED = sys.platform == "linux" and "MURMURASE_SANITIZED" not in os.environ


def limits(**values):
    """Options of a run whose process has these limits."""
    return {"preexec_fn": lambda: [resource.setrlimit(getattr(resource, "RLIMIT_" + name), (value, value))
                                   for name, value in values.items()]}


class Faults(Case):
    def setUp(self):
        super().setUp()
        self.temporary, self.target = self.folder / "tmp", self.folder / "target"
        self.temporary.mkdir()
        self.target.mkdir()
        self.out = self.target / "out"
        self.options["env"] = {**os.environ, "TMPDIR": str(self.temporary)}

    def commands(self, out=None, tool=PLAIN_TOOL):
        for arguments in ["text", INTERVIEW], ["excel", INTERVIEW], ["markers", INTERVIEW, CLIP]:
            yield [*arguments, out or self.out, "--xmp-tool", tool]

    def put_old(self, command):
        old = OLD.get(command[0], b"")
        self.out.write_bytes(old)
        return old

    def expect_nothing_left(self, kept=None):
        """Neither beside the output, which holds what is `kept`, nor in the temporary folder."""
        self.assertEqual((os.listdir(self.target), os.listdir(self.temporary)), (["out"], []))
        if kept is not None:
            self.assertEqual(self.out.read_bytes(), kept)

    def test_a_write_failing_at_any_byte(self):
        for command in self.commands():
            self.put_old(command)
            self.expect(*command)
            size = self.out.stat().st_size
            old = self.put_old(command)
            for offset in range(size) if command[0] == "text" else (0, 1, 511, 512, size - 1):
                self.expect_failure(*command, said=f"cannot write {self.out}: File too large",
                                    **limits(FSIZE=offset))
                self.expect_nothing_left(old)
            self.out.unlink()
            self.expect_failure(*command, said="File too large", **limits(FSIZE=size - 1))
            self.assertEqual(os.listdir(self.target), [])

    def test_targets(self):
        for command in self.commands():
            self.expect(*command)
            expected = self.out.read_bytes()
            self.out.unlink()
            self.out.symlink_to("elsewhere")
            self.expect(*command)
            self.assertEqual((os.readlink(self.out), (self.target / "elsewhere").read_bytes()),
                             ("elsewhere", expected))
            self.out.unlink()
            (self.target / "elsewhere").unlink()
            os.mkfifo(self.out)
            with subprocess.Popen(["cat", self.out], stdout=subprocess.PIPE) as reader:
                self.expect(*command)
                self.assertEqual(reader.stdout.read(), expected)
            self.assertTrue(self.out.is_fifo())
            self.expect_nothing_left()
            self.out.unlink()
        self.out.mkdir()
        loop = pathlib.Path(self.folder / "loop")
        loop.symlink_to("loop")
        for out, message in ((self.out, "Is a directory"), (loop, "Too many levels of symbolic links"), ("/dev/full", "No space left on device"),
                             (self.folder / "none/out", "No such file or directory"),
                             (CLIP / "out", "Not a directory")):
            for command in self.commands(out):
                self.expect_failure(*command, said=f"cannot write {out}: {message}")
                self.expect_nothing_left()

    @unittest.skipUnless(os.geteuid() == 0, "only root can be anybody")
    def test_access_stays(self):
        """Whoever writes it. A file whose access a new one cannot have is written in place."""
        me, friends, others = 65534, 50, 7
        user = {"user": me, "group": me, "extra_groups": [friends]}
        self.folder.chmod(0o755)
        self.temporary.chmod(0o777)
        if run(MURMURASE, "--version", **user)[0] != 0:
            self.skipTest("the program is not for everybody here")
        command = next(self.commands())
        self.expect(*command)
        expected = self.out.read_bytes()
        # A list: version; tag, permissions and id of the owner, of `others`, the group, the mask, the rest.
        granted = struct.pack("<I" + "HHi" * 5, 2, 1, 6, -1, 2, 6, others, 4, 0, -1, 16, 6, -1, 32, 0, -1)
        with contextlib.suppress(OSError):  # some file systems have none
            os.setxattr(self.target, "system.posix_acl_default", granted)
        for owner, group, mode, listed, folder_mode, replaced in (
                (me, me, 0o640, 0, 0o777, True), (me, friends, 0o664, 0, 0o777, True),
                (me, me, 0o600, 1, 0o777, True), (me, others, 0o660, 0, 0o777, False),
                (0, friends, 0o660, 0, 0o777, False), (0, 0, 0o666, 0, 0o1777, False),
                (me, me, 0o600, 1, 0o555, False)):
            self.out.unlink()
            self.out.write_bytes(OLD["text"])
            for name in os.listxattr(self.out):
                os.removexattr(self.out, name)
            os.chown(self.out, owner, group)
            self.out.chmod(mode)
            with contextlib.suppress(OSError):
                for name in ("user.note", "system.posix_acl_access") if listed else ():
                    os.setxattr(self.out, name, granted)
            self.target.chmod(folder_mode)
            attributes = lambda: {name: os.getxattr(self.out, name) for name in os.listxattr(self.out)}
            before, kept = self.out.stat(), attributes()
            self.expect_failure(*command, said="File too large", **user, **limits(FSIZE=len(OLD["text"]) + 1))
            self.expect_nothing_left(OLD["text"])
            self.expect(*command, **user)
            self.expect_nothing_left(expected)
            after = self.out.stat()
            self.assertEqual((*after[:1], *after[3:6], attributes()), (*before[:1], *before[3:6], kept))
            self.assertEqual(after.st_ino != before.st_ino, replaced, (owner, group, oct(mode)))

    def test_tools_that_fail(self):
        cases = [(f"head -c {len(PACKET) // 2} \"$2\"; kill -{number} $$", {},
                  f"the XMP tool was killed: {signal.strsignal(number)}")
                 for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGABRT, signal.SIGKILL,
                                signal.SIGSEGV, signal.SIGPIPE, signal.SIGALRM, signal.SIGTERM)]
        cases += [(":", {}, "it is empty"), ("exit 3", {}, "failed with status 3 without saying why")]
        large = [("exec head -c 2147483648 /dev/zero", {}, "it is larger than 512 MiB"),
                 ("echo y >&2; yes >&2 & exit 1", {}, "cannot read its XMP: y"),
                 ("exec head -c 536870912 /dev/zero", {}, "it holds no element")]
        if ADDRESS_SPACE_CAN_BE_LIMITED:
            large += [("exec head -c 536870912 /dev/zero", {"AS": 1 << 29}, "out of memory"),
                      ("head -c 600000000 /dev/zero >&2; echo why >&2; exit 1", {"AS": 1 << 29}, "x00why")]
        for script, limited, said in cases + large:
            commands = list(self.commands(tool=self.tool(script)))
            for command in commands[:1] if (script, limited, said) in large else commands:
                old = self.put_old(command)
                self.expect_failure(*command, said=said, **limits(CORE=0, **limited))
                self.expect_nothing_left(old)

    def interrupt(self, command, number, ready):
        """Sends the signal to the program alone, once it is `ready`."""
        process = subprocess.Popen([MURMURASE, *command], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   **self.options, **limits(CORE=0))
        while not ready():
            self.assertIsNone(process.poll())
            time.sleep(0.002)
        process.send_signal(number)
        self.assertEqual((*process.communicate(timeout=60), process.returncode), (b"", b"", -number))

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

    def test_interrupted_while_the_tool_never_ends(self):
        pids = self.folder / "pids"
        tool = self.tool(f'echo $$ >>{pids}; exec sleep 1000')
        export = ["export", "a.xmp", "b.xmp", "c.xmp", "--out", self.target, "--jobs=3", "--clip", CLIP,
                  "--xmp-tool", tool]
        for number in ENDING:
            for command in (*self.commands(tool=tool), export)[0 if number == signal.SIGTERM else -1:]:
                pids.write_text("")
                old = self.put_old(command)
                tools = 3 if command is export else 1
                self.interrupt(command, number, lambda: pids.read_text().count("\n") == tools)
                self.expect_nothing_left(old)
                for pid in pids.read_text().split():
                    self.expect_ended(int(pid))

    def test_interrupted_while_an_output_is_not_taken(self):
        os.mkfifo(self.out)
        started = self.folder / "started"
        for command in self.commands(tool=self.tool(f'touch {started}; exec cat "$2"')):
            self.interrupt(command, signal.SIGTERM, started.exists)
            started.unlink()
            self.expect_nothing_left()

    def test_ignored_signals_stay_ignored(self):
        pid = self.folder / "pid"
        command = next(self.commands(tool=self.tool(f'kill -HUP $(cat {pid}); exec cat "$2"')))
        done = run("sh", "-c", f'trap "" HUP; echo $$ >{pid}; exec "$@"', "sh", MURMURASE, *command,
                   **self.options)
        self.assertEqual(done, (0, "", ""))

    def failing(self, **what):
        return {"env": {**self.options["env"], "LD_PRELOAD": os.environ["FAILING_CALLS"], **what}}

    @unittest.skipUnless("FAILING_CALLS" in os.environ, "nothing can be made to fail")
    def test_each_step_of_a_write(self):
        for command in self.commands():
            for step in "fsync", "close", "rename":
                old = self.put_old(command)
                self.expect_failure(*command, said=f"cannot write {self.out}: Input/output error",
                                    **self.failing(FAILING_CALL=step))
                self.expect_nothing_left(old)
            before = self.out.stat().st_ino
            self.expect(*command, **self.failing(FAILING_CALL="fchmod"))
            self.expect_nothing_left()
            self.assertEqual(self.out.stat().st_ino, before)  # or others could read the new file

    @unittest.skipUnless("FAILING_CALLS" in os.environ, "nothing can be made to fail")
    def test_each_allocation(self):
        """Every third one: the commands share most of them, and each begins with another."""
        for first, command in enumerate(self.commands(), 50):  # before, `main` has not begun
            self.put_old(command)
            self.expect(*command)
            whole = self.out.read_bytes()
            number, successes = first, 0
            while successes < 30:  # it needs no more
                old = self.put_old(command)
                status, _, said = self.call(*command, **self.failing(FAILING_ALLOCATION=str(number)))
                self.assertIn(status, (0, 1), (number, said))
                self.assertIn(self.out.read_bytes(), (old, whole) if status else (whole,), number)
                self.assertRegex(said, r"\Amurmurase: .*\n\Z" if status else r"\A\Z")
                self.expect_nothing_left()
                number, successes = number + 3, 0 if status else successes + 1
            self.assertGreater(number, 1000)

    @unittest.skipIf("MURMURASE_SANITIZED" in os.environ, "a sanitizer needs descriptors of its own")
    def test_few_descriptors(self):
        """An export waits for those of the movies that it works on."""
        printed = self.expect("export", *[INTERVIEW] * 30, "--jobs=30", "--clip", CLIP, "--out", self.out,
                              **limits(NOFILE=20))
        self.assertEqual(len(printed.splitlines()), 31)


if __name__ == "__main__":
    unittest.main()
