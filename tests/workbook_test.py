"""Reads written workbooks back with xlrd, and follows the positions that the records hold."""
import io
import os
import random
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
    found, position = {}, start
    while position < start + size - 4:
        kind, length = struct.unpack_from("<HH", memory, position)
        found[position - start] = (kind, memory[position + 4:position + 4 + length])
        position += 4 + length
    return found


class WorkbookTest(unittest.TestCase):
    def setUp(self):
        self.path = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), "book.xls")

    def read(self, calls):
        book = xlrd.open_workbook(write(self.path, calls), formatting_info=True, logfile=io.StringIO())
        self.assertEqual(book.sheet_names(), ["Sheet1"])
        self.assert_positions()
        return book, book.sheet_by_index(0)

    def assert_positions(self):
        """INDEX leads to the widths and to each DBCELL, every DBCELL to the first ROW of its block and to the
        first cell of each row, EXTSST to texts."""
        found = records(self.path)
        of_kind = lambda *kinds: [data for kind, data in found.values() if kind in kinds]
        _, first, end, widths, *blocks = (number for number, in struct.iter_unpack("<I", of_kind(0x20B)[0]))
        self.assertEqual(blocks, [position for position, (kind, _) in found.items() if kind == 0xD7])
        self.assertEqual(found[widths][0], 0x55)
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
                self.assertEqual((kind, data[:4]), (0xFD, found[position - start + 20 * i][1][:4]))

        table, (buckets,) = of_kind(0xFC, 0x3C), of_kind(0xFF)
        references, distinct = struct.unpack_from("<II", table[0])
        self.assertEqual(references, len(of_kind(0xFD)))
        strings, _ = unpack_SST_table(table, distinct)
        texts = strings[::struct.unpack_from("<H", buckets)[0]]
        for text, (place, offset, _) in zip(texts, struct.iter_unpack("<IHH", buckets[2:]), strict=True):
            kind, data = found[place - offset]
            self.assertIn(kind, (0xFC, 0x3C))
            count, wide = struct.unpack_from("<HB", data, offset - 4)
            part = data[offset - 1:][:count << wide].decode("utf-16-le" if wide else "latin-1")
            self.assertEqual((count, text[:len(part)]), (len(text.encode("utf-16-le")) // 2, part))
            self.assertEqual(bool(part), bool(text))

    def test_texts_stay_in_any_order(self):
        texts = {(i, i % 3): text for i, text in enumerate([*TEXTS, *TEXTS[::-1], "a\r\nb\r"])}
        texts |= {(LAST_ROW, LAST_COLUMN): "the last", (70, 3): "alone", (33, 200): ""}
        _, sheet = self.read([cell(*place, "an earlier write") for place in texts]
                             + [cell(*place, text) for place, text in reversed(texts.items())])
        for place, text in texts.items():
            self.assertEqual((sheet.cell_type(*place), sheet.cell_value(*place)), (xlrd.XL_CELL_TEXT, text))
        self.assertEqual([kind for kind, _ in records(self.path).values()].count(0xFD), len(texts))
        _, sheet = self.read([])
        self.assertEqual((sheet.nrows, sheet.ncols), (0, 0))

    def test_random_workbooks(self):
        chance = random.Random(1)
        for _ in range(20):
            texts = {(chance.choice((0, 31, 32, 5000)) + chance.randrange(40), chance.randrange(256)): (
                "".join(chance.choices("aéЖ漢😀\U0010fffd", k=chance.randrange(5))) * chance.randrange(4000), chance.random() < .5)
                for _ in range(chance.randrange(100))}
            book, sheet = self.read([cell(*place, *text) for place, text in texts.items()])
            for place, (text, bold) in texts.items():
                font = book.font_list[book.xf_list[sheet.cell_xf_index(*place)].font_index]
                self.assertEqual((sheet.cell_value(*place), font.bold), (text, bold))

    def test_texts_at_every_record_boundary(self):
        for text in ("", "latin", "жизнь", "😀😀😀", "a😀b😀", "é" * 20000, "ж😀" * 9000):
            for room in range(15):
                with self.subTest(text=text[:5], room=room):
                    # Seven texts of four bytes before, so that EXTSST points to the one in question.
                    texts = [*"1234567", "x" * (8213 - 28 - room), text, "after", text + "я"]
                    _, sheet = self.read([cell(0, i, t) for i, t in enumerate(texts)])
                    self.assertEqual(sheet.row_values(0), texts)

    def test_formats_and_widths(self):
        book, sheet = self.read([cell(0, 0, "a", bold=True), cell(0, 1, "b"), cell(1, 0, "a"),
                                 "set_column 1 4 11", "set_column 3 3 20.5", "set_column 255 255 0.5"])
        formats = [book.xf_list[sheet.cell_xf_index(*place)] for place in ((0, 0), (0, 1), (1, 0))]
        fonts = [book.font_list[each.font_index] for each in formats]
        self.assertEqual([(f.name, f.height, f.bold, f.weight) for f in fonts],
                         [("Arial", 200, 1, 700), ("Arial", 200, 0, 400), ("Arial", 200, 0, 400)])
        self.assertEqual([each.format_key for each in formats], [0, 0, 0])
        # Pixels are 7 a digit and 5 around them: 82 for 11 characters, 149 for 20.5, 6 for a half.
        self.assertEqual({c: round(i.width * 7 / 256) for c, i in sheet.colinfo_map.items()},
                         {1: 82, 2: 82, 3: 149, 4: 82, 255: 6})
        self.assertEqual((sheet.colinfo_map[1].width, sheet.defcolwidth), (82 * 256 // 7, 8))

    def test_the_header_stays_in_view_and_on_every_page(self):
        book, sheet = self.read([cell(0, 0, "a", bold=True), cell(99, 0, "b")])
        self.assertEqual((sheet.panes_are_frozen, sheet.horz_split_pos, sheet.horz_split_first_visible), (1, 1, 1))
        titles = book.name_and_scope_map["print_titles", 0]
        self.assertEqual((titles.builtin, titles.result.text), (1, "Sheet1!$A$1:$IV$1"))
        kinds = dict(records(self.path).values())
        self.assertTrue(struct.unpack("<H", kinds[0x81])[0] & 0x100)  # fit to pages:
        self.assertEqual(struct.unpack_from("<HHH", kinds[0xA1], 6), (1, 0, 0))  # one wide, landscape

    def test_limits_are_errors_that_name_the_cell(self):
        for call, message in (
                (cell(65536, 1, "x"), "cell B65537: a sheet holds 65,536 rows"),
                (cell(2, 256, "x"), "cell IW3: a sheet holds 256 columns"),
                (cell(1, 2, "x" * 32768), "cell C2: the text has 32768 UTF-16 units"),
                (cell(1, 2, "😀" * 16384), "cell C2: the text has 32768 UTF-16 units"),
                (cell(0, 0, "a\0b"), "cell A1: the text holds a NUL character at byte 2"),
                (cell(0, 25, b"ab\xff"), "cell Z1: the text is not UTF-8 from byte 3"),
                *((cell(0, 26, b"a" + bad), "cell AA1: the text is not UTF-8 from byte 2") for bad in (
                    b"\xc0\xaf", b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"\xe0\x9f\xbf", b"\xf0\x9f\x98")),
                ("set_column 0 256 11", "columns 0 to 256"), ("set_column 2 1 11", "columns 2 to 1"),
                ("set_column 0 1 0", "a width is more than 0"), ("set_column 0 1 255.5", "at most 255")):
            with self.subTest(message=message):
                done = run(self.path, [cell(0, 0, "before"), call])
                self.assertEqual(done.returncode, 1)
                self.assertIn(message, done.stderr)
                self.assertFalse(os.path.exists(self.path))

    def test_full_sheet_twice_the_same(self):
        _, sheet = self.read(full_sheet_calls())
        for number, row in enumerate(full_sheet()):
            self.assertEqual(sheet.row_values(number), row)
        self.assertEqual(sheet.nrows, LAST_ROW + 1)
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
