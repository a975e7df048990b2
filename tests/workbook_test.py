"""Reads written workbooks back with xlrd, and follows the positions that the records hold."""
import io
import os
import struct
import tempfile
import unittest

import xlrd
from xlrd.book import unpack_SST_table
from xlrd.compdoc import CompDoc

from workbook_tool import TEXTS, cell, full_sheet, full_sheet_calls, run, write

LAST_ROW, LAST_COLUMN = 65535, 255


def records(path):
    """{position: (type, data)} of the workbook's stream."""
    with open(path, "rb") as file:
        container = CompDoc(file.read(), logfile=io.StringIO())
    memory, start, size = container.locate_named_stream("Workbook")
    stream, found, position, ends = memory[start:start + size], {}, 0, 0
    while ends < 2:  # of the globals and of the sheet
        kind, length = struct.unpack_from("<HH", stream, position)
        found[position] = (kind, stream[position + 4:position + 4 + length])
        position += 4 + length
        ends += kind == 0x0A
    assert not stream[position:].strip(b"\0") and (position == size or size == 4096)
    return found


class WorkbookTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.path = os.path.join(directory.name, "book.xls")

    def read(self, calls):
        book = xlrd.open_workbook(write(self.path, calls), formatting_info=True,
                                  logfile=io.StringIO())
        self.assertEqual(book.sheet_names(), ["Sheet1"])
        return book, book.sheet_by_index(0)

    def assert_positions(self):
        """Every INDEX, DBCELL, BOUNDSHEET and EXTSST entry leads to what it promises."""
        found = records(self.path)
        of_kind = lambda kind: [(p, d) for p, (k, d) in found.items() if k == kind]
        self.assertLessEqual(max(len(data) for _, data in found.values()), 8224)
        self.assertEqual(found[struct.unpack_from("<I", of_kind(0x85)[0][1])[0]][0], 0x0809)

        index = of_kind(0x20B)[0][1]
        _, first, end, width, *blocks = struct.unpack(f"<{len(index) // 4}I", index)
        self.assertEqual(found[width][0], 0x55)
        self.assertEqual(blocks, [position for position, _ in of_kind(0xD7)])
        self.assertEqual(len(blocks), (end - first + 31) // 32)
        for number, position in enumerate(blocks):
            data = found[position][1]
            start, *offsets = struct.unpack(f"<I{len(data) // 2 - 2}H", data)
            kind, row = found[position - start]
            self.assertEqual(kind, 0x208)
            self.assertEqual((struct.unpack_from("<H", row)[0] - first) // 32, number)
            place = position - start + 20
            for i, offset in enumerate(offsets):
                place += offset
                kind, data = found[place]
                rows = found[position - start + 20 * i][1]
                self.assertEqual((kind, data[:4]), (0xFD, rows[:4]))

        table = of_kind(0xFC)[0][1]
        references, distinct = struct.unpack_from("<II", table)
        self.assertEqual(references, len(of_kind(0xFD)))
        strings, _ = unpack_SST_table([table] + [data for _, data in of_kind(0x3C)], distinct)
        buckets = of_kind(0xFF)[0][1]
        step = struct.unpack_from("<H", buckets)[0]
        self.assertEqual((len(buckets) - 2) // 8, -(-len(strings) // step))
        for i, (place, offset, _) in enumerate(struct.iter_unpack("<IHH", buckets[2:])):
            kind, data = found[place - offset]
            self.assertIn(kind, (0xFC, 0x3C))
            count, wide = struct.unpack_from("<HB", data, offset - 4)
            expected = strings[i * step].encode("utf-16-le")
            self.assertEqual(count, len(expected) // 2)
            part = data[offset - 1:][:(1 + wide) * count]
            self.assertEqual(bool(part), bool(count))
            self.assertEqual(part.decode("utf-16-le" if wide else "latin-1"),
                             expected[:2 * len(part) // (1 + wide)].decode("utf-16-le"))

    def test_texts_stay(self):
        _, sheet = self.read([cell(i, i % 3, text) for i, text in enumerate(TEXTS + TEXTS[::-1])]
                             + [cell(99, 0, "a\r\nb\r")])
        for i, text in enumerate(TEXTS + TEXTS[::-1]):
            found = sheet.cell(i, i % 3)
            self.assertEqual((found.ctype, found.value), (xlrd.XL_CELL_TEXT, text))
        self.assertEqual(sheet.cell_value(99, 0), "a\r\nb\r")
        self.assert_positions()

    def test_texts_at_every_record_boundary(self):
        for text in ("", "latin", "жизнь", "😀😀😀", "a😀b😀", "é" * 20000, "ж😀" * 9000):
            for room in range(15):
                with self.subTest(text=text[:5], room=room):
                    # Seven texts of four bytes before, so that EXTSST points to the one in question.
                    texts = [*"1234567", "x" * (8213 - 28 - room), text, "after", text + "я"]
                    _, sheet = self.read([cell(0, i, t) for i, t in enumerate(texts)])
                    self.assertEqual(sheet.row_values(0), texts)
                    self.assert_positions()

    def test_formats_and_widths(self):
        book, sheet = self.read([cell(0, 0, "a", bold=True), cell(0, 1, "b"), cell(1, 0, "a"),
                                 "set_column 1 4 11", "set_column 3 3 20.5", "set_column 255 255 0.5"])
        fonts = [book.font_list[book.xf_list[sheet.cell_xf_index(*place)].font_index]
                 for place in ((0, 0), (0, 1), (1, 0))]
        self.assertEqual([(f.name, f.height, f.bold, f.weight) for f in fonts],
                         [("Arial", 200, 1, 700), ("Arial", 200, 0, 400), ("Arial", 200, 0, 400)])
        self.assertEqual(book.xf_list[sheet.cell_xf_index(0, 1)].format_key, 0)
        # Pixels are 7 a digit and 5 around them: 82 for 11 characters, 149 for 20.5, 6 for a half.
        self.assertEqual({c: round(i.width * 7 / 256) for c, i in sheet.colinfo_map.items()},
                         {1: 82, 2: 82, 3: 149, 4: 82, 255: 6})
        self.assertEqual(sheet.colinfo_map[1].width, 82 * 256 // 7)
        self.assertEqual(sheet.defcolwidth, 8)

    def test_any_order_and_the_last_write_stays(self):
        places = [(70, 3), (0, 4), (0, 2), (70, 0), (5, 1), (0, 4), (LAST_ROW, LAST_COLUMN), (33, 7)]
        _, sheet = self.read([cell(*place, f"text {i}") for i, place in enumerate(places)])
        expected = {place: f"text {i}" for i, place in enumerate(places)}
        self.assertEqual({place: sheet.cell_value(*place) for place in expected}, expected)
        self.assertEqual(sum(1 for kind, _ in records(self.path).values() if kind == 0xFD), 7)
        self.assert_positions()

    def test_empty_sheet(self):
        _, sheet = self.read([])
        self.assertEqual((sheet.nrows, sheet.ncols), (0, 0))
        self.assert_positions()

    def test_limits_are_errors_that_name_the_cell(self):
        for call, message in (
                (cell(65536, 1, "x"), "cell B65537: a sheet holds 65,536 rows"),
                (cell(2, 256, "x"), "cell IW3: a sheet holds 256 columns"),
                (cell(1, 2, "x" * 32768), "cell C2: the text has 32768 UTF-16 units"),
                (cell(1, 2, "😀" * 16384), "cell C2: the text has 32768 UTF-16 units"),
                (cell(0, 0, "a\0b"), "cell A1: the text holds a NUL character at byte 2"),
                (cell(0, 25, b"ab\xff"), "cell Z1: the text is not UTF-8 from byte 3"),
                (cell(0, 26, b"\xc0\xaf"), "cell AA1: the text is not UTF-8 from byte 1"),
                (cell(0, 0, b"\xed\xa0\x80"), "cell A1: the text is not UTF-8 from byte 1"),
                (cell(0, 0, b"\xf4\x90\x80\x80"), "cell A1: the text is not UTF-8 from byte 1"),
                (cell(0, 0, b"\xe0\x9f\xbf"), "cell A1: the text is not UTF-8 from byte 1"),
                (cell(0, 0, b"x\xf0\x9f\x98"), "cell A1: the text is not UTF-8 from byte 2"),
                ("set_column 0 256 11", "columns 0 to 256"), ("set_column 2 1 11", "columns 2 to 1"),
                ("set_column 0 1 0", "a width is more than 0"), ("set_column 0 1 255.5", "at most 255")):
            with self.subTest(message=message):
                done = run(self.path, [cell(0, 0, "before"), call])
                self.assertEqual(done.returncode, 1)
                self.assertIn(message, done.stderr)
                self.assertFalse(os.path.exists(self.path))

    def test_full_sheet_twice_the_same(self):
        _, sheet = self.read(full_sheet_calls())
        self.assertEqual([sheet.row_values(r) for r in range(sheet.nrows)], list(full_sheet()))
        self.assert_positions()
        self.assertGreater(sum(1 for kind, _ in records(self.path).values() if kind == 0x3C), 1000)
        with open(self.path, "rb") as file:
            first = file.read()
        self.assertGreater(struct.unpack_from("<I", first, 44)[0], 109)  # FAT sectors
        with open(write(self.path, full_sheet_calls()), "rb") as file:
            self.assertTrue(first == file.read())
        directory = 512 + 512 * struct.unpack_from("<I", first, 48)[0]
        for entry in range(directory, directory + 512, 128):
            self.assertEqual(first[entry + 100:entry + 116], bytes(16))  # no times


if __name__ == "__main__":
    unittest.main()
