#!/usr/bin/env python3
"""Holds the include graph to the order of the layers.

Each folder of qn/ uses only itself, its neighbours of one rank and those below. Inside a layer the graph of
files has no cycle. Only qn/platform/ includes headers of the system and of the libraries under it; tools and
examples include public headers alone.
"""
import pathlib
import re
import sys

RANKS = [['platform'], ['kernel', 'text', 'settings'], ['audio', 'dsp', 'image'], ['media'],
         ['controls', 'window']]
RANK = {folder: rank for rank, folders in enumerate(RANKS) for folder in folders}
SYSTEM = re.compile(r'<(unistd|fcntl|sys/|dlfcn|pthread|linux/|unicode/|sqlite3|cairo|pango|xcb|X11|'
                    r'xkbcommon|libav)')
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"][^>"]+)[>"]', re.M)

problems = []
graph = {}


def sources(*folders):
    for folder in folders:
        for path in sorted(pathlib.Path(folder).rglob('*')):
            if path.suffix in ('.h', '.cpp', '.inc'):
                yield path


for path in sources('qn'):
    folder = path.parts[1] if len(path.parts) > 2 else None
    includes = INCLUDE.findall(path.read_text())
    graph[str(path)] = [name[1:] for name in includes if name.startswith('"')]
    if folder is None:
        continue
    if folder not in RANK:
        problems.append(f'{path}: the folder {folder} has no layer')
        continue
    for name in includes:
        parts = name[1:].split('/')
        if name.startswith('"qn/') and parts[1] in RANK and RANK[parts[1]] > RANK[folder]:
            problems.append(f'{path}: includes the higher layer {parts[1]}')
        if folder != 'platform' and SYSTEM.match(name):
            problems.append(f'{path}: includes the system header {name[1:]}')

for path in sources('tools', 'examples'):
    for name in INCLUDE.findall(path.read_text()):
        if name.startswith('"qn/') and name.endswith('_internal.h'):
            problems.append(f'{path}: includes the internal header {name[1:]}')

state = {}


def visit(name, trail):
    if state.get(name) == 'done':
        return
    if state.get(name) == 'open':
        problems.append('a cycle: ' + ' -> '.join(trail[trail.index(name):] + [name]))
        return
    state[name] = 'open'
    for other in graph.get(name, []):
        visit(other, trail + [name])
    state[name] = 'done'


for start in list(graph):
    visit(start, [])

print('\n'.join(problems) or f'{len(graph)} files in order')
sys.exit(1 if problems else 0)
