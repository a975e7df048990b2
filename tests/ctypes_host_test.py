"""A host in Python, by ctypes, and what the module exports to any host."""

import contextlib
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


def expect(error):
    if error:
        message = m.murmurase_error_message(P(error)).decode()
        m.murmurase_error_free(P(error))
        raise ValueError(message)


def make(function, *arguments):
    """What the function gives as its result; its error as an exception."""
    result = P()
    expect(getattr(m, "murmurase_" + function)(*arguments, ctypes.byref(result)))
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

    @classmethod
    def setUpClass(cls):
        m.Init_murmurase_algorithm()

    def setUp(self):
        self.controller = make("controller_new", (P * 4)(32))  # its size, and no callbacks
        self.addCleanup(m.murmurase_controller_free, self.controller)

    def value(self, content):
        """Of a number or a text, a list or a record of such; it lives as long as the test."""
        if isinstance(content, dict):
            result = make("new_record")
            for key, part in content.items():
                expect(m.murmurase_record_set(result, key.encode(), self.value(part)))
        elif isinstance(content, list):
            result = make("new_list")
            for part in content:
                expect(m.murmurase_list_append(result, self.value(part)))
        elif isinstance(content, str):
            result = make("new_text", content.encode(), ctypes.c_size_t(len(content)))
        elif isinstance(content, float):
            result = make("new_real", ctypes.c_double(content))
        else:
            result = None if content is None else make("new_integer", ctypes.c_int64(content))
        self.addCleanup(m.murmurase_value_free, result)
        return result

    def call(self, operation, *arguments):
        return make("call", self.controller, operation.encode(), (P * 5)(*map(self.value, arguments)),
                    ctypes.c_size_t(len(arguments)))

    def test_calls(self):
        for operation, arguments, said in (
                ("to_timecode", (107892, 30, "DF"), "01:00:00;00"), ("to_timecode", (1800.0, 30.0, "DF"), "00:01:00;02"),
                ("to_timecode", (9007199254740993, 25.0, "NDF"), "100079991719:20:39:18"),
                ("to_timestamp", (9007199254740993,), "2501999792983:36:33"),
                ("to_timestamp", (2.0**63,), "no countable number"), ("to_timestamp", (float("nan"),), "no count"),
                ("to_frames", ("DF",), "wrong number of arguments (1 for 2)"),
                ("build_speakers_array", (None,), "wrong number of arguments (1 for 0)"),
                ("save_to_text", (30, 1.5), "argument 2 of save_to_text must be text, not a real"),
                ("to_timestamp", (None,), "argument 1 of to_timestamp must be a number, not null"),
                ("build_words_array", (1.5,), "must be a whole number, not 1.5"),
                ("to_time", (), "there is no operation to_time")):
            with self.subTest(operation=operation, arguments=arguments):
                try:
                    value = self.call(operation, *arguments)
                    self.assertEqual(text(value), said)
                    m.murmurase_value_free(value)
                except ValueError as error:
                    self.assertIn(said, str(error))

    def test_fields_take_only_their_kind(self):
        for field, content, said in (
                ("frame_rate", 30, ""), ("frame_rate", "30", "frame_rate must be a number, not text"),
                ("in", 2.0, ""), ("in", 2.5, "in must be a whole number, not 2.5"),
                ("clip_xml", "x", "must be an XML document, not text"),
                ("speakersTableView", 1, "must be a host object"),
                ("speakers_array", [{"Name": None, "Speaker": "A"}, {"Speaker": "B"}], ""),
                ("speakers_array", [{"Name": "A"}], 'a record of speakers_array lacks "Speaker"'),
                ("speakers_array", [{"Speaker": 1.5}], '"Speaker" of speakers_array must be text, not a real'),
                ("speakers_array", ["A"], "speakers_array must be a record, not text"),
                ("no_field", "x", "the controller has no field no_field")):
            with self.subTest(field=field, content=content):
                with self.assertRaisesRegex(ValueError, said) if said else contextlib.nullcontext():
                    expect(m.murmurase_set(self.controller, field.encode(), self.value(content)))


if __name__ == "__main__":
    unittest.main()
