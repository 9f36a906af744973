#!/usr/bin/python3
"""scipy's side of remap_bench: the same source, displacement field and affine map, timed with
scipy.ndimage.map_coordinates and affine_transform on one thread, in process CPU time.

    /usr/bin/python3 scipy_remap.py SIDE M00 M01 M02 M10 M11 M12 M20 M21 M22 T0 T1 T2

M and T give the affine map from destination to source voxel coordinates (x, y, z order):
src = M dst + T. Prints one line per case, "case seconds..." (every repetition), then "value"
lines with the order-1 results at a few voxels, for the benchmark to check its own against.
Exits quietly with status 2 when numpy or scipy is missing.
"""
import sys
import time

try:
    import numpy as np
    from scipy import ndimage
except ImportError:
    sys.exit(2)

REPETITIONS = 3
# Voxels (x, y, z) whose values are compared.
PROBES = [(17, 40, 3), (128, 128, 128), (200, 31, 77), (64, 190, 250), (5, 250, 128),
          (250, 5, 9), (99, 101, 103), (180, 180, 20)]


def source(side):
    """The benchmark's source: a smooth wave with a fine ripple, indexed [z, y, x]."""
    z, y, x = np.meshgrid(*(np.arange(side, dtype=np.float64),) * 3, indexing="ij")
    s = 0.45 + 0.4 * np.sin(0.05 * x + 0.03 * y) * np.cos(0.04 * z) \
        + 0.05 * np.sin(1.9 * x + 2.7 * y + 1.3 * z)
    return s.astype(np.float32)


def field_positions(side):
    """Source positions of the displacement field, as [z, y, x] coordinate planes."""
    z, y, x = np.meshgrid(*(np.arange(side, dtype=np.float64),) * 3, indexing="ij")
    tau = 2 * np.pi
    mx = x + 3 * np.sin(tau * y / 97) * np.cos(tau * z / 131)
    my = y + 3 * np.sin(tau * z / 89) * np.cos(tau * x / 113)
    mz = z + 2 * np.sin(tau * x / 103) * np.cos(tau * y / 71)
    return np.stack([mz, my, mx]).astype(np.float32)


def timed(run):
    seconds = []
    for _ in range(REPETITIONS):
        begin = time.process_time()
        out = run()
        seconds.append(time.process_time() - begin)
    return seconds, out


def main():
    side = int(sys.argv[1])
    m = np.array([float(v) for v in sys.argv[2:11]]).reshape(3, 3)
    t = np.array([float(v) for v in sys.argv[11:14]])
    # x, y, z to the arrays' z, y, x order.
    flip = np.eye(3)[::-1]
    matrix, offset = flip @ m @ flip, flip @ t

    src = source(side)
    coords = field_positions(side)
    out = np.empty_like(src)
    results = {}
    cases = [
        ("map_coordinates o1", lambda: ndimage.map_coordinates(src, coords, out, order=1)),
        ("map_coordinates o3", lambda: ndimage.map_coordinates(src, coords, out, order=3,
                                                               prefilter=False)),
        ("affine_transform o1", lambda: ndimage.affine_transform(src, matrix, offset,
                                                                 output=out, order=1)),
        ("affine_transform o3", lambda: ndimage.affine_transform(src, matrix, offset,
                                                                 output=out, order=3,
                                                                 prefilter=False)),
    ]
    for name, run in cases:
        seconds, _ = timed(run)
        print(name, *("%.6f" % s for s in seconds), flush=True)
        if name.endswith("o1"):
            results[name] = out.copy()
    for name in ("map_coordinates o1", "affine_transform o1"):
        for x, y, z in PROBES:
            print("value", name.split()[0], x, y, z, "%.9g" % results[name][z, y, x])


if __name__ == "__main__":
    main()
