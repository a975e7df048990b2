"""A host in Python, by ctypes, and what the module exports to any host."""

import ctypes
import os
import pathlib
import re
import subprocess
import unittest

MODULE = os.environ["MURMURASE_MODULE"]
HEADER = (pathlib.Path(os.environ["MURMURASE_SOURCE"]) / "include/murmurase/murmurase.h").read_text()
P = ctypes.c_void_p

m = ctypes.CDLL(MODULE)
for name in re.findall(r"\* (murmurase_\w+)\(", HEADER):
    getattr(m, name).restype = P  # an int would cut it
m.murmurase_error_message.restype = ctypes.c_char_p


def make(function, *arguments):
    """What the function gives as its result; its error as an exception."""
    result = P()
    error = P(getattr(m, "murmurase_" + function)(*arguments, ctypes.byref(result)))
    if error:
        message = m.murmurase_error_message(error).decode()
        m.murmurase_error_free(error)
        raise ValueError(message)
    return result


def text(value):
    size = ctypes.c_size_t()
    start = P()
    if m.murmurase_get_text(value, ctypes.byref(start), ctypes.byref(size)):
        raise TypeError("no text")
    return ctypes.string_at(start, size.value).decode()


class CtypesHost(unittest.TestCase):
    def test_exports_the_header_and_nothing_else(self):
        listed = subprocess.run(["nm", "-D", "--defined-only", MODULE], check=True,
                                capture_output=True, text=True).stdout
        declared = re.findall(r"(?:\*|\s)(\w+)\([^()]*\);", re.sub(r"/\*.*?\*/", "", HEADER, flags=re.S))
        self.assertIn("Init_murmurase_algorithm", declared)
        self.assertEqual(sorted(line.split()[-1] for line in listed.splitlines()), sorted(declared))

    def test_calls(self):
        m.Init_murmurase_algorithm()
        self.assertIsNone(m.murmurase_startup_error())
        controller = make("controller_new", (P * 4)(32))  # its size, and no callbacks
        frames = make("new_integer", ctypes.c_int64(107892))
        rate = make("new_integer", ctypes.c_int64(30))
        format = make("new_text", b"DF", ctypes.c_size_t(2))
        arguments = (P * 3)(frames, rate, format)
        label = make("call", controller, b"to_timecode", arguments, ctypes.c_size_t(3))
        self.assertEqual(text(label), "01:00:00;00")
        with self.assertRaisesRegex(ValueError, r"wrong number of arguments \(2 for 3\)"):
            make("call", controller, b"to_timecode", arguments, ctypes.c_size_t(2))
        for value in (frames, rate, format, label):
            m.murmurase_value_free(value)
        m.murmurase_controller_free(controller)


if __name__ == "__main__":
    unittest.main()
