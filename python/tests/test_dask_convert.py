"""examples/python/dask_convert.py on a two-worker local cluster."""

import subprocess
import sys
from pathlib import Path

import cv2
import numpy as np
import pytest
import tifffile

import oqa_demosaic

EXAMPLE = Path(__file__).resolve().parents[2] / "examples" / "python" / "dask_convert.py"
CLUSTER_UNAVAILABLE = 3


def test_cluster_writes_what_a_plain_loop_computes(tmp_path):
    source, destination = tmp_path / "raw", tmp_path / "rgb"
    source.mkdir()
    rng = np.random.default_rng(5)
    frames = {"a": (37, 21), "b": (2, 2), "c": (64, 67)}
    for name, shape in frames.items():
        frames[name] = rng.integers(0, 1 << 16, shape, dtype=np.uint16)
    tifffile.imwrite(source / "a.tiff", frames["a"])
    tifffile.imwrite(source / "b.TIF", frames["b"])
    cv2.imwrite(str(source / "c.pgm"), frames["c"])
    # Refused without decoding: 8-bit colour, and a header promising far
    # more samples than the file holds.
    tifffile.imwrite(source / "colour.tif", np.zeros((4, 4, 3), np.uint8), photometric="rgb")
    (source / "bomb.pgm").write_bytes(b"P5\n60000 60000\n65535\n" + bytes(64))
    (source / "notes.txt").write_text("not a frame")

    result = subprocess.run(
        [sys.executable, str(EXAMPLE), str(source), str(destination), "--pattern", "GRBG",
         "--workers", "2"], capture_output=True, text=True, timeout=240)
    if result.returncode == CLUSTER_UNAVAILABLE:
        pytest.skip(f"no local Dask cluster here: {result.stderr.strip()}")

    assert result.returncode == 1, result.stderr
    assert "colour.tif" in result.stderr and "bomb.pgm" in result.stderr
    assert sorted(path.name for path in destination.iterdir()) == ["a.tiff", "b.tiff", "c.tiff"]
    for name, frame in frames.items():
        with tifffile.TiffFile(destination / f"{name}.tiff") as tiff:
            assert tiff.pages[0].photometric == tifffile.PHOTOMETRIC.RGB
            np.testing.assert_array_equal(tiff.asarray(), oqa_demosaic.demosaic(frame, "GRBG"))
