"""A host in Python: loads the module with ctypes and drives the whole road through it."""

import ctypes
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["MURMURASE_SOURCE"])
MODULE = os.environ["MURMURASE_MODULE"]
HEADER = (SOURCE / "include/murmurase/murmurase.h").read_text()
DATA = SOURCE / "tests/data"

NULL, BOOLEAN, INTEGER, REAL, TEXT, LIST, RECORD = range(7)
P = ctypes.c_void_p
SLIDER = ctypes.CFUNCTYPE(ctypes.c_bool, P, ctypes.POINTER(ctypes.c_double))
RELOAD = ctypes.CFUNCTYPE(ctypes.c_bool, P, P)


class Host(ctypes.Structure):
    _fields_ = [("context", P), ("wordGroupingSlider_value", SLIDER), ("reloadData", RELOAD)]


class ModuleError(Exception):
    pass


m = ctypes.CDLL(MODULE)
for name in re.findall(r"murmurase_error\* (murmurase_\w+)\(", HEADER):
    getattr(m, name).restype = P
m.murmurase_startup_error.restype = P
m.murmurase_error_message.restype = ctypes.c_char_p
m.murmurase_record_key.restype = ctypes.c_char_p
m.murmurase_size.restype = ctypes.c_size_t


def check(error):
    if error:
        message = m.murmurase_error_message(P(error)).decode()
        m.murmurase_error_free(P(error))
        raise ModuleError(message)


def make(function, *arguments):
    value = P()
    check(getattr(m, "murmurase_" + function)(*arguments, ctypes.byref(value)))
    return value


def to_value(data):
    """The module's value for a Python one; the caller frees it."""
    if data is None or isinstance(data, P):
        return data
    if isinstance(data, int):
        return make("new_integer", ctypes.c_int64(data))
    if isinstance(data, float):
        return make("new_real", ctypes.c_double(data))
    if isinstance(data, str):
        return make("new_text", data.encode(), ctypes.c_size_t(len(data.encode())))
    value = make("new_record" if isinstance(data, dict) else "new_list")
    for item in data.items() if isinstance(data, dict) else data:
        if isinstance(data, dict):
            held = to_value(item[1])
            check(m.murmurase_record_set(value, item[0].encode(), held))
        else:
            held = to_value(item)
            check(m.murmurase_list_append(value, held))
        m.murmurase_value_free(held)
    return value


def from_value(value):
    kind = m.murmurase_value_kind(value)
    if kind == REAL:
        real = ctypes.c_double()
        check(m.murmurase_get_real(value, ctypes.byref(real)))
        return real.value
    if kind == INTEGER:
        integer = ctypes.c_int64()
        check(m.murmurase_get_integer(value, ctypes.byref(integer)))
        return integer.value
    if kind == TEXT:
        text, size = ctypes.c_char_p(), ctypes.c_size_t()
        check(m.murmurase_get_text(value, ctypes.byref(text), ctypes.byref(size)))
        return ctypes.string_at(text, size.value).decode()
    items = range(m.murmurase_size(value))
    if kind == LIST:
        return [from_value(make("list_get", value, ctypes.c_size_t(i))) for i in items]
    if kind == RECORD:
        keys = [m.murmurase_record_key(value, ctypes.c_size_t(i)) for i in items]
        return {key.decode(): from_value(make("record_get", value, key)) for key in keys}
    return None if kind == NULL else f"kind {kind}"


class Controller:
    def __init__(self):
        self.reloads = 0
        self.callbacks = SLIDER(lambda context, value: False), RELOAD(self.reload)
        self.handle = make("controller_new", ctypes.byref(Host(None, *self.callbacks)))

    def reload(self, context, table):
        self.reloads += 1
        return True

    def __getitem__(self, field):
        value = make("get", self.handle, field.encode())
        data = from_value(value)
        m.murmurase_value_free(value)
        return data

    def __setitem__(self, field, data):
        value = to_value(data)
        check(m.murmurase_set(self.handle, field.encode(), value))
        m.murmurase_value_free(value)

    def call(self, operation, *data):
        values = [to_value(each) for each in data]
        handles = (P * len(values))(*[v.value if v else None for v in values])
        result = make("call", self.handle, operation.encode(), handles,
                      ctypes.c_size_t(len(values)))
        for value in values:
            m.murmurase_value_free(value)
        data = from_value(result)
        m.murmurase_value_free(result)
        return data


class CtypesHost(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        m.Init_murmurase_algorithm()
        assert m.murmurase_startup_error() is None

    def test_exports_the_header_and_nothing_else(self):
        listed = subprocess.run(["nm", "-D", "--defined-only", MODULE], check=True,
                                capture_output=True, text=True).stdout
        declared = re.findall(r"(?:\*|\s)(\w+)\([^()]*\);", re.sub(r"/\*.*?\*/", "", HEADER, flags=re.S))
        self.assertIn("Init_murmurase_algorithm", declared)
        self.assertEqual(sorted(line.split()[-1] for line in listed.splitlines()), sorted(declared))

    def test_road(self):
        controller = Controller()
        controller["xmpcommand"] = str(DATA / "print_packet")
        controller["speakersTableView"] = make("new_host_object", None)
        movie = str(DATA / "interview.xmp")
        self.assertEqual(controller.call("parse_xmp_from_mov", movie), ["kind 8"])
        self.assertEqual((controller["frame_rate"], controller["displayformat"],
                          controller["first_frame"]), (25.0, "NDF", 90000.0))
        listed = controller.call("build_speakers_array")
        self.assertEqual(listed, [{"Speaker": "Speaker 1", "Name": None},
                                  {"Speaker": "Speaker 2", "Name": None}])
        listed[1]["Name"] = "Žofie"
        controller["speakers_array"] = listed
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "out.txt")
            self.assertIsNone(controller.call("save_to_text", 100, path))
            self.assertEqual(pathlib.Path(path).read_text(),
                             "  SPEAKER 1\n[01:00:00:00] Hello and welcome to the\n\n"
                             "  ŽOFIE\n[01:00:02:15] Thanks Bob\n")
        self.assertEqual(controller.reloads, 1)
        self.assertEqual(controller["words_array"][1],
                         {"time_in": 2.6, "time_out": 3.0, "words": "Thanks Bob",
                          "speaker": "Speaker 2"})
        m.murmurase_controller_free(controller.handle)

    def test_errors(self):
        controller = Controller()
        for call, message in [
                (("to_frames",), "wrong number of arguments (0 for 2)"),
                (("to_timecode", 1, 0, "DF"), "0 frames per second"),
                (("to_timecode", 1, [1], "DF"), "argument 2 of to_timecode must be a whole number"),
                (("build_speakers_array",), "transcription_xml has not been set"),
                (("eval", "x"), "there is no operation eval")]:
            with self.assertRaisesRegex(ModuleError, re.escape(message)):
                controller.call(*call)
        m.murmurase_controller_free(controller.handle)


if __name__ == "__main__":
    unittest.main()
