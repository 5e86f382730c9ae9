#!/usr/bin/env python3
"""Measures `qnwave convert --rate` with tones, draws what it makes of a sweep, and puts both into
docs/resampling.md and docs/images.

    resampling_report.py QNWAVE
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
import typing

ROOT = pathlib.Path(__file__).resolve().parent.parent
if len(sys.argv) != 2:
    sys.exit(__doc__)
QNWAVE = str(pathlib.Path(sys.argv[1]).resolve())
QUALITIES = ('sinc', 'cubic', 'filtered', 'linear')


class Pair(typing.NamedTuple):
    """Two rates and the tones that are measured: clean ones, ones near the end of the band, and ones that the new
    rate has not, or that leave an image."""
    before: int
    after: int
    clean: tuple
    passed: tuple
    wrong: tuple


PAIRS = (Pair(48000, 44100, (1000, 15000), (19000, 20000, 20500, 21000), (22060, 22500, 23000)),
         Pair(44100, 48000, (1000, 15000), (19000, 20000, 20500, 21000), (20500, 21100)),
         Pair(96000, 44100, (1000, 15000), (19000, 20000, 20500, 21000), (23000, 25000, 30000)),
         Pair(48000, 8000, (1000,), (3000, 3500, 3700), (4100, 4500, 6000)))
DRAWN = ((48000, 44100), (44100, 48000))
MOST_PICTURE_BYTES = 60_000


def run(*command):
    subprocess.run([str(word) for word in command], check=True, stdout=subprocess.DEVNULL)


def read_doubles(path):
    data = pathlib.Path(path).read_bytes()
    start = 12
    while data[start:start + 4] != b'data':
        start += 8 + (struct.unpack_from('<I', data, start + 4)[0] + 1) // 2 * 2
    size = struct.unpack_from('<I', data, start + 4)[0]
    # A program that writes to the end of a file may leave the size open.
    return array.array('d', data[start + 8:start + 8 + min(size, len(data) - start - 8) // 8 * 8])


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


def measure(convert, scratch, pair):
    """What a converter makes of the tones of a pair of rates, in dB."""
    def tone(frequency):
        source, target = scratch / 'tone.wav', scratch / 'out.wav'
        run(QNWAVE, 'tone', source, '--force', '--quiet', '--type', 'f64', '--level', -6, '--rate', pair.before,
            '--frequency', frequency)
        convert(source, target, pair.after)
        samples = read_doubles(target)
        return samples[len(samples) // 4:len(samples) * 3 // 4]

    full = 10 ** (-6 / 20)
    for frequency in pair.clean:
        amplitude, rest, _ = fit(tone(frequency), frequency, pair.after)
        yield decibels(amplitude / math.sqrt(2) / rest)
    for frequency in pair.passed:
        yield decibels(fit(tone(frequency), frequency, pair.after)[0] / full)
    for frequency in pair.wrong:
        if pair.before > pair.after:  # above half the new rate: all that is left of it is wrong
            yield decibels(fit(tone(frequency), 1000, pair.after)[2] * math.sqrt(2) / full)
        else:  # what it leaves on the other side of half the old rate
            yield decibels(fit(tone(frequency), pair.before - frequency, pair.after)[0] / full)


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
    for pair in PAIRS:
        wrong = 'alias' if pair.before > pair.after else 'image'
        kinds = [('SNR', pair.clean), ('gain', pair.passed), (wrong, pair.wrong)]
        columns = [f'{kind} {frequency / 1000:g} kHz' for kind, tones in kinds for frequency in tones]
        yield f'| {pair.before} to {pair.after} | ' + ' | '.join(columns) + ' |'
        yield '|---|' + '---|' * len(columns)
        for name, convert in converters():
            yield f'| {name} | ' + ' | '.join(
                f'{figure:.1f}' for figure in measure(convert, scratch, pair)) + ' |'
        yield ''


def draw(scratch):
    images = ROOT / 'docs/images'
    for before, after in DRAWN:
        sweep = scratch / 'sweep.wav'
        run(QNWAVE, 'tone', sweep, '--force', '--quiet', '--type', 'f32', '--rate', before, '--duration', '6.0',
            '--sweep', f'20,{before // 2 - 20}')
        for quality in QUALITIES:
            target = scratch / f'{before}-{after}-{quality}.wav'
            picture = images / f'sweep-{before}-{after}-{quality}.png'
            run(QNWAVE, 'convert', sweep, target, '--force', '--quiet', '--rate', after, '--quality', quality)
            run(QNWAVE, 'spectrum', target, picture, '--force', '--quiet', '--size', '400x210', '--range', 100,
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
