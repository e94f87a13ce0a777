#!/usr/bin/python3
"""Computes the expectations of quillon_iq_plans.txt and quillon_sweep_plans.txt in IEEE single precision (numpy
float32), step by step from the rules and without the library:  python3 make_quillon_plans.py  (writes beside
itself)."""
import math
import pathlib

import numpy as np

from make_sweep_plans import E, WINDOWS, away, bits, ceil, down, floor, tens, up

F = np.float32
U64 = np.uint64
HERE = pathlib.Path(__file__).parent

RATE = F(122880000)
WIDTH = F(104448000)
LOW, HIGH, HALF_RATE = F(12287999), F(110592000), F(61440000)
PACKET = 32768
HELD = 33554432
TOPS = {"wide": F(2.0e10), "plain": F(6e9)}


# Captures.

def decimate(ifbw):
    needed = ifbw / F(0.85)
    d = 1024
    while d >= 1:
        if RATE / F(d) >= needed:
            return d, RATE / F(d)
        d //= 2
    return 0, F(0)


def packets(wanted, decimation):
    """Size and number. Decimated, the fewest packets that hold what is wanted within what the unit holds."""
    if decimation == 1:
        return PACKET, -(-wanted // PACKET)
    n = 1
    while True:
        size = max(-(-(-(-wanted // n)) // 32) * 32, 256)
        if size <= PACKET and size * n <= HELD:
            return size, n
        n += 1


def capture(ifbw, seconds):
    """decimation rate size packets samples longest contiguous"""
    d, rate = decimate(ifbw)
    if d == 0:
        return "0 0 0 0 0 0 0"
    size = min(max(int(away(rate * F(0.1))) & ~31, 256), PACKET)
    seconds = min(max(seconds, F(0)), F(120))
    samples, count, longest, contiguous = int(away(seconds * rate)), 0, F(0), 0
    if samples:
        longest = F(HELD) / rate
        if seconds <= longest:
            contiguous = 1
            wanted = min(max(math.ceil(rate * seconds), 256), HELD)
            while True:
                size, count = packets(wanted, d)
                if F(size * count) / rate >= seconds:
                    break
                wanted += 1
            samples = size * count
    return f"{d} {bits(rate)} {size} {count} {samples} {bits(longest)} {contiguous}"


def captures():
    """centre bandwidth seconds level : capture setting"""
    widths = [F(100000), F(102000), up(102000), F(103760), F(200e3), F(1e6), F(3.3e6), F(6528000), up(6528000), F(1e7),
              F(13056000), up(13056000), F(26112000), up(26112000), F(4e7), F(52224000), up(52224000), F(8e7), F(1e8),
              down(104448000), F(104448000)]
    times = [F(0), F(1e-9), F(1e-8), F(1e-6), F(1e-5), F(2.6666667e-4), F(1e-3), F(0.01), F(0.1), F(0.25), F(0.27306667),
             up(0.27306667), F(0.5461333), F(0.55), F(1), F(1.0922667), F(2), F(5), F(10), F(33.3), F(60), F(120),
             F(500)]
    levels = [-40, -39.999, -20.5, -0.9, 0, 0.9, 9.99, 10, 15, -50, 1.5, -1.5]
    n = 0
    for w in widths:
        for t in times:
            yield F(98.1e6), w, t, F(levels[n % len(levels)])
            n += 1
    rng = np.random.default_rng(20261122)
    for _ in range(400):
        yield (F(rng.uniform(9e3, 2e10)), F(10 ** rng.uniform(5, math.log10(104448000))), F(10 ** rng.uniform(-6, 2)),
               F(rng.uniform(-40, 10)))


def capture_lines():
    for centre, width, seconds, level in captures():
        yield (f"{bits(centre)} {bits(width)} {bits(seconds)} {bits(level)} {capture(width, seconds)} "
               f"{math.trunc(float(level))}")


# Sweeps.

def sweep(lowest, highest, rbw, name, device):
    if F(rbw + lowest) > highest:
        return None
    e = E[name]
    x = rbw / e                                                     # 1
    n = (int(away((x + WIDTH) / x)) + 31) & ~31
    fft = 256                                                       # 2
    while fft < 2 * n:
        fft *= 2
    spp, ppb = fft, 1
    if fft > PACKET:
        spp, ppb = PACKET, -(-fft // PACKET)
    fft = spp * ppb
    if fft > 1 << 30:   # a block that an array cannot hold
        return None
    b = RATE / F(fft + 1)                                           # 3
    first, last = ceil(LOW / b), floor(HIGH / b)                    # 4
    d = F(fft // 2 - first) * b + b * F(0.5)                        # 5
    c0 = tens(d + lowest)
    c = F(U64(c0))                                                  # 6
    step = tens(c + F(last - fft // 2) * b + b * F(0.5) + b + d) - c0
    count = ceil((highest - (c - d)) / F(U64(step)))                # 7
    c1 = (count - 1) * step + c0
    while count > 0 and F(U64(c1)) > device:                        # 8
        count, c1 = count - 1, c1 - step
    if count < 1:
        return None
    t = F(U64(c1))                                                  # 9
    final = min(max(floor(F(fft // 2) + (highest - t) / b), first), last)
    stop = (F(final) + F(0.5)) * b + (t - HALF_RATE)
    total = (count - 1) * (last - first + 1) - first + 1 + final    # 10
    if total > 0xFFFFFFF0:
        return None
    return (f"{fft} {spp} {ppb} {bits(b)} {bits(b * e)} {count} {first} {last} {final} {c0} {c1} {step} {total} "
            f"{bits(lowest)} {bits(stop)}")


def edge(lowest, rbw, name, steps, nudge):
    """An upper edge around the place where a further step begins."""
    words = sweep(lowest, F(lowest + F(5e8)), rbw, name, F(1e12)).split()
    fft, first, c0, step = int(words[0]), int(words[6]), int(words[9]), int(words[11])
    return F(c0 + steps * step + (first - fft / 2 + nudge) * float(RATE) / (fft + 1))


def sweeps():
    """what device lowest highest resolution window"""
    yield "example", "plain", 100e6, 400e6, 200e3, "nuttall"
    for name in WINDOWS:
        yield "window", "plain", 1e6, 30e6, 100e3, name
        yield "window", "wide", 20e6, 1e9, 250e3, name
        yield "window", "wide", 9e3, 1.9e10, 1e6, name
        yield "window", "wide", 18.2e9, 18.7e9, 1.5e6, name
    for device, top in TOPS.items():
        for rbw in (1e5, 3e5, 1e6, 1e7, 1e8, 1e9):
            yield "full", device, 9e3, top, rbw, "nuttall"
            yield "coarse", device, 1e9, 4e9, rbw, "flattop"
        for below in (1e6, 4e7, 48e6, 49e6, 49.2e6, 50e6, 98e6, 110e6, 147e6, 148e6, 500e6):
            yield "top", device, F(float(top) - below), top, 1e5, "nuttall"
            yield "top", device, F(float(top) - below), top, 9e5, "rectangular"
    for mantissa in (1, 1.5, 2, 3, 5, 7):
        for decade in range(5, 10):
            yield "resolution", "plain", 1e8, 5.5e9, mantissa * 10 ** decade, "nuttall"
            yield "resolution", "plain", 9e3, 2e9, mantissa * 10 ** decade, "hann"
    for rbw in (1e-3, 1.0, 30.0, 1e3, 1e4, 2.5e4):   # finer than a stream may ask for
        yield "fine", "plain", 433e6, 460e6, rbw, "hann"
        yield "fine", "plain", 433e6, 860e6, rbw, "flattop"
    for name in ("rectangular", "nuttall"):
        for lowest in (9e3, 1e6, 5e8, 5e9):
            yield "narrow", "plain", lowest, F(F(lowest) + F(1e5)), 1e5, name
            yield "narrow", "plain", lowest, up(F(F(lowest) + F(1e5))), 1e5, name
    for name, rbw in (("nuttall", 1e5), ("hann", 3e5), ("rectangular", 1e6), ("flattop", 5e6)):
        for lowest, steps in ((9e3, 1), (100e6, 2), (4e9, 1), (10.7e9, 3)):
            for nudge in (-30, -2, -1, -0.6, -0.3, 0, 0.3, 0.6, 1, 2, 30):
                yield "border", "wide", lowest, edge(F(lowest), F(rbw), name, steps, nudge), rbw, name
    yield "refused", "plain", 100e6, 100.01e6, 1e5, "nuttall"
    yield "refused", "plain", 200e6, 100e6, 1e5, "nuttall"
    rng = np.random.default_rng(20261123)
    for _ in range(250):
        device = rng.choice(list(TOPS))
        edges = sorted(10 ** rng.uniform(math.log10(9e3), math.log10(float(TOPS[device])), 2))
        yield "random", device, edges[0], edges[1], 10 ** rng.uniform(5, 8), rng.choice(WINDOWS)


def sweep_lines():
    """what device lowest highest resolution window : 'refused' or the plan; singles as their bits."""
    for what, device, lowest, highest, rbw, name in sweeps():
        values = F(lowest), F(highest), F(rbw)
        planned = sweep(*values, name, TOPS[device])
        head = f"{what} {bits(TOPS[device])} {bits(values[0])} {bits(values[1])} {bits(values[2])} {name}"
        yield f"{head} planned {planned}" if planned else f"{head} refused"


if __name__ == "__main__":
    (HERE / "quillon_iq_plans.txt").write_text("\n".join(capture_lines()) + "\n")
    (HERE / "quillon_sweep_plans.txt").write_text("\n".join(sweep_lines()) + "\n")
