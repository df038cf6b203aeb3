#!/usr/bin/python3
"""Whole-process times of oqa-demosaic against dcraw on camera raw files.

Writes DNG files of a few megapixels (a 14-bit Bayer mosaic of a smooth
scene with edges and sensor noise, black and white levels, a colour matrix
and an as-shot white balance, which both dcraw and LibRaw read), then runs
each command on each file several times, in random order, and prints the
median wall-clock seconds of each with its ratio to dcraw -q 0 -4 -T:

    /usr/bin/python3 bench/tool/tool_vs_dcraw.py [--tool build/bin/oqa-demosaic]
        [--runs 9] [--sizes 4000x3000,6000x4000] [--folder /tmp/oqa-bench]

dcraw -q 0 -4 -T decodes, scales, interpolates bilinearly, applies the
white balance and colour matrix and writes an uncompressed 16-bit TIFF.
The tool's outputs also reach the disk before it ends (fsync); dcraw's do
not. Needs numpy and tifffile (Debian python3-numpy, python3-tifffile).
"""
import argparse
import os
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import numpy
import tifffile

# (label, arguments after the tool, output extension); None: dcraw itself.
COMMANDS = [
    ("dcraw -q 0 -4 -T", None, ".tiff"),
    ("tool TIFF", [], ".tiff"),
    ("tool TIFF --compression fast", ["--compression", "fast"], ".tiff"),
    ("tool TIFF --develop", ["--develop"], ".tiff"),
    ("tool PPM", [], ".ppm"),
    ("tool PNG", [], ".png"),
    ("tool PNG --develop --depth 8", ["--develop", "--depth", "8"], ".png"),
]


def write_dng(path, width, height):
    """A mosaic of a scene (gradients, discs and bars) with shot noise."""
    rng = numpy.random.default_rng(width * height)
    y, x = numpy.mgrid[0:height, 0:width].astype(numpy.float32)
    scene = 0.35 + 0.25 * numpy.sin(x / 173.0) * numpy.cos(y / 211.0)
    scene += 0.3 * (((x // 400) + (y // 300)) % 2)  # hard edges
    scene += 0.2 * (numpy.hypot(x - width / 2, y - height / 2) < height / 4)
    channel_gain = numpy.ones((height, width), numpy.float32)
    channel_gain[0::2, 0::2] = 0.55  # red sites
    channel_gain[1::2, 1::2] = 0.75  # blue sites
    signal = 512 + scene * channel_gain * 12000
    signal += rng.normal(0, 1, size=(height, width)).astype(numpy.float32) * numpy.sqrt(signal)
    mosaic = numpy.clip(signal, 0, 16383).astype(numpy.uint16)

    def rationals(values):
        return sum(((int(round(v * 10000)), 10000) for v in values), ())

    matrix = [0.9, -0.3, -0.1, -0.4, 1.2, 0.2, -0.1, 0.2, 0.6]
    tags = [
        (50706, "B", 4, (1, 4, 0, 0), True),  # DNGVersion
        (271, "s", 0, "Benchmark", True),  # Make
        (272, "s", 0, "Sensor", True),  # Model
        (50708, "s", 0, "Benchmark Sensor", True),  # UniqueCameraModel
        (33421, "H", 2, (2, 2), True),  # CFARepeatPatternDim
        (33422, "B", 4, (0, 1, 1, 2), True),  # CFAPattern RGGB
        (50714, "H", 1, 512, True),  # BlackLevel
        (50717, "H", 1, 16383, True),  # WhiteLevel
        (50721, "2i", 9, rationals(matrix), True),  # ColorMatrix1
        (50778, "H", 1, 21, True),  # CalibrationIlluminant1: D65
        (50728, "2I", 3, rationals((0.55, 1.0, 0.75)), True),  # AsShotNeutral: the grey
    ]
    tifffile.imwrite(path, mosaic, photometric=32803, extratags=tags, rowsperstrip=height,
                     subfiletype=0)


def command_line(tool, arguments, source, target):
    if arguments is None:
        return f"dcraw -q 0 -4 -T -c '{source}' > '{target}'"
    return f"'{tool}' '{source}' -o '{target}' --force --quiet " + " ".join(arguments)


def run(line):
    start = time.perf_counter()
    subprocess.run(line, shell=True, check=True)
    return time.perf_counter() - start


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--tool", default="build/bin/oqa-demosaic")
    parser.add_argument("--runs", type=int, default=9)
    parser.add_argument("--sizes", default="4000x3000,6000x4000")
    parser.add_argument("--folder", default=None, help="scratch folder (default: a new one)")
    options = parser.parse_args()
    if shutil.which("dcraw") is None:
        sys.exit("dcraw not found (Debian package dcraw)")
    tool = os.path.abspath(options.tool)
    folder = options.folder or tempfile.mkdtemp(prefix="oqa-bench-")
    os.makedirs(folder, exist_ok=True)

    sizes = [tuple(int(side) for side in size.split("x")) for size in options.sizes.split(",")]
    files = []
    for width, height in sizes:
        path = os.path.join(folder, f"frame_{width}x{height}.dng")
        write_dng(path, width, height)
        # Both decoders must take it; a refusal stops the run here.
        subprocess.run(["dcraw", "-i", path], check=True, stdout=subprocess.DEVNULL)
        run(command_line(tool, [], path, os.path.join(folder, "check.tiff")))
        files.append((f"{width}x{height}", path))

    jobs = [(size, path, label, arguments, extension)
            for size, path in files for label, arguments, extension in COMMANDS]
    seconds = {(size, label): [] for size, _, label, _, _ in jobs}
    for _ in range(options.runs):
        random.shuffle(jobs)
        for size, path, label, arguments, extension in jobs:
            target = os.path.join(folder, "out" + extension)
            seconds[(size, label)].append(run(command_line(tool, arguments, path, target)))

    print(f"Median seconds of {options.runs} runs, whole process, interleaved at random\n")
    print("| Frame | Command | Seconds | / dcraw |")
    print("|---|---|---|---|")
    for size, _ in files:
        reference = statistics.median(seconds[(size, COMMANDS[0][0])])
        for label, _, _ in COMMANDS:
            median = statistics.median(seconds[(size, label)])
            print(f"| {size} | {label} | {median:.3f} | {median / reference:.2f} |")
    if options.folder is None:
        shutil.rmtree(folder)


if __name__ == "__main__":
    main()
