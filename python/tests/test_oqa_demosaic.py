"""oqa_demosaic against the library's own C entry points, its errors and threads."""

import ctypes
import os
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import oqa_demosaic

# Numbers of the C header's enumerations, written out independently of the
# extension's own tables.
PHASES = {"RGGB": 0, "BGGR": 1, "GRBG": 2, "GBRG": 3}
FORMATS = {"bgr-planar": 0, "bgr": 1, "rgb": 2}
LEVELS = ["auto", "scalar", "sse", "avx2", "avx512"]
SIZES = [(2, 2), (3, 5), (7, 37), (6, 67), (5, 131)]  # (height, width): odd, not whole vectors
ORIGINS = [(0, 0), (1, 0), (0, 1), (-3, 2**65 + 1)]


def scalar_reference(mosaic, pattern, origin, layout):
    """The library's scalar output, called directly through its C entry."""
    library = ctypes.CDLL("libostrevan_oqa_demosaic.so.1", mode=os.RTLD_NOLOAD)
    height, width = mosaic.shape
    image = np.empty((3, height, width) if layout == "bgr-planar" else (height, width, 3),
                     np.uint16)
    source = np.ascontiguousarray(mosaic)
    code = library.qn_demosaic_transform_test_16_to_48(
        width, height, origin[0] % 2, origin[1] % 2, PHASES[pattern], FORMATS[layout], 0, 16,
        ctypes.c_void_p(source.ctypes.data), ctypes.c_void_p(image.ctypes.data), 0)
    assert code == 0
    return image


def unaligned(frame):
    return np.frombuffer(b"\0" + frame.tobytes(), np.uint16, frame.size, 1).reshape(frame.shape)


@pytest.mark.parametrize("layout", FORMATS)
@pytest.mark.parametrize("level", LEVELS)
def test_every_call_gives_the_library_scalar_bytes(level, layout):
    rng = np.random.default_rng(12)
    for height, width in SIZES:
        frame = rng.integers(0, 1 << 16, (height, width), dtype=np.uint16)
        strided = np.repeat(frame, 2, 1)[:, ::2]
        copies = [frame, np.asfortranarray(frame), strided, unaligned(frame)]
        for pattern in PHASES:
            for origin in ORIGINS:
                expected = scalar_reference(frame, pattern, origin, layout)
                # The last copy's image goes into an out array of its own.
                outs = [None, None, None, np.full(expected.shape, 7, np.uint16)]
                for mosaic, out in zip(copies, outs):
                    image = oqa_demosaic.demosaic(mosaic, pattern.lower(), origin=origin,
                                                  layout=layout, level=level, out=out)
                    assert out is None or image is out
                    np.testing.assert_array_equal(image, expected, f"{pattern} {origin}")


GOOD = np.arange(24, dtype=np.uint16).reshape(4, 6)
READ_ONLY = np.zeros((4, 6, 3), np.uint16)
READ_ONLY.flags.writeable = False
BAD_CALLS = [
    (TypeError, [[1, 2], [3, 4]], {}),
    (TypeError, GOOD.astype(np.int32), {}),
    (TypeError, GOOD.astype(">u2"), {}),
    (ValueError, GOOD[0], {}),
    (ValueError, GOOD[None], {}),
    (ValueError, GOOD[:1], {}),
    (ValueError, GOOD[:, :1], {}),
    # Far wider than int; a copy of it would not fit in memory.
    (ValueError, np.lib.stride_tricks.as_strided(GOOD, (2, 1 << 31), (0, 0)), {}),
    (ValueError, GOOD, {"pattern": "RGBG"}),
    (TypeError, GOOD, {"pattern": 0}),
    (ValueError, GOOD, {"layout": "rgba"}),
    (ValueError, GOOD, {"level": "neon"}),
    (TypeError, GOOD, {"level": None}),
    (ValueError, GOOD, {"origin": (0, 0, 0)}),
    (TypeError, GOOD, {"origin": (0.5, 0)}),
    (TypeError, GOOD, {"origin": 0}),
    (TypeError, GOOD, {"out": [0] * 72}),
    (ValueError, GOOD, {"out": np.zeros((3, 4, 6), np.uint16)}),
    (ValueError, GOOD, {"out": np.zeros((4, 6, 3), np.int16)}),
    (ValueError, GOOD, {"out": np.zeros((4, 6, 3), ">u2")}),
    (ValueError, GOOD, {"out": np.zeros((4, 6, 6), np.uint16)[:, :, ::2]}),
    (ValueError, GOOD, {"out": READ_ONLY}),
    (ValueError, None, {"out": np.zeros((4, 6, 3), np.uint16)}),
]


@pytest.mark.parametrize("error, mosaic, arguments", BAD_CALLS)
def test_bad_call_raises_and_writes_nothing(error, mosaic, arguments):
    out = arguments.get("out", np.full((4, 6, 3), 4321, np.uint16))
    if mosaic is None:
        mosaic = out[:, :, 0]  # samples that are the out array's own
    before = np.array(out, copy=True)
    with pytest.raises(error):
        oqa_demosaic.demosaic(mosaic, **{**arguments, "out": out})
    np.testing.assert_array_equal(out, before)


def test_exit_while_daemon_threads_transform_is_clean_and_a_late_call_raises_its_code():
    # The only code a checked call can meet: after the package's exit handler
    # has terminated the library. atexit runs this script's handler later,
    # because it was registered before the package's.
    script = """
import atexit, pickle, threading, time, numpy
def late_call():
    try:
        oqa_demosaic.demosaic(numpy.zeros((2, 2), numpy.uint16))
    except oqa_demosaic.Error as error:
        print(isinstance(error, RuntimeError), error.code, pickle.loads(pickle.dumps(error)).code)
atexit.register(late_call)
import oqa_demosaic
def convert_forever():
    frame = numpy.zeros((1024, 1024), numpy.uint16)
    out = numpy.empty((3, 1024, 1024), numpy.uint16)
    while True:
        oqa_demosaic.demosaic(frame, layout="bgr-planar", level="scalar", out=out)
for _ in range(2):
    threading.Thread(target=convert_forever, daemon=True).start()
time.sleep(0.2)
"""
    for _ in range(2):  # the exit meets the threads at different points
        result = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True,
                                check=True, timeout=60)
        assert result.stdout.split() == ["True", "1", "1"]


def test_python_threads_run_during_a_transform():
    frame = np.zeros((4096, 4096), np.uint16)
    out = np.empty((3, 4096, 4096), np.uint16)
    interval = sys.getswitchinterval()
    sys.setswitchinterval(1e-4)  # a lock held through the call shows as one long gap
    try:
        for _ in range(3):  # a loaded machine may stall the main thread once
            span = []

            def transform():
                span.append(time.perf_counter())
                oqa_demosaic.demosaic(frame, layout="bgr-planar", level="scalar", out=out)
                span.append(time.perf_counter())

            worker = threading.Thread(target=transform)
            ticks = []
            worker.start()
            while worker.is_alive():
                ticks.append(time.perf_counter())
            worker.join()
            start, end = span
            inside = [start] + [tick for tick in ticks if start < tick < end] + [end]
            if max(b - a for a, b in zip(inside, inside[1:])) < (end - start) / 2:
                return
        pytest.fail("the main thread stood still while a transform ran")
    finally:
        sys.setswitchinterval(interval)


def test_levels_start_with_scalar_and_are_known():
    levels = oqa_demosaic.levels()
    assert levels[0] == "scalar" and set(levels) <= set(LEVELS[1:])
