#!/usr/bin/env python3
"""Counts the damages of TIFF files that go unnoticed: tiff_damage.py FOLDER [NAME...]

FOLDER holds the seeds of RasterReaderFuzz (tests/fuzz/make_seeds.py), RASTER_IO_DRIVER is the
driver of the interop tests. Every byte of the image data is changed in three ways, one at a time;
the table tells how many of these files are refused, read as before, and read as another picture.
It takes minutes and is run by hand.
"""

import os
import pathlib
import subprocess
import sys
import tempfile

import tifffile

NAMES = ("deflate_uint8_3", "deflate_uint16_3", "lzma_uint8_3", "lzw_uint8_3", "lzw_uint16_3",
         "packbits_uint8_3", "zstd_uint8_3", "group4", "tiff_jpeg")
MASKS = (0x01, 0x40, 0xFF)


def samples(path, output):
    """What the program reads, None when it refuses."""
    output.unlink(missing_ok=True)
    subprocess.run([os.environ["RASTER_IO_DRIVER"], "read", path, output],
                   stderr=subprocess.DEVNULL, check=False)
    return output.read_bytes() if output.exists() else None


def data_positions(path):
    with tifffile.TiffFile(path) as file:
        page = file.pages[0]
        return [position for offset, size in zip(page.dataoffsets, page.databytecounts)
                for position in range(offset, offset + size)]


def main():
    folder = pathlib.Path(sys.argv[1])
    print("| file | damages | refused | as before | another picture |\n|---|---|---|---|---|")
    with tempfile.TemporaryDirectory() as scratch:
        damaged, output = pathlib.Path(scratch, "a.tif"), pathlib.Path(scratch, "samples")
        for name in sys.argv[2:] or NAMES:
            whole = (folder / name).read_bytes()
            right = samples(folder / name, output)
            counts = {"refused": 0, "right": 0, "wrong": 0}
            for position in data_positions(folder / name):
                for mask in MASKS:
                    changed = bytearray(whole)
                    changed[position] ^= mask
                    damaged.write_bytes(changed)
                    read = samples(damaged, output)
                    outcome = "refused" if read is None else "right" if read == right else "wrong"
                    counts[outcome] += 1
            print(f"| {name} | {sum(counts.values())} | {counts['refused']} | {counts['right']} | "
                  f"{counts['wrong']} |", flush=True)


if __name__ == "__main__":
    main()
