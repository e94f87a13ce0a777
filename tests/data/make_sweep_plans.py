#!/usr/bin/python3
"""Computes the expectations of sweep_plans.txt and window_bandwidths.txt in IEEE single precision (numpy float32),
step by step from the rules and without the library:  python3 make_sweep_plans.py  (writes beside itself)."""
import math
import pathlib

import numpy as np

F = np.float32
U64 = np.uint64
HERE = pathlib.Path(__file__).parent

NYQUIST, DIRECT = F(62500000), F(50000000)
IF, IF_LOW, IF_HIGH = F(35000000), F(17000000), F(53000000)
MODELS = {"C": F(2.7e10), "B": F(1.8e10), "A": F(8e9)}
WINDOWS = ["rectangular", "gaussian", "hann", "hamming", "cosine", "lanczos", "bartlett", "bartletthann", "nuttall",
           "blackmanharris", "blackmannuttall", "flattop"]
SUMS = {"nuttall": (0.355768, -0.487396, 0.144232, -0.012604, 0.0),
        "blackmanharris": (0.35875, -0.48829, 0.14128, -0.01168, 0.0),
        "blackmannuttall": (0.3635819, -0.4891775, 0.1365995, -0.0106411, 0.0),
        "flattop": (1.0, -1.93, 1.29, -0.388, 0.032)}


# Windows: double precision, returned as singles; the gaussian in single precision throughout.

def gaussian(i, n):
    h = F(n) * F(0.5)
    u = (F(i) - h) / h
    return F(math.exp(float(u * u / F(-0.2)))) / (np.sqrt(F(0.1)) * np.sqrt(F(2) * F(math.pi)))


def window(name, i, n):
    m = n - 1.0
    x = 2.0 * math.pi * i / m
    if name == "rectangular":
        return F(1)
    if name == "gaussian":
        return gaussian(i, n)
    if name == "hann":
        return F(0.5 * (1.0 - math.cos(x)))
    if name == "hamming":
        return F(0.54 - 0.46 * math.cos(x))
    if name == "cosine":
        return F(math.sin(math.pi * i / m))
    if name == "lanczos":
        u = 2.0 * i / m - 1.0
        return F(1.0 if u == 0.0 else math.sin(u) / u)
    if name == "bartlett":
        h = m / 2.0
        return F((h - abs(i - h)) / h)
    if name == "bartletthann":
        return F(0.62 - 0.48 * abs(i / m - 0.5) - 0.38 * math.cos(x))
    a = SUMS[name]
    return F(a[0] + a[1] * math.cos(x) + a[2] * math.cos(2.0 * x) + a[3] * math.cos(3.0 * x) + a[4] * math.cos(4.0 * x))


def noise_bandwidth(name, points=16385):
    total, squares = F(0), F(0)
    for i in range(points):
        w = window(name, i, points)
        total = total + w
        squares = squares + w * w
    return squares / (total * total) * F(points)


E = {name: noise_bandwidth(name) for name in WINDOWS}


# Single-precision ceil, floor and round, the last with halves away from zero.

def away(v):
    v = float(v)
    return F(math.copysign(math.floor(abs(v) + 0.5), v))


def tens(v):
    """A multiple of 10 Hz, as an unsigned whole number."""
    return int(away(F(v) / F(10))) * 10


def ceil(v):
    return int(np.ceil(F(v)))


def floor(v):
    return int(np.floor(F(v)))


def plan(lowest, highest, rbw, name, device):
    if F(rbw + lowest) > highest:
        return None
    e = E[name]
    x = rbw / e
    n = (int(away((x + NYQUIST) / x)) + 31) & ~31
    fft = 2
    while fft < 2 * n and fft < 1 << 31:
        fft *= 2
    spp, ppb = fft, 1
    if fft <= 256:
        fft = spp = 256
    elif fft > 65504:
        w = fft // 32
        ppb = ceil(F(w) / F(2047))
        spp = ceil(F(w) / F(ppb)) * 32
    p = {"fft": fft, "spp": spp, "ppb": ppb}
    b = NYQUIST / F(fft // 2 - 1)
    half = b * F(0.5)
    p["bin"], p["rbw"] = b, b * e

    p["dd"], p["dd0"], p["dd1"], p["ddstop"] = 0, 0, 0, F(0)
    start, stop, total, s = F(0), F(0), 0, lowest
    if lowest < DIRECT:
        first = ceil((lowest - half) / b)
        last = floor((min(highest, DIRECT) - half) / b)
        if last >= first:   # an empty range is no block
            p["dd"], p["dd0"], p["dd1"] = 1, first, last
            start = F(first) * b + half
            p["ddstop"] = stop = F(last) * b + half
            total = last - first + 1
            s = b + p["ddstop"]

    p["steps"], p["sh0"], p["sh1"], p["shfinal"], p["c0"], p["c1"], p["cstep"] = 0, 0, 0, 0, 0, 0, 0
    if highest > DIRECT:
        first, last = floor(IF_LOW / b), ceil(IF_HIGH / b)
        l = F(first) * b
        d = IF - l
        c0 = tens(d + s)
        o = F(U64(c0)) - IF
        f = o + l
        h = F(last) * b + o
        step = tens(F(b + h) + d) - c0
        count = ceil((highest - f) / (F(last - first + 1) * b))
        c1 = (count - 1) * step + c0
        while count > 0 and F(U64(c1)) > device:
            count, c1 = count - 1, c1 - step
        if count > 0:
            if start == F(0):
                start = f
            t = F(U64(c1)) - IF
            final = min(floor((highest - t) / b), last)
            final = max(final, first - 1)   # a last step that begins above the upper edge adds nothing
            stop = F(final) * b + t
            total += final + 1 + (last - first + 1) * (count - 1) - first
            p.update(steps=count, sh0=first, sh1=last, shfinal=final, c0=c0, c1=c1, cstep=step)
    if p["steps"] + p["dd"] == 0 or total <= 0 or total > 0xFFFFFFF0:   # nothing, or more than an array can hold
        return None
    p["total"], p["start"], p["stop"] = total, start, stop
    return p


def up(v):
    return np.nextafter(F(v), F(np.inf))


def down(v):
    return np.nextafter(F(v), F(0))


def border(lowest, rbw, name, steps, nudge):
    """An upper edge around the place where a further step begins."""
    p = plan(lowest, F(lowest + F(1e8)), rbw, name, MODELS["C"])
    return F(p["c0"] + steps * p["cstep"] - 35e6 + (p["sh0"] + nudge) * float(p["bin"]))


def cases():
    """(what, model, lowest, highest, rbw, window)"""
    yield "example", "C", 100e6, 200e6, 10e3, "nuttall"
    for name in WINDOWS:
        yield "window-direct", "A", 1e6, 30e6, 3e3, name
        yield "window-mixed", "B", 20e6, 1e9, 25e3, name
        yield "window-tuned", "C", 88e6, 108e6, 1e3, name
        yield "window-coarse", "C", 9e3, 2.7e10, 1e6, name
    for model, top in MODELS.items():
        for rbw in (1e2, 1e3, 3e4, 1e5, 1e6, 1e7):
            yield "full", model, 9e3, top, rbw, "nuttall"
        for below in (5e4, 1e6, 17.9e6, 18e6, 18.1e6, 19e6, 35e6, 36e6, 37e6, 54e6, 55e6, 72e6, 100e6, 500e6):
            yield "top", model, F(float(top) - below), top, 1e4, "nuttall"
            yield "top", model, F(float(top) - below), top, 1e5, "flattop"
    for decade in range(8):
        for mantissa in (1, 2, 5):
            rbw = min(mantissa * 10 ** decade, 10 ** 7)
            yield "rbw-direct", "A", 9e3, 50e6, rbw, "nuttall"
            yield "rbw-tuned", "A", 433e6, 460e6, rbw, "hann"
            yield "rbw-mixed", "A", 30e6, 130e6, rbw, "flattop"
    for rbw in (1.0, 10.0, 100.0, 1e3, 1e4, 1e5):
        yield "narrow", "C", 1e6, F(F(1e6) + F(rbw)), rbw, "rectangular"
        yield "narrow", "C", 20e6, F(F(20e6) + F(rbw)), rbw, "nuttall"
        yield "narrow", "C", 500e6, up(F(500e6) + F(rbw)), rbw, "nuttall"
        yield "narrow", "C", 5e9, up(F(5e9) + F(rbw)), rbw, "hann"
    for rbw in (30.0, 1e3, 1e4, 2e5, 3e6):
        for lowest in (down(50e6), 50e6, up(50e6), 49.9e6, 49.5e6):
            yield "joint", "B", lowest, 60e6, rbw, "nuttall"
        for highest in (down(50e6), 50e6, up(50e6), 50.1e6, 53e6):
            yield "joint", "B", 30e6, highest, rbw, "nuttall"
    yield "refused", "A", 100e6, 100.01e6, 2e4, "nuttall"
    yield "refused", "A", 9e3, 8e9, 1.0, "nuttall"
    yield "refused", "C", 9e3, 2.7e10, 5.0, "flattop"
    for name, rbw in (("nuttall", 1e4), ("hann", 300.0), ("rectangular", 1e5), ("flattop", 2e6), ("nuttall", 20.0)):
        for lowest, steps in ((100e6, 1), (100e6, 7), (4e9, 2), (10.7e9, 33)):
            for nudge in (-30, -2, -1, -0.6, -0.3, 0, 0.3, 1, 30):
                yield "border", "C", lowest, border(F(lowest), F(rbw), name, steps, nudge), rbw, name
    rng = np.random.default_rng(20261121)
    for _ in range(250):
        model = rng.choice(list(MODELS))
        edges = sorted(10 ** rng.uniform(math.log10(9e3), math.log10(float(MODELS[model])), 2))
        yield "random", model, edges[0], edges[1], 10 ** rng.uniform(0.5, 7), rng.choice(WINDOWS)


def bits(v):
    return f"{F(v).view(np.uint32):08x}"


def lines():
    """what device lowest highest rbw window : 'refused' or the plan; singles as their bits."""
    for what, model, lowest, highest, rbw, name in cases():
        lowest, highest, rbw, device = F(lowest), F(highest), F(rbw), MODELS[model]
        p = plan(lowest, highest, rbw, name, device)
        head = f"{what} {bits(device)} {bits(lowest)} {bits(highest)} {bits(rbw)} {name}"
        if p is None:
            yield f"{head} refused"
            continue
        yield (f"{head} planned {p['fft']} {p['spp']} {p['ppb']} {bits(p['bin'])} {bits(p['rbw'])} {p['dd']} {p['dd0']} "
               f"{p['dd1']} {bits(p['ddstop'])} {p['steps']} {p['sh0']} {p['sh1']} {p['shfinal']} {p['c0']} {p['c1']} "
               f"{p['cstep']} {p['total']} {bits(p['start'])} {bits(p['stop'])}")


if __name__ == "__main__":
    (HERE / "sweep_plans.txt").write_text("\n".join(lines()) + "\n")
    (HERE / "window_bandwidths.txt").write_text("".join(f"{name} {bits(E[name])}\n" for name in WINDOWS))
