#!/usr/bin/env python3
"""Compiles the message catalogues into multilingual records.

    compile_messages.py HEADER SOURCE TEMPLATE CATALOGUE...

The template names each message: msgctxt is its name in the code, msgid its English text. The catalogues follow
in the order of the language table. A message that a catalogue lacks, or has as fuzzy, falls back to English and
is counted on the output.
"""
import ast
import os
import re
import sys


def read_entries(path):
    """The entries of a catalogue: {msgctxt: (msgid, msgstr)}, in order, without header and obsolete ones."""
    entries = {}
    fields, fuzzy, keyword = {}, False, None

    def finish():
        if fields.get('msgid') and not fuzzy:
            name = fields.get('msgctxt')
            if not name or not re.fullmatch(r'[A-Z]\w*', name):
                sys.exit(f'{path}: the message {fields["msgid"]!r} has no name in msgctxt')
            if name in entries:
                sys.exit(f'{path}: the name {name} stands twice')
            entries[name] = (fields['msgid'], fields.get('msgstr', ''))

    for number, line in enumerate(open(path, encoding='utf-8'), 1):
        line = line.strip()
        match = re.fullmatch(r'(?:(msgctxt|msgid|msgstr)\s+)?(".*")', line)
        if match:
            if match.group(1) in ('msgctxt', 'msgid') and 'msgstr' in fields:
                finish()
                fields, fuzzy = {}, False
            keyword = match.group(1) or keyword
            fields[keyword] = fields.get(keyword, '') + ast.literal_eval(match.group(2))
        elif line.startswith('#') or not line:
            if 'msgstr' in fields:
                finish()
                fields, fuzzy, keyword = {}, False, None
            fuzzy = fuzzy or (line.startswith('#,') and 'fuzzy' in line)
        else:
            sys.exit(f'{path}:{number}: cannot read {line!r}')
    finish()
    return entries


def literal(text):
    """A UTF-16 string literal: other characters than ASCII stay, C's own are escaped."""
    escapes = {'\\': '\\\\', '"': '\\"', '\n': '\\n', '\r': '\\r', '\t': '\\t'}
    return 'u"' + ''.join(escapes.get(c, c) for c in text) + '"'


def write_if_changed(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    try:
        if open(path, encoding='utf-8').read() == text:
            os.utime(path)
            return
    except FileNotFoundError:
        pass
    with open(path, 'w', encoding='utf-8') as file:
        file.write(text)


header, source, template, *catalogues = sys.argv[1:]
messages = read_entries(template)
languages = [(os.path.basename(path), read_entries(path)) for path in catalogues]

declarations, records = [], []
missing = {name: 0 for name, _ in languages}
for name, (english, _) in messages.items():
    texts = [english]
    for language, entries in languages:
        entry = entries.get(name)
        if entry and entry[0] == english and entry[1]:
            texts.append(entry[1])
        else:
            missing[language] += 1
            texts.append(english)
    declarations.append(f'extern qnlang_t {name};  // {literal(english)[1:]}\n')
    lines = ',\n     '.join(literal(text) for text in texts)
    records.append(f'qnlang_t {name} = {{\n    QNLANG_MARKER, QNLANG_COUNT, {{}},\n    {{{lines}}}}};\n')

write_if_changed(header, '// The messages as records. Made from the catalogues; do not edit.\n#pragma once\n\n'
                 '#include "qn/text/qnlang.h"\n\nnamespace qn::messages {\n\n' + ''.join(declarations) +
                 '\n}  // namespace qn::messages\n')
write_if_changed(source, '// Made from the catalogues; do not edit.\n#include "qn/text/messages_internal.h"\n\n'
                 'namespace qn::messages {\n\n' + '\n'.join(records) + '\n}  // namespace qn::messages\n')
for language, count in missing.items():
    if count:
        print(f'{language}: {count} of {len(messages)} messages fall back to English')
