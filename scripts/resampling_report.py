#!/usr/bin/env python3
"""Measures `qnwave convert --rate` with tones, draws what it makes of a sweep, and puts both into
docs/resampling.md and docs/images.

    resampling_report.py [QNWAVE]      default: build/bench/tools/qnwave
"""
import array
import cmath
import math
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
QNWAVE = str(pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / 'build/bench/tools/qnwave').resolve())
QUALITIES = ('sinc', 'cubic', 'filtered', 'linear')
DIRECTIONS = ((48000, 44100), (44100, 48000))
MOST_PICTURE_BYTES = 60_000


def run(*command):
    subprocess.run([str(word) for word in command], check=True, stdout=subprocess.DEVNULL)


def read_doubles(path):
    data = pathlib.Path(path).read_bytes()
    start = data.index(b'data')
    size = struct.unpack_from('<I', data, start + 4)[0]
    # A program that writes to the end of a file may leave the size open.
    return array.array('d', data[start + 8:start + 8 + size // 8 * 8])


def fit(samples, frequency, rate):
    """The amplitude of the sine of a frequency that comes nearest to the samples, and the RMS of the rest."""
    turn = cmath.exp(-2j * math.pi * frequency / rate)
    phasor, cc, ss, cs, yc, ys, squares = 1, 0, 0, 0, 0, 0, 0
    for index, value in enumerate(samples):
        c, s = phasor.real, -phasor.imag
        cc, ss, cs = cc + c * c, ss + s * s, cs + c * s
        yc, ys, squares = yc + value * c, ys + value * s, squares + value * value
        phasor *= turn
        if index % 1024 == 0:
            phasor /= abs(phasor)
    determinant = cc * ss - cs * cs
    a, b = (yc * ss - ys * cs) / determinant, (ys * cc - yc * cs) / determinant
    rest = 0
    phasor = 1
    for value in samples:
        error = value - a * phasor.real + b * phasor.imag
        rest += error * error
        phasor *= turn
    return math.hypot(a, b), math.sqrt(rest / len(samples)), math.sqrt(squares / len(samples))


def decibels(value):
    return 20 * math.log10(max(value, 1e-10))


def measure(convert, scratch, before, after):
    """SNR at 1 and 15 kHz, gain at 20 kHz, and what appears where nothing should be, all in dB."""
    def tone(frequency):
        source, target = scratch / 'tone.wav', scratch / 'out.wav'
        run(QNWAVE, 'tone', source, '--force', '--quiet', '--type', 'f64', '--level', -6, '--rate', before,
            '--frequency', frequency)
        convert(source, target, after)
        samples = read_doubles(target)
        return samples[len(samples) // 4:len(samples) * 3 // 4]

    full = 10 ** (-6 / 20)
    figures = []
    for frequency in (1000, 15000):
        amplitude, rest, _ = fit(tone(frequency), frequency, after)
        figures.append(decibels(amplitude / math.sqrt(2) / rest))
    figures.append(decibels(fit(tone(20000), 20000, after)[0] / full))
    if before > after:  # 23 kHz is above half the new rate: all that is left of it is wrong
        figures.append(decibels(fit(tone(23000), 1000, after)[2] * math.sqrt(2) / full))
    else:  # what 21.1 kHz leaves at 23 kHz, on the other side of half the old rate
        figures.append(decibels(fit(tone(before - 23000), 23000, after)[0] / full))
    return figures


def converters():
    for quality in QUALITIES:
        yield f'`{quality}`', lambda source, target, rate, quality=quality: run(
            QNWAVE, 'convert', source, target, '--force', '--quiet', '--rate', rate, '--quality', quality)
    if shutil.which('ffmpeg'):
        yield 'ffmpeg `-ar`', lambda source, target, rate: run(
            'ffmpeg', '-v', 'error', '-nostdin', '-y', '-i', source, '-ar', rate, '-c:a', 'pcm_f64le', target)
    if shutil.which('sox'):
        yield 'sox `-r`', lambda source, target, rate: run(
            'sox', '-G', '-D', source, '-e', 'float', '-b', '64', '-r', rate, target)


def tables(scratch):
    for before, after in DIRECTIONS:
        alias = 'alias of 23 kHz' if before > after else 'image at 23 kHz'
        yield f'| {before} to {after} | SNR at 1 kHz | SNR at 15 kHz | gain at 20 kHz | {alias} |'
        yield '|---|---|---|---|---|'
        for name, convert in converters():
            yield f'| {name} | ' + ' | '.join(
                f'{figure:.1f} dB' for figure in measure(convert, scratch, before, after)) + ' |'
        yield ''


def draw(scratch):
    images = ROOT / 'docs/images'
    for before, after in DIRECTIONS:
        sweep = scratch / 'sweep.wav'
        run(QNWAVE, 'tone', sweep, '--force', '--quiet', '--type', 'f32', '--rate', before, '--duration', '6.0',
            '--sweep', f'20,{before // 2 - 20}')
        for quality in QUALITIES:
            target = scratch / f'{quality}.wav'
            picture = images / f'sweep-{before}-{after}-{quality}.png'
            run(QNWAVE, 'convert', sweep, target, '--force', '--quiet', '--rate', after, '--quality', quality)
            run(QNWAVE, 'spectrum', target, picture, '--force', '--quiet', '--size', '380x220', '--range', 100,
                '--window', 'blackman', '--colours', 'grey')
            if picture.stat().st_size > MOST_PICTURE_BYTES:
                sys.exit(f'{picture} has {picture.stat().st_size} bytes')


def main():
    with tempfile.TemporaryDirectory() as folder:
        scratch = pathlib.Path(folder)
        figures = '\n'.join(tables(scratch))
        draw(scratch)
    page = ROOT / 'docs/resampling.md'
    text, count = re.subn(r'(<!-- figures -->\n).*(<!-- end of figures -->)',
                          lambda match: match[1] + figures + match[2], page.read_text(), flags=re.S)
    if count != 1:
        sys.exit(f'{page} has no place for figures')
    page.write_text(text)
    print(figures)


main()
