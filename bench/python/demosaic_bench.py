#!/usr/bin/env python3
"""oqa_demosaic.demosaic beside OpenCV's cv2.demosaicing, and its thread scaling.

For 1920x1080 and 3840x2160 frames of random samples:
  * milliseconds per frame on one thread of demosaic (BGR interleaved, the
    library's own level) and of cv2.demosaicing (bilinear, the same RGGB
    cell), both writing into a preallocated array: medians of interleaved
    repetitions;
  * the aggregate rate of 1 and 2 threads calling demosaic at once, each on
    its own frame and output: medians of timed rounds.

    PYTHONPATH=build/python /usr/bin/python3 bench/python/demosaic_bench.py
"""

import argparse
import random
import statistics
import threading
import time

import cv2
import numpy

import oqa_demosaic

SIZES = [(1920, 1080), (3840, 2160)]


def seconds_per_call(call, batch_seconds):
    """Calls `call` in a batch of about batch_seconds; seconds per call."""
    calls, start = 0, time.perf_counter()
    while True:
        call()
        calls += 1
        elapsed = time.perf_counter() - start
        if elapsed >= batch_seconds:
            return elapsed / calls


def one_thread(width, height, repetitions, batch_seconds):
    """Median milliseconds per frame of demosaic and of cv2.demosaicing."""
    mosaic = numpy.random.default_rng(1).integers(0, 1 << 16, (height, width), numpy.uint16)
    ours = numpy.empty((height, width, 3), numpy.uint16)
    theirs = numpy.empty((height, width, 3), numpy.uint16)
    contenders = {
        "oqa_demosaic": lambda: oqa_demosaic.demosaic(mosaic, "RGGB", layout="bgr", out=ours),
        # OpenCV names the cell by its second row: RGGB is its BayerBG.
        "opencv": lambda: cv2.demosaicing(mosaic, cv2.COLOR_BayerBG2BGR, dst=theirs),
    }
    times = {name: [] for name in contenders}
    for _ in range(repetitions):
        order = list(contenders)
        random.shuffle(order)
        for name in order:
            times[name].append(seconds_per_call(contenders[name], batch_seconds))
    return {name: 1e3 * statistics.median(values) for name, values in times.items()}


def aggregate_rate(width, height, threads, rounds, round_seconds):
    """Median frames per second of `threads` threads transforming at once."""
    rng = numpy.random.default_rng(2)
    work = [(rng.integers(0, 1 << 16, (height, width), numpy.uint16),
             numpy.empty((height, width, 3), numpy.uint16)) for _ in range(threads)]
    rates = []
    for _ in range(rounds):
        barrier = threading.Barrier(threads + 1)
        counts = [0] * threads
        stop = threading.Event()

        def run(index):
            mosaic, out = work[index]
            barrier.wait()
            while not stop.is_set():
                oqa_demosaic.demosaic(mosaic, "RGGB", layout="bgr", out=out)
                counts[index] += 1

        workers = [threading.Thread(target=run, args=(index,)) for index in range(threads)]
        for worker in workers:
            worker.start()
        barrier.wait()
        start = time.perf_counter()
        time.sleep(round_seconds)
        stop.set()
        for worker in workers:
            worker.join()
        rates.append(sum(counts) / (time.perf_counter() - start))
    return statistics.median(rates)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--repetitions", type=int, default=9)
    parser.add_argument("--batch-seconds", type=float, default=0.1)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--round-seconds", type=float, default=0.5)
    arguments = parser.parse_args()
    cv2.setNumThreads(1)
    print(f"levels: {', '.join(oqa_demosaic.levels())}")
    print("\n| Frame | oqa_demosaic ms | cv2.demosaicing ms | OpenCV / oqa_demosaic |")
    print("|---|---|---|---|")
    for width, height in SIZES:
        ms = one_thread(width, height, arguments.repetitions, arguments.batch_seconds)
        print(f"| {width}x{height} | {ms['oqa_demosaic']:.3g} | {ms['opencv']:.3g} | "
              f"{ms['opencv'] / ms['oqa_demosaic']:.1f}x |")
    print("\n| Frame | threads | frames/s | Gpixel/s |")
    print("|---|---|---|---|")
    for width, height in SIZES:
        for threads in (1, 2):
            rate = aggregate_rate(width, height, threads, arguments.rounds,
                                  arguments.round_seconds)
            print(f"| {width}x{height} | {threads} | {rate:.0f} | "
                  f"{rate * width * height / 1e9:.2f} |")


if __name__ == "__main__":
    main()
