"""Writes workbooks for the tests, through the program that WORKBOOK_WRITER_TOOL names."""
import os
import subprocess


def cell(row, column, text, bold=False):
    data = text if isinstance(text, bytes) else text.encode()
    return f"write {row} {column} {bold:d} x{data.hex()}"


def run(path, calls):
    return subprocess.run([os.environ["WORKBOOK_WRITER_TOOL"], path], input="\n".join(calls),
                          text=True, capture_output=True)


def write(path, calls):
    done = run(path, calls)
    if done.returncode != 0:
        raise AssertionError(done.stderr)
    return path


TEXTS = [
    "", " ", "  both ends  ", "plain", "00:00:01:05", "12", "1.5e3", "-0", "TRUE", "=1+1", "+A1", "@x",
    "'quoted", "https://example.org/", "mailto:a@example.org", "a;b,c\t\"d\"", "two\nlines", "\n",
    "Grüße, ¿qué? ÿ", "Ÿ is past Latin-1", "Привет, мир", "漢字かな交じり文", "مرحبا بالعالم",
    "e\u0301 a\u0308\u0323", "👩‍👩‍👧 😀", "😀" * 16383 + "x", "x" * 32767, "é" * 32767, "ж" * 32767,
]


def full_sheet():
    """65,536 rows of five texts: a header, then two times, a speaker, a phrase and a path."""
    yield ["Start", "End", "Speaker", "Text", "Path"]
    for n in range(65535):
        times = [f"{n // 3600:02}:{n // 60 % 60:02}:{n % 60:02}:{part:02}" for part in (0, 12)]
        phrase = f"{n:05} " + ["went to see the boats", "поехали смотреть", "見に行った😀"][n % 3] * 4
        yield [*times, f"Speaker {n % 6 + 1}", phrase, "/media/day 2/harbour.mov"]


def full_sheet_calls():
    for number, row in enumerate(full_sheet()):
        for column in (0, 1, 4, 2, 3):
            yield cell(number, column, row[column], number == 0)
    yield "set_column 0 1 11"
