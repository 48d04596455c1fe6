#!/usr/bin/env python3
"""offline.py BUILD OUT SECONDS ROUNDS: a gain of half on a WAV file, by zelk and by its peers in turns.

Writes OUT/offline.json: per contestant a list of [processor seconds, wall seconds], whole processes.
"""
import array
import json
import math
import os
import shutil
import struct
import subprocess
import sys
import time

build, out, seconds, rounds = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
RATE, CHANNELS = 48000, 2
out = os.path.abspath(out)
source = os.path.join(out, "in.wav")


def generate():
    """A sweep, different on both channels, one second's pattern at a time."""
    size = seconds * RATE * CHANNELS * 2
    with open(source, "wb") as wav:
        wav.write(b"RIFF" + struct.pack("<I", 36 + size) + b"WAVEfmt " +
                  struct.pack("<IHHIIHH", 16, 1, CHANNELS, RATE, RATE * CHANNELS * 2, CHANNELS * 2, 16) +
                  b"data" + struct.pack("<I", size))
        for second in range(seconds):
            step = 2 * math.pi * (100 + second) / RATE
            if second % 20 == 0:
                block = array.array("h")
                for i in range(RATE):
                    block.append(round(20000 * math.sin(step * i)))
                    block.append(round(12000 * math.cos(step * i)))
            wav.write(block.tobytes())


def contestants():
    result = os.path.join(out, "out.wav")
    script = os.path.join(out, "offline.vosh")
    with open(script, "w") as file:
        file.write(f"""newroute RouteA
newblock RouteA filesrc.so true false {source}
newblock RouteA gain.so false false -6.0206
newblock RouteA filesink.so false true {result}
newlink RouteA {RATE} S16_LE {CHANNELS} 4096 filesrc_0 0 gain_0 0
newlink RouteA {RATE} S16_LE {CHANNELS} 4096 gain_0 0 filesink_0 0
start RouteA
""")
    yield "zelk-host", [os.path.join(build, "bin", "zelk-host"), "-u", "-q", script], result
    if shutil.which("gst-launch-1.0"):
        yield "gst-launch", [
            "gst-launch-1.0", "-q", "filesrc", f"location={source}", "!", "wavparse", "!", "volume",
            "volume=0.5", "!", "wavenc", "!", "filesink", f"location={result}"], result
    if shutil.which("sox"):
        yield "sox", ["sox", "-D", source, result, "vol", "0.5"], result
    if shutil.which("ffmpeg"):
        yield "ffmpeg", ["ffmpeg", "-v", "error", "-y", "-i", source, "-af", "volume=0.5", result], result


def run(command):
    begin = time.monotonic()
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    wall = time.monotonic() - begin
    if status != 0:
        sys.exit(f"offline.py: {command[0]} failed")
    return usage.ru_utime + usage.ru_stime, wall


def pcm(path):
    data = open(path, "rb").read()
    at = data.index(b"data") + 8
    return data[20:36], array.array("h", data[at:at + seconds * RATE * CHANNELS * 2])


generate()
figures = {}
expected = None
for _ in range(rounds):
    for name, command, result in contestants():
        if os.path.exists(result):
            os.remove(result)
        figures.setdefault(name, []).append(run(command))
        if len(figures[name]) == 1:
            found = pcm(result)
            if expected is None:
                expected = found
            # Every contestant must have done the same work: the format and, within a step, the samples.
            step = max(abs(a - b) for a, b in zip(expected[1][::13], found[1][::13]))
            if found[0] != expected[0] or len(found[1]) != len(expected[1]) or step > 1:
                sys.exit(f"offline.py: {name} wrote another format or other samples (by {step} steps)")
for name in ("in.wav", "out.wav"):
    os.remove(os.path.join(out, name))
with open(os.path.join(out, "offline.json"), "w") as file:
    json.dump(figures, file)
