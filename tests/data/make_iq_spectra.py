#!/usr/bin/python3
"""Computes the expectations of iq_spectra.txt: the spectra that streams of IQ frames give, by numpy's transform in
double precision, their labels in IEEE single precision, step by step from the rules and without the library:
python3 make_iq_spectra.py  (writes beside itself)."""
import math
import pathlib

import numpy as np

from make_sweep_plans import E, WINDOWS, F, away, bits, window

HERE = pathlib.Path(__file__).parent
LARGEST = 0x80000000
LISTED = 600        # spectra of more bins are told by their mean alone


def nearest(v):
    return math.floor(v + 0.5)


class Samples:
    """Numbers that any language makes alike: a congruential generator and a tone at a quarter of the rate."""

    def __init__(self, seed, noise, tone):
        self.state, self.noise, self.tone, self.place = seed, F(noise), F(tone), 0

    def value(self):
        self.state = (self.state * 1664525 + 1013904223) % 2 ** 32
        return F(F((self.state >> 8) / 8388608.0 - 1.0) * self.noise)

    def take(self, count):
        out = np.empty(count, dtype=np.complex128)
        for i in range(count):
            re, im = self.value(), self.value()
            turn = self.place % 4
            self.place += 1
            if turn % 2 == 0:
                re = F(re + (self.tone if turn == 0 else -self.tone))
            else:
                im = F(im + (self.tone if turn == 1 else -self.tone))
            out[i] = complex(re, im)
        return out


class Shape:
    def __init__(self, centre=100e6, rate=1e6, bandwidth=800e3, ref=-30.0, units="sqrt-mw"):
        self.centre, self.rate, self.bandwidth, self.ref, self.units = F(centre), F(rate), F(bandwidth), F(ref), units


WEIGHTS = {}


def weights(name, size):
    if (name, size) not in WEIGHTS:
        values = [window(name, i, size + 1) for i in range(size + 1)]
        mean = F(0)
        for v in values:
            mean = mean + v
        mean = mean / F(size + 1)
        WEIGHTS[name, size] = np.array(values[:size], dtype=np.float64) / float(mean)
    return WEIGHTS[name, size]


class Processor:
    def __init__(self):
        self.rbw, self.name, self.follow, self.overlap = F(1000), "nuttall", False, F(0.5)
        self.applied = None
        self.reference = None
        self.out_sequence = self.next_sequence = self.next_time = self.last = 0
        self.fill = np.empty(0, dtype=np.complex128)

    def process(self, sequence, time, shape, samples):
        """The lines of the spectra that a frame gives."""
        if sequence != self.next_sequence:
            self.reference, self.next_time = shape, time
            self.out_sequence += 1
            self.fill = self.fill[:0]
        self.next_sequence = (sequence + 1) % 2 ** 32
        wanted = (self.rbw, self.name, self.follow)
        if (wanted != self.applied or self.reference is None or shape.centre != self.reference.centre
                or shape.rate != self.reference.rate or shape.bandwidth != self.reference.bandwidth
                or (self.follow and len(samples) != self.last)):
            yield from self.configure(wanted, shape, time, len(samples))
        self.last = len(samples)
        if self.size < 2:
            return
        while len(samples):
            part = min(self.size - len(self.fill), len(samples))
            self.fill = np.concatenate([self.fill, samples[:part]])
            samples = samples[part:]
            if self.applied[2]:
                samples, self.next_time = samples[:0], time
            if len(self.fill) == self.size:
                yield self.spectrum(sequence)

    def configure(self, wanted, shape, time, count):
        rbw, name, follow = wanted
        e = E[name]
        if follow:
            self.size = 1
            while self.size * 2 <= min(count, LARGEST):
                self.size *= 2
        else:
            c = int(away(shape.rate / rbw * e))
            self.size = 2
            while self.size < c and self.size < LARGEST:
                self.size *= 2
        v = away(F(self.size) * shape.bandwidth / shape.rate)
        self.bins = 2 * min(int(v * F(0.5)), self.size)
        b = shape.rate / F(self.size)
        half = F(self.bins) * F(0.5) * b
        self.correction = 10.0 * math.log10(float(e))
        self.fill = self.fill[:0]
        self.applied, self.reference, self.next_time, self.out_sequence = wanted, shape, time, 0
        units = "dBm" if shape.units == "sqrt-mw" else "dB"
        yield (f"C {self.size} {self.bins} {bits(b * e)} {bits(shape.centre - half)} {bits(shape.centre + half)} "
               f"{name} {units}")

    def spectrum(self, sequence):
        x = np.fft.fft(self.fill * weights(self.applied[1], self.size)) / self.size
        r = F(1) if self.applied[2] else F(1) - self.overlap
        hop = max(int(away(r * F(self.size))), 1)
        self.fill = self.fill[hop:]
        rate = float(self.reference.rate)
        half = self.bins // 2
        levels = 10 * np.log10(np.abs(np.concatenate([x[self.size - half:], x[:half]])) ** 2) - self.correction
        number = sequence if self.applied[2] else self.out_sequence
        if not self.applied[2]:
            self.out_sequence += 1
        line = (f"O {number} {self.next_time} {nearest((self.size - 1) / rate * 1e9)} {sequence} "
                f"{bits(self.reference.ref)} {np.mean(levels) if len(levels) else 0:.4f}")
        self.next_time += nearest(hop * rate)
        # A few of the spectra are told bin by bin.
        listed = len(levels) <= LISTED and (number % 23 == 0 or number == 1)
        return line + (" |" + "".join(f" {v:.3f}" for v in levels) if listed else "")


class Case:
    def __init__(self, name, noise=2 ** -8, tone=2 ** -6, seed=1, first=0):
        self.lines = [f"case {name} {seed} {bits(F(noise))} {bits(F(tone))}"]
        self.samples, self.processor = Samples(seed, noise, tone), Processor()
        self.sequence, self.time, self.shape = first, 1_000_000_007, Shape()

    def set(self, **wanted):
        p = self.processor
        p.rbw, p.overlap = F(wanted.get("rbw", p.rbw)), F(wanted.get("overlap", p.overlap))
        p.name, p.follow = wanted.get("name", p.name), wanted.get("follow", p.follow)
        self.lines.append(f"P {bits(p.rbw)} {bits(p.overlap)} {p.name} {int(p.follow)}")
        return self

    def tune(self, **changed):
        self.shape = Shape(**changed)
        return self

    def gap(self, frames=1):
        self.sequence = (self.sequence + frames) % 2 ** 32
        return self

    def frames(self, *counts):
        s = self.shape
        for count in counts:
            self.lines.append(f"F {self.sequence} {self.time} {count} {bits(s.centre)} {bits(s.rate)} "
                              f"{bits(s.bandwidth)} {bits(s.ref)} {s.units}")
            self.lines += self.processor.process(self.sequence, self.time, s, self.samples.take(count))
            self.sequence = (self.sequence + 1) % 2 ** 32
            self.time += nearest(count / float(s.rate) * 1e9)
        return self


OVERLAPS = (0.5, 0.0, 0.8, 0.25, 0.1, 0.75)


def cases():
    for i, name in enumerate(WINDOWS):
        yield (Case(f"window-{name}", seed=i + 1).set(rbw=8000, overlap=OVERLAPS[i % 6], name=name)
               .frames(7, 1, 1000, 1, 7, 1000))
        yield Case(f"follow-{name}", seed=i + 100).set(name=name, follow=True).frames(1000, 7, 1, 300, 300, 4099, 2, 64)
    for i, overlap in enumerate(OVERLAPS):
        yield Case(f"overlap-{overlap}", seed=i + 200).set(rbw=4000, overlap=overlap).frames(1, 7, 1000, 4099, 1000)
    yield (Case("gaps").set(rbw=8000).frames(1000, 200).gap().frames(300, 7).gap(5).frames(1, 1000).gap(2 ** 31)
           .frames(999))
    yield Case("sequence-wraps", first=2 ** 32 - 2).set(rbw=8000).frames(300, 300, 300, 300)
    yield Case("follow-gaps").set(follow=True).frames(128, 128).gap(3).frames(128, 100).gap().frames(100, 0, 100)
    yield (Case("tuned-anew").set(rbw=8000).frames(700).tune(centre=2.4e9).frames(700).tune(centre=2.4e9, rate=2e6)
           .frames(1500).tune(centre=2.4e9, rate=2e6, bandwidth=123456, ref=-10).frames(1500)
           .tune(centre=2.4e9, rate=2e6, bandwidth=123456, ref=7).frames(600))
    yield (Case("tuned-anew-at-a-gap").set(rbw=8000).frames(700).gap().tune(centre=5e8, rate=3e6, bandwidth=2e6, ref=3)
           .frames(700, 100, 100).tune().frames(700))
    yield (Case("set-anew").set(rbw=8000).frames(400).set(rbw=4000).frames(900).set(overlap=0.0).frames(900)
           .set(name="flattop").frames(1100).set(follow=True).frames(256).set(rbw=20000).frames(256)
           .set(follow=False).frames(400))
    yield Case("whole-band").tune(bandwidth=1e6).set(rbw=8000, overlap=0.0).frames(1000)
    yield Case("beyond-the-band").tune(bandwidth=3e6).set(rbw=8000, overlap=0.0).frames(1000)
    yield Case("odd-band").tune(bandwidth=333333).set(rbw=8000, overlap=0.0).frames(1000)
    yield Case("no-band").tune(bandwidth=100).set(rbw=8000, overlap=0.0).frames(600)
    yield Case("other-units").tune(units="volts").set(rbw=8000).frames(600)
    yield Case("shortest").tune(rate=40e3, bandwidth=40e3).set(rbw=100000, overlap=0.8).frames(7, 1, 33)
    yield Case("four").tune(rate=170e3, bandwidth=170e3).set(rbw=100000, overlap=0.8).frames(7, 1, 33)
    yield Case("odd-rate").tune(centre=77.5e3, rate=1.8e6 / 38, bandwidth=40e3).set(rbw=200).frames(1000, 1000)
    yield Case("faint", noise=2 ** -17, tone=2 ** -16).set(rbw=8000, overlap=0.0).frames(2000)
    yield Case("loud", noise=2 ** 3, tone=2 ** 7).set(rbw=8000, overlap=0.0).frames(2000)
    yield Case("long").set(rbw=100, overlap=0.5).frames(4099, 1, 30000, 7, 15000, 17000)


if __name__ == "__main__":
    (HERE / "iq_spectra.txt").write_text("\n".join(line for case in cases() for line in case.lines) + "\n")
