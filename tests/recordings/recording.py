#!/usr/bin/python3
"""Reads and writes recordings, knowing nothing but their format.

  recording.py read STEM                 checks the pair and prints its frames
  recording.py write FOLDER SEED COUNT   makes pairs p0, p1..., and beside each, in pN.txt, what playing it must give

One line for the stream, one for each frame:
  IQ CENTRE BANDWIDTH RATE               SEQUENCE GAP NANOSECONDS COUNT SAMPLES
  Spectrum LOWER UPPER RBW               SEQUENCE NANOSECONDS DURATION COUNT POINTS
Frequencies are the eight hexadecimal digits of a 32-bit float, samples and points the bytes of the file.
"""
import json
import math
import random
import struct
import sys

import numpy as np

IQ_MARKER, SPECTRUM_MARKER = 0x12F7A2E6, 0x59EC7422
TICKS = {"s": 1.0, "ms": 0.001, "us": 1e-6, "ns": 1e-9, "ps": 1e-12}
ENCODINGS = {"IQ": "Complex<_float32> LE", "Spectrum": "_float32 LE"}
SUMMARY_KEYS = {"IQ": {"StartTimestamp", "EndTimestamp", "Encoding", "TimeResolution", "Samples"},
                "Spectrum": {"StartTimestamp", "EndTimestamp", "Encoding", "TimeResolution", "PointsPerFrame", "Frames"}}
SAMPLING_KEYS = {"IQ": {"FCentreHz", "BandwidthHz", "RefdBm", "units", "SampleRateHz"},
                 "Spectrum": {"FCentreHz", "BandwidthHz", "RefdBm", "units", "RBWHz", "WindowFn"}}


class Literal(str):
    """A number as it is written."""


def need(condition, what):
    if not condition:
        sys.exit("recording.py: " + what)


# The text side.

def parse(text):
    return json.loads(text, parse_float=Literal, parse_int=Literal)


def emit(record, indent=""):
    """The written form: CR LF, a tab for each level, keys in byte order."""
    lines = []
    for key in sorted(record, key=lambda k: k.encode()):
        value = record[key]
        if isinstance(value, dict):
            value = emit(value, indent + "\t")
        elif not isinstance(value, Literal):
            value = '"%s"' % value
        lines.append('\r\n%s\t"%s":%s' % (indent, key, value))
    return "{" + ",".join(lines) + "\r\n" + indent + "}"


# The data side.

def fields(data, at, form):
    size = struct.calcsize("<" + form)
    need(at + size <= len(data), "the data end inside the fields of a frame")
    return struct.unpack_from("<" + form, data, at), at + size


def read_frames(data, kind):
    frames, at = [], 0
    while at < len(data):
        (marker,), at = fields(data, at, "I")
        if kind == "IQ":
            need(marker == IQ_MARKER, "no marker of IQ at %d" % at)
            (time, sequence, count), at = fields(data, at, "QII")
            duration, size = 0, 8 * count
        else:
            need(marker == SPECTRUM_MARKER, "no marker of a spectrum at %d" % at)
            (time, duration, sequence, count), at = fields(data, at, "QQII")
            size = 4 * count
        need(at + size <= len(data), "a frame is cut short")
        frames.append((sequence, time, duration, count, data[at:at + size]))
        at += size
    return frames


def bits(value):
    return struct.pack(">f", value).hex()


def nanoseconds(time, resolution):
    if resolution == "ns":
        return time
    ratio = np.float64(np.float32(TICKS[resolution])) / np.float64(np.float32(TICKS["ns"]))
    return int(math.floor(float(ratio * np.float64(time)) + 0.5))


def edges(centre, bandwidth):
    half = np.float32(bandwidth) * np.float32(0.5)
    return np.float32(centre) - half, np.float32(centre) + half


def gaps(frames):
    expected = None
    for frame in frames:
        yield int(expected is not None and frame[0] != expected)
        expected = 0 if frame[0] >= 0xFFFFFFFE else frame[0] + 1


def lines_of(kind, head, frames, resolution):
    lines = [" ".join([kind] + [bits(value) for value in head])]
    for (sequence, time, duration, count, payload), gap in zip(frames, gaps(frames)):
        numbers = [sequence, gap, nanoseconds(time, resolution), count]
        if kind == "Spectrum":
            numbers = [sequence, nanoseconds(time, resolution), nanoseconds(duration, resolution), count]
        lines.append(" ".join(map(str, numbers)) + " " + payload.hex())
    return lines


# Reading.

def check_summary(kind, summary, frames, rate):
    need(set(summary) == SUMMARY_KEYS[kind], "keys of the summary: %s" % sorted(summary))
    need(summary["Encoding"] == ENCODINGS[kind], "encoding")
    need(summary["TimeResolution"] == "ns", "resolution")
    need(int(summary["StartTimestamp"]) == frames[0][1], "start")
    _, time, duration, count, _ = frames[-1]
    if kind == "IQ":
        duration = int(math.floor(count / np.float64(rate) / np.float64(np.float32(1e-9)) + 0.5))
        need(int(summary["Samples"]) == sum(frame[3] for frame in frames), "total of samples")
    else:
        need(int(summary["Frames"]) == len(frames), "total of frames")
        need(int(summary["PointsPerFrame"]) == count, "points of the last frame")
    need(int(summary["EndTimestamp"]) == time + duration, "end")


def read(stem):
    with open(stem + ".json", "rb") as file:
        text = file.read().decode()
    with open(stem + ".data", "rb") as file:
        data = file.read()
    description = parse(text)
    need(emit(description) == text, "the text is not in its written form")
    kind = description["DataType"]
    need(set(description) - {"source"} == {"DataType", "Sampling", kind}, "keys at the top: %s" % sorted(description))
    frames = read_frames(data, kind)
    sampling = description["Sampling"]
    need(set(sampling) - {"PhaseRotation"} == SAMPLING_KEYS[kind], "keys of the sampling: %s" % sorted(sampling))
    number = {key: np.float32(value) for key, value in sampling.items() if isinstance(value, Literal)}
    check_summary(kind, description[kind], frames, number.get("SampleRateHz"))
    if kind == "IQ":
        head = [number["FCentreHz"], number["BandwidthHz"], number["SampleRateHz"]]
    else:
        head = [*edges(number["FCentreHz"], number["BandwidthHz"]), number["RBWHz"]]
    print("\n".join(lines_of(kind, head, frames, "ns")))


# Writing.

def number_text(value, rng):
    """A 32-bit float in one of the forms that a person or a program might write."""
    value = float(value)
    forms = ["%.6f" % value, repr(value), "%.9e" % value]
    if value == int(value) and abs(value) < 2 ** 31:
        forms.append("%d" % value)
    return Literal(rng.choice(forms))


def loose(record, rng, compact):
    """Any order of keys, with or without line ends and quotes."""
    keys = list(record)
    rng.shuffle(keys)
    gap = "" if compact else rng.choice(["\n", "\r\n\t", " "])
    parts = []
    for key in keys:
        value = record[key]
        if isinstance(value, dict):
            value = loose(value, rng, compact)
        elif not isinstance(value, Literal):
            value = '"%s"' % value
        parts.append("%s%s:%s" % (gap, rng.choice(['"%s"' % key, key]), value))
    return "{" + ",".join(parts) + gap + "}"


def random_frames(kind, rng):
    generator = np.random.default_rng(rng.getrandbits(32))
    width = 8 if kind == "IQ" else 4
    time, sequence = rng.randrange(1 << 50, 1 << 51), rng.choice([0, 1, 5, 0xFFFFFFFA, rng.getrandbits(32)])
    frames = []
    for _ in range(rng.randint(1, 12)):
        count = rng.choice([1, 2, 31, 32, 33, 1024, rng.randint(1, 4000)])
        # Any bits at all, those of no number among them.
        payload = generator.bytes(count * width)
        frames.append((sequence, time, rng.getrandbits(rng.choice([1, 20, 40])), count, payload))
        # Times that go back are never waited for.
        time -= rng.randrange(0, 1000)
        sequence = (sequence + rng.choice([1, 1, 1, 1, 0, 2, 1000])) & 0xFFFFFFFF
    return frames


def frame_bytes(kind, frame):
    sequence, time, duration, count, payload = frame
    if kind == "IQ":
        return struct.pack("<IQII", IQ_MARKER, time, sequence, count) + payload
    return struct.pack("<IQQII", SPECTRUM_MARKER, time, duration, sequence, count) + payload


def random_pair(stem, kind, rng):
    frames = random_frames(kind, rng)
    resolution = rng.choice(["us", "ns", "ps"])
    centre, bandwidth = np.float32(rng.uniform(1e6, 27e9)), np.float32(rng.uniform(1e3, 100e6))
    other = np.float32(rng.uniform(1, 1e6))
    sampling = {"FCentreHz": number_text(centre, rng), "BandwidthHz": number_text(bandwidth, rng), "units": "dBm",
                "RefdBm": Literal("-30.000000"), "Remark": "made by hand, with a comma: and a colon"}
    summary = {"TimeResolution": resolution, "Encoding": ENCODINGS[kind], "StartTimestamp": Literal(1 << 62),
               "EndTimestamp": Literal((1 << 64) - 1)}
    if kind == "IQ":
        sampling["SampleRateHz"] = number_text(other, rng)
        summary["Samples"] = Literal(sum(frame[3] for frame in frames))
        head = [centre, bandwidth, other]
    else:
        sampling["RBWHz"], sampling["WindowFn"] = number_text(other, rng), "hann"
        summary["Frames"], summary["PointsPerFrame"] = Literal(len(frames)), Literal(frames[-1][3])
        # A frame is made from its edges, and its record gives them back from its centre and bandwidth.
        lower, upper = edges(centre, bandwidth)
        head = [*edges((lower + upper) * np.float32(0.5), upper - lower), other]
    description = {"DataType": kind, "Sampling": sampling, kind: summary}
    text = emit(description) if rng.random() < 0.5 else loose(description, rng, rng.random() < 0.5)
    with open(stem + ".json", "wb") as file:
        file.write(text.encode())
    with open(stem + ".data", "wb") as file:
        file.write(b"".join(frame_bytes(kind, frame) for frame in frames))
    with open(stem + ".txt", "w") as file:
        file.write("\n".join(lines_of(kind, head, frames, resolution)) + "\n")


def write(folder, seed, count):
    rng = random.Random(seed)
    for i in range(count):
        random_pair("%s/p%d" % (folder, i), ["IQ", "Spectrum"][i % 2], rng)


if sys.argv[1:2] == ["read"] and len(sys.argv) == 3:
    read(sys.argv[2])
elif sys.argv[1:2] == ["write"] and len(sys.argv) == 5:
    write(sys.argv[2], int(sys.argv[3]), int(sys.argv[4]))
else:
    sys.exit(__doc__)
