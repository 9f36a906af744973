"""Times scipy.ndimage.convolve on the filter benchmark's volume, for its kernel sizes.

Run by filter_bench (with the Python interpreter that has numpy and scipy) and usable alone:
    /usr/bin/python3 bench/volume/scipy_convolve.py [repetitions]
Prints one line per kernel, "<n>x<n>x<n> <median seconds>". ndimage works in double on one
thread and skips no weight of these dense kernels, so its time does not depend on their values.
"""
import sys
import time

import numpy as np
from scipy import ndimage

SIDE = 256


def main():
    repetitions = int(sys.argv[1]) if len(sys.argv) > 1 else 5
    rng = np.random.default_rng(1)
    volume = rng.integers(-2000, 2000, (SIDE, SIDE, SIDE)).astype(np.int16)
    for n in (3, 5):
        weights = np.ones((n, n, n)) / n**3
        seconds = []
        for _ in range(repetitions):
            start = time.perf_counter()
            ndimage.convolve(volume, weights, output=np.int16, mode="constant")
            seconds.append(time.perf_counter() - start)
        print(f"{n}x{n}x{n} {sorted(seconds)[len(seconds) // 2]:.6f}", flush=True)


if __name__ == "__main__":
    main()
