#!/usr/bin/python3
"""Computes filters.txt in double precision (numpy), by other ways than the library goes:
python3 make_filters.py  (writes beside itself; prints the low-pass taps up to the centre)."""
import math
import pathlib

import numpy as np

HERE = pathlib.Path(__file__).parent
PASS, STOP, STOP_WEIGHT = 0.1, 0.125, 0.655
SAMPLES = 64

# (f3dB, rate, order)
BUTTERWORTH = [(0.4 * r, r, 2) for r in (47368.421, 250e3, 1e6, 62.5e6)]
BUTTERWORTH += [(0.5, 2.0, n) for n in (2, 3, 4)]
BUTTERWORTH += [(0.4 * low, high, 2) for low, high in ((44100.0, 48000.0), (48000.0, 250e3), (8000.0, 250e3))]
BUTTERWORTH += [(f, 1000.0, n) for f in (20.0, 100.0, 333.0, 490.0) for n in (2, 3, 4)]


def polynomial(order):
    """The Butterworth polynomial of a radius of 1, lowest power first, by its recursion."""
    gamma = math.pi / (2 * order)
    c = [1.0]
    for k in range(1, order + 1):
        c.append(c[-1] * math.cos((k - 1) * gamma) / math.sin(k * gamma))
    return c


def butterworth(f3db, rate, order):
    """b, a: s = (z - 1) / (z + 1) / tan(pi f3dB / rate) put into the polynomial, no pole computed."""
    w = math.tan(math.pi * f3db / rate)
    a = np.zeros(order + 1)
    for k, c in enumerate(polynomial(order)):
        a += c * w ** -k * np.poly([1.0] * k + [-1.0] * (order - k))
    return np.poly([-1.0] * order) / a[0], a / a[0]


def impulse_response(b, a):
    """By the recursion on the output alone."""
    y = []
    for n in range(SAMPLES):
        v = b[n] if n < len(b) else 0.0
        for k in range(1, min(n, len(a) - 1) + 1):
            v -= a[k] * y[n - k]
        y.append(v)
    return y


def grid(points=40000):
    lower = np.linspace(0.0, PASS, int(points * PASS / (PASS + 0.5 - STOP)))
    upper = np.linspace(STOP, 0.5, points - len(lower))
    f = np.concatenate([lower, upper])
    return f, (f <= PASS).astype(float), np.where(f <= PASS, 1.0, STOP_WEIGHT), len(lower)


def extremes(error, split, count):
    """Places of the largest errors, of alternating sign."""
    size = np.abs(error)
    places = []
    for first, end in ((0, split), (split, len(error))):
        s = size[first:end]
        peak = (s >= np.concatenate([[-1.0], s[:-1]])) & (s >= np.concatenate([s[1:], [-1.0]]))
        for p in first + np.flatnonzero(peak):
            if places and np.sign(error[places[-1]]) == np.sign(error[p]):
                places[-1] = max(places[-1], p, key=lambda i: size[i])
            else:
                places.append(p)
    while len(places) > count:
        del places[0 if size[places[0]] < size[places[-1]] else -1]
    return places


def low_pass(half=18):
    """The exchange of Parks and McClellan: 2 half + 1 taps."""
    f, wanted, weight, split = grid()
    cosines = np.cos(2.0 * math.pi * np.outer(f, np.arange(half + 1)))
    places = list(np.round(np.linspace(0, len(f) - 1, half + 2)).astype(int))
    for _ in range(50):
        ripple = (-1.0) ** np.arange(half + 2) / weight[places]
        x = np.linalg.solve(np.column_stack([cosines[places], ripple]), wanted[places])[:-1]
        found = extremes(weight * (wanted - cosines @ x), split, half + 2)
        if found == places:
            return np.concatenate([x[:0:-1] / 2, x[:1], x[1:] / 2])
        places = found
    raise RuntimeError("no best fit")


def words(values):
    return " ".join(f"{v:.16g}" for v in values)


def main():
    taps = low_pass()
    print("\n".join(f"{t:.16g}" for t in taps[:19]))
    with open(HERE / "filters.txt", "w") as out:
        print("lowpass", words(taps), file=out)
        for f3db, rate, order in BUTTERWORTH:
            f3db, rate = float(np.float32(f3db)), float(np.float32(rate))
            b, a = butterworth(f3db, rate, order)
            b *= a.sum() / b.sum()
            print("butterworth", words([f3db, rate]), order, words(b), words(a[1:]), words(impulse_response(b, a)),
                  file=out)


if __name__ == "__main__":
    main()
