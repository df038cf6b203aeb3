#!/usr/bin/env python3
"""Demosaic every 16-bit Bayer frame of a folder on a Dask cluster.

Each 16-bit single-channel TIFF (.tif, .tiff) or PGM (.pgm) in SRC_DIR becomes
a 16-bit RGB TIFF of the same base name in DST_DIR, one Dask task per frame.
The tasks run on a local cluster of --workers processes, or, with --scheduler,
on an existing cluster: its workers need oqa_demosaic installed and must see
SRC_DIR and DST_DIR at the same paths (a shared mount).

    python3 dask_convert.py raw/ rgb/ --pattern RGGB --workers 4
    python3 dask_convert.py /shared/raw /shared/rgb --pattern RGGB \\
        --scheduler tcp://10.0.0.1:8786

Exit status: 0 when every frame was converted, 1 when some were not (each is
named on standard error), 2 for unusable arguments, 3 when no cluster could
be started or reached.
"""

import argparse
import contextlib
import logging
import os
import re
import secrets
import sys
from pathlib import Path

import cv2
import numpy
import tifffile

import oqa_demosaic

SOURCE_SUFFIXES = (".tif", ".tiff", ".pgm")
# Magic, width, height and maximum value; whitespace or comments between them.
PGM_HEADER = re.compile(rb"P[25](?:\s|#[^\r\n]*[\r\n])+(\d+)(?:\s|#[^\r\n]*[\r\n])+(\d+)"
                        rb"(?:\s|#[^\r\n]*[\r\n])+\d+\s")
CLUSTER_UNAVAILABLE = 3


def source_frames(folder):
    """The TIFF and PGM files directly in folder, sorted by name."""
    return sorted(path for path in Path(folder).iterdir()
                  if path.suffix.lower() in SOURCE_SUFFIXES and path.is_file())


def pgm_sample_count(path):
    """Width times height from a PGM header, read before any decoding.

    Every sample takes at least one byte of the file, so a header that
    promises more samples than the file holds is refused here, before the
    decoder would allocate for it.
    """
    with open(path, "rb") as file:
        header = PGM_HEADER.match(file.read(1024))
    if header is None:
        raise ValueError("not a greyscale PGM file")
    width, height = int(header[1]), int(header[2])
    if width * height > os.path.getsize(path):
        raise ValueError(f"PGM header promises {width}x{height} samples, more than the file holds")
    return width * height


def check_frame(shape, dtype, max_pixels):
    if len(shape) != 2 or dtype != numpy.uint16:
        raise ValueError(f"not a 16-bit single-channel frame ({dtype}, shape {shape})")
    if shape[0] * shape[1] > max_pixels:
        raise ValueError(f"more than {max_pixels} pixels")


def read_frame(path, max_pixels):
    """The 2-D uint16 samples of a single-channel 16-bit TIFF or PGM file.

    Sizes and sample types are checked before the samples are decoded.
    """
    if path.suffix.lower() == ".pgm":
        if pgm_sample_count(path) > max_pixels:
            raise ValueError(f"more than {max_pixels} pixels")
        frame = cv2.imread(str(path), cv2.IMREAD_UNCHANGED)
        if frame is None:
            raise ValueError("unreadable PGM file")
    else:
        with tifffile.TiffFile(path) as tiff:
            if len(tiff.pages) != 1:
                raise ValueError(f"{len(tiff.pages)} pages instead of one frame")
            page = tiff.pages[0]
            check_frame(page.shape, page.dtype, max_pixels)
            frame = page.asarray()
    check_frame(frame.shape, frame.dtype, max_pixels)
    return frame


def convert(source, destination, pattern, max_pixels):
    """Demosaics one frame file into an RGB TIFF; runs as one Dask task.

    The TIFF is written under a temporary name in the destination folder and
    renamed when complete, so a failed frame leaves no file behind.
    """
    image = oqa_demosaic.demosaic(read_frame(Path(source), max_pixels), pattern)
    destination = Path(destination)
    # Created exclusively, with the permissions the umask gives new files.
    temporary = destination.with_name(f".{destination.name}.{secrets.token_hex(8)}.part")
    os.close(os.open(temporary, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o666))
    try:
        tifffile.imwrite(temporary, image, photometric="rgb")
        os.replace(temporary, destination)
    except BaseException:
        os.unlink(temporary)
        raise
    return destination.name


def parse_arguments(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("source", type=Path, metavar="SRC_DIR")
    parser.add_argument("destination", type=Path, metavar="DST_DIR")
    parser.add_argument("--pattern", required=True, choices=["RGGB", "BGGR", "GRBG", "GBRG"],
                        help="the 2x2 cell of filters at the top-left corner")
    parser.add_argument("--workers", type=int, default=os.cpu_count() or 1,
                        help="worker processes of the local cluster (default: one per core)")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="run on the existing cluster of this scheduler instead")
    parser.add_argument("--max-pixels", type=int, default=1 << 28,
                        help="refuse frames larger than this (default: %(default)s)")
    arguments = parser.parse_args(argv)
    if arguments.workers < 1 or arguments.max_pixels < 4:
        parser.error("--workers must be at least 1 and --max-pixels at least 4")
    if not arguments.source.is_dir():
        parser.error(f"{arguments.source} is not a folder")
    arguments.destination.mkdir(parents=True, exist_ok=True)
    if arguments.destination.resolve() == arguments.source.resolve():
        parser.error("DST_DIR must differ from SRC_DIR: the outputs would replace .tiff inputs")
    return arguments


def main(argv=None):
    arguments = parse_arguments(argv)
    sources = source_frames(arguments.source)
    names = [source.stem + ".tiff" for source in sources]
    duplicates = sorted({name for name in names if names.count(name) > 1})
    if duplicates:
        print(f"several sources would become {', '.join(duplicates)}", file=sys.stderr)
        return 2

    from dask.distributed import Client, LocalCluster, as_completed

    with contextlib.ExitStack() as stack:
        try:
            if arguments.scheduler:
                client = stack.enter_context(Client(arguments.scheduler))
            else:
                cluster = stack.enter_context(
                    LocalCluster(n_workers=arguments.workers, threads_per_worker=1,
                                 processes=True, dashboard_address=None,
                                 silence_logs=logging.ERROR))
                client = stack.enter_context(Client(cluster))
        except Exception as error:  # any failure to start processes, listen or connect
            print(f"no Dask cluster: {error}", file=sys.stderr)
            return CLUSTER_UNAVAILABLE
        futures = {
            client.submit(convert, str(source), str(arguments.destination / name),
                          arguments.pattern, arguments.max_pixels, pure=False): source
            for source, name in zip(sources, names)
        }
        failures = 0
        for future in as_completed(futures):
            try:
                future.result()
            except Exception as error:  # reported per frame; the others go on
                failures += 1
                print(f"{futures[future]}: {error}", file=sys.stderr)
    print(f"{len(sources) - failures} of {len(sources)} frames converted into "
          f"{arguments.destination}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
