#!/usr/bin/python3
"""Measures murmurase-xmp get, its normalising included, against exempi -x and exiftool -m -b -xmp, in
time and peak memory, in turn in the same minutes. Ratios are medians of the pairs' ratios. The exit
status is 1 where get takes more than 1.2 times what exempi takes, plus a tenth, or where a movie of
20 GB (a sparse file) takes more than 1.5 times as long as a small one.
"""

import argparse
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
from make_packet import make_packet  # noqa: E402

SOURCE = pathlib.Path(__file__).resolve().parent.parent
AIM, MARGIN, SPARSE_AIM = 1.2, 1.1, 1.5
NOTHING_TO_COUNT = 20  # words


def make_movie(path, words, media_bytes=0):
    """A QuickTime movie of nothing but media data that is never written, and a packet."""
    packet = path.with_suffix(".packet")
    make_packet(packet, words)
    with open(path, "wb") as movie, open(packet, "rb") as source:
        movie.write(b"\0\0\0\x14ftypqt  \0\0\0\0qt  ")
        if media_bytes:
            movie.write(b"\0\0\0\1mdat" + (media_bytes + 16).to_bytes(8, "big"))
            movie.seek(media_bytes, os.SEEK_CUR)
        for level, kind in enumerate((b"moov", b"udta", b"XMP_")):
            movie.write((packet.stat().st_size + 8 * (3 - level)).to_bytes(4, "big") + kind)
        shutil.copyfileobj(source, movie)  # never whole in memory, which would count as a child's
    packet.unlink()
    return str(path)


def spend(command):
    """Wall seconds, and the peak KB."""
    start = time.perf_counter()
    pid = os.posix_spawnp(command[0], command, os.environ, file_actions=[
        (os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)])
    _, status, usage = os.wait4(pid, 0)
    if status != 0:
        sys.exit(f"xmp_bench: failed: {' '.join(command)}")
    return time.perf_counter() - start, usage.ru_maxrss


def compare(ours, theirs, pairs):
    """The medians of what ours spends, what theirs spends, and the ratios."""
    runs = [(spend(ours), spend(theirs)) for _ in range(pairs)]
    return [statistics.median(values) for values in zip(*(
        (a[0], a[1], b[0], b[1], a[0] / b[0], a[1] / b[1]) for a, b in runs))]


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=SOURCE / "build")
    parser.add_argument("--smoke", action="store_true", help="tiny packets, only to see that it runs")
    options = parser.parse_args()
    tool = str(options.build.resolve() / "bin" / "murmurase-xmp")
    sizes = [(20, 1)] if options.smoke else [(10_000, 7), (100_000, 3)]
    missed = False
    with tempfile.TemporaryDirectory(prefix="murmurase-bench-") as folder:
        folder = pathlib.Path(folder)
        print(f"{'murmurase-xmp get':38}{'time':>9}{'memory':>9}   against{'time':>9}{'memory':>9}"
              f"{'ratios':>14}")
        for words, pairs in sizes:
            movie = make_movie(folder / f"{words}.mov", words)
            for name, command, judged, runs in (
                    ("exempi -x", ["exempi", "-x", "-o", "/dev/null", movie], True, pairs),
                    ("exiftool", ["exiftool", "-m", "-b", "-xmp", movie], False, 1)):
                a, am, b, bm, t, m = compare([tool, "get", movie], command, runs)
                missed |= judged and max(t, m) > AIM * MARGIN
                print(f"{words:>9,} words, against {name:14}{a:8.3f}s{am / 1024:7.0f}MB          "
                      f"{b:8.3f}s{bm / 1024:7.0f}MB{t:7.2f}{m:7.2f}"
                      + ("" if not judged else "  held" if max(t, m) <= AIM else "  NOT held"))
        small = make_movie(folder / "small.mov", NOTHING_TO_COUNT)
        large = make_movie(folder / "large.mov", NOTHING_TO_COUNT, 20 * 10**9)
        a, am, b, bm, t, _ = compare([tool, "get", large], [tool, "get", small],
                                     1 if options.smoke else 15)
        missed |= t > SPARSE_AIM
        print(f"a movie of 20 GB, against a small one{a:9.3f}s{am / 1024:7.0f}MB          "
              f"{b:8.3f}s{bm / 1024:7.0f}MB{t:7.2f}         "
              + ("held" if t <= SPARSE_AIM else "NOT held"))
    return 1 if missed and not options.smoke else 0


if __name__ == "__main__":
    sys.exit(main())
