"""Opens written workbooks in LibreOffice and Gnumeric, and compares what these make of them."""
import csv
import io
import subprocess
import tempfile
import unittest

import xlrd

from workbook_tool import TEXTS, cell, write


class OfficeTest(unittest.TestCase):
    def converted(self, kind, calls):
        """The paths of what each suite makes of the workbook, "csv" or "xls"."""
        folder = self.enterContext(tempfile.TemporaryDirectory())
        source, gnumeric = write(f"{folder}/book.xls", calls), f"{folder}/gnumeric.{kind}"
        for command in (
                ["soffice", f"-env:UserInstallation=file://{folder}/profile", "--headless", "--convert-to",
                 {"csv": "csv:Text - txt - csv (StarCalc):44,34,76", "xls": "xls"}[kind],
                 "--outdir", f"{folder}/libreoffice", source],
                ["ssconvert", "-T", {"csv": "Gnumeric_stf:stf_csv", "xls": "Gnumeric_Excel:excel_biff8"}[kind],
                 source, gnumeric]):
            done = subprocess.run(command, check=True, capture_output=True, timeout=300)
            if command[0] == "ssconvert":
                self.assertEqual(done.stderr, b"")
        return f"{folder}/libreoffice/book.{kind}", gnumeric

    def test_texts(self):
        rows = [[text, "|"] for text in TEXTS]
        calls = [cell(r, c, text) for r, row in enumerate(rows) for c, text in enumerate(row)]
        for path in self.converted("csv", calls):
            with open(path, newline="", encoding="utf-8") as file:
                self.assertEqual(list(csv.reader(file)), rows, path)

    def test_formats_and_widths_survive_a_save(self):
        calls = [cell(0, 0, "head", bold=True), cell(1, 0, "12"), cell(1, 1, "=1+1"), cell(1, 2, ""),
                 cell(1, 3, "https://example.org/"), "set_column 0 1 11", "set_column 3 3 40"]
        for path in self.converted("xls", calls):
            book = xlrd.open_workbook(path, formatting_info=True, logfile=io.StringIO())
            sheet = book.sheet_by_index(0)
            self.assertEqual(book.sheet_names(), ["Sheet1"])
            self.assertEqual([(c.ctype, c.value) for c in sheet.row(1)[::3] + sheet.row(1)[1:2]],
                             [(1, "12"), (1, "https://example.org/"), (1, "=1+1")], path)
            weights = [book.font_list[book.xf_list[sheet.cell_xf_index(r, 0)].font_index].weight
                       for r in (0, 1)]
            self.assertEqual(weights, [700, 400], path)
            # A column is 7 pixels a digit and 5 more; the suites round to their own units.
            for column, characters in ((0, 11), (1, 11), (3, 40)):
                pixels = sheet.computed_column_width(column) * 7 / 256
                self.assertAlmostEqual((pixels - 5) / 7, characters, delta=0.2, msg=path)


if __name__ == "__main__":
    unittest.main()
