#!/usr/bin/python3
"""Computes the expectations of iq_gain_runs.txt and iq_plans.txt in IEEE single precision (numpy float32),
straight from the rules and without the library:  python3 make_iq_plans.py  (writes beside itself)."""
import math
import pathlib

import numpy as np

F = np.float32
HERE = pathlib.Path(__file__).parent

NAMED = {"names": ["high"] * 7 + ["med", "low", "low"], "dB": [0] * 9 + [10]}
PLAIN = {"names": ["-"] * 10, "dB": [0] * 7 + [10, 20, 30]}
MODELS = [("ZV350-C", 2.7e10, 1, 2, NAMED), ("ZV350-B", 1.8e10, 1, 2, NAMED), ("ZV350-A", 8e9, 0, 1, PLAIN),
          ("ZV300-C", 2.7e10, 1, 2, NAMED), ("ZV300-B", 1.8e10, 1, 2, NAMED), ("ZV300-A", 8e9, 0, 1, PLAIN),
          ("ZV150-C", 2.7e10, 1, 2, NAMED), ("ZV150-B", 1.8e10, 1, 2, NAMED), ("ZV150-A", 8e9, 0, 1, PLAIN),
          ("ZV100-C", 2.7e10, 1, 2, NAMED), ("ZV100-B", 1.8e10, 1, 2, NAMED), ("ZV100-AP", 8e9, 0, 2, PLAIN),
          ("ZV100-A", 8e9, 0, 1, PLAIN)]
STAGES = {"high": "11", "med": "10", "low": "00", "-": "-"}


def half_away(x):
    return math.floor(float(x) + 0.5)


def gain_index(level):
    return min(math.floor((level + F(80)) / F(10)), 9)


def gain_runs():
    """model first last stages attenuator-scheme attenuation; first and last in tenths of a dB."""
    lines = []
    for name, _, gain, scheme, table in MODELS:
        runs = []
        for tenth in range(-800, 201):
            i = gain_index(F(tenth) / F(10))
            what = (STAGES[table["names"][i]] if gain else "-", scheme, table["dB"][i])
            if runs and runs[-1][2] == what:
                runs[-1][1] = tenth
            else:
                runs.append([tenth, tenth, what])
        lines += [f"{name} {a} {b} {w[0]} {w[1]} {w[2]}" for a, b, w in runs]
    return lines


def decimate(ifbw):
    needed = ifbw / F(0.85)
    d = 1024
    while d >= 4:
        if F(125e6) / F(d) >= needed:
            return d, F(125e6) / F(d)
        d //= 2
    return (1, F(125e6)) if F(125e6) > needed else (0, F(0))


def packets(wanted, decimation, limit):
    if decimation == 1:
        return 65280, -(-wanted // 65280)
    n = 1
    while True:
        size = -(-(-(-wanted // n)) // 32) * 32
        if size <= 65504:
            size = max(size, 256)
            if size * n <= limit:
                return size, n
        n += 1


def plan(centre, ifbw, seconds):
    """decimation rate spp ppb samples maxContiguous contiguous (floats as the bits of a float32)."""
    dd = centre <= F(50e6)
    d, rate = (1, F(125e6)) if dd else decimate(ifbw)
    if d == 0:
        return "refused"
    spp = 65280 if d == 1 else min(max(half_away(rate * F(0.1)) & ~31, 256), 65504)
    seconds = min(max(seconds, F(0)), F(120))
    samples, ppb, longest, contiguous = half_away(seconds * rate), 0, F(0), 0
    if samples:
        limit = 67108864 if d == 1 else 33554432
        longest = F(limit) / rate
        if seconds <= longest:
            contiguous = 1
            wanted = min(max(math.ceil(rate * seconds), 256), limit)
            while True:
                spp, ppb = packets(wanted, d, limit)
                if F(spp * ppb) / rate >= seconds:
                    break
                wanted += 1
            samples = spp * ppb
    bits = lambda x: f"{x.view(np.uint32):08x}"
    return f"{d} {bits(rate)} {spp} {ppb} {samples} {bits(longest)} {contiguous}"


def plans():
    """centre ifbw seconds (bits) : plan"""
    bits = lambda x: f"{x.view(np.uint32):08x}"
    centres = [F(9000), F(1e6), F(5e7), np.nextafter(F(5e7), F(1e9)), F(98.1e6), F(7.9e9)]
    widths = [F(100000), F(103759), F(103760), F(103800), F(200e3), F(1e6), F(3.3e6), F(6640625), F(6640626), F(1e7), F(13281250),
              F(13281251), F(26562496), F(26562500), F(26562502), F(26562504), F(4e7)]
    times = [F(0), F(1e-9), F(1e-7), F(1e-6), F(1e-5), F(2.048e-3), F(1e-3), F(0.01), F(0.1), F(0.25), F(0.5), F(0.536870912),
             F(0.5368710), F(0.6), F(1), F(1.073741824), F(1.0737419), F(2), F(5), F(10), F(33.3), F(60), F(120)]
    lines = []
    for c in centres:
        for w in widths:
            for t in times:
                lines.append(f"{bits(c)} {bits(w)} {bits(t)} {plan(c, w, t)}")
    rng = np.random.default_rng(20260101)
    for _ in range(500):
        c = F(rng.uniform(6e7, 7.9e9))
        w = F(10 ** rng.uniform(5, math.log10(4e7)))
        t = F(10 ** rng.uniform(-5, 2))
        lines.append(f"{bits(c)} {bits(w)} {bits(t)} {plan(c, w, t)}")
    return lines


if __name__ == "__main__":
    (HERE / "iq_gain_runs.txt").write_text("\n".join(gain_runs()) + "\n")
    (HERE / "iq_plans.txt").write_text("\n".join(plans()) + "\n")
