#!/usr/bin/env python3
"""Compiles the message catalogues into multilingual records.

    compile_messages.py [--namespace NAME] [--include PATH] HEADER SOURCE TEMPLATE CATALOGUE...

NAME is the namespace of the records, PATH the name by which the source includes the header. The template names each message: msgctxt is its name in the code, msgid its English text. The catalogues follow
in the order of the language table. A message that a catalogue lacks, has as fuzzy or has for another English text
falls back to English and is counted on the output.
"""
import argparse
import os
import re
import sys

ESCAPES = {'a': '\a', 'b': '\b', 'f': '\f', 'n': '\n', 'r': '\r', 't': '\t', 'v': '\v', '\\': '\\', '"': '"'}


class Catalogue:
    """The messages of a catalogue file by name, in order: entries[msgctxt] is (msgid, msgstr).

    The header, messages marked as fuzzy and obsolete ones are left out.
    """

    def __init__(self, path):
        self.path = path
        self.entries = {}
        self.fields, self.fuzzy, self.keyword = {}, False, None
        try:
            with open(path, encoding='utf-8') as file:
                for self.line, text in enumerate(file, 1):
                    self.read(text.strip())
        except (OSError, UnicodeDecodeError) as error:
            sys.exit(f'{path}: {error}')
        self.finish()

    def fail(self, reason):
        sys.exit(f'{self.path}:{self.line}: {reason}')

    def read(self, text):
        match = re.fullmatch(r'(?:(msgctxt|msgid|msgstr)\s*)?"((?:[^"\\]|\\.)*)"', text)
        if match:
            self.add(match.group(1), match.group(2))
        elif text.startswith('#') or not text:
            # A comment behind a translation belongs to the next message.
            if 'msgstr' in self.fields:
                self.finish()
            self.fuzzy |= text.startswith('#,') and 'fuzzy' in re.split(r'[\s,]+', text[2:])
        elif re.match(r'msgid_plural|msgstr\[', text):
            self.fail('a message has no plural forms here')
        else:
            self.fail(f'cannot read {text!r}')

    def add(self, keyword, text):
        if keyword in ('msgctxt', 'msgid') and 'msgstr' in self.fields:
            self.finish()
        if keyword in self.fields:
            self.fail(f'a second {keyword} in one message')
        self.keyword = keyword or self.keyword
        if not self.keyword:
            self.fail('a text without msgctxt, msgid or msgstr')
        self.fields[self.keyword] = self.fields.get(self.keyword, '') + self.unescape(text)

    def unescape(self, text):
        def replace(match):
            if match.group(1) not in ESCAPES:
                self.fail(f'unknown escape \\{match.group(1)}')
            return ESCAPES[match.group(1)]
        return re.sub(r'\\(.)', replace, text)

    def finish(self):
        name, english = self.fields.get('msgctxt'), self.fields.get('msgid')
        if self.fields and ('msgstr' not in self.fields or english is None):
            self.fail('a message lacks msgid or msgstr')
        if english:
            if not name or not re.fullmatch(r'[A-Z][A-Za-z0-9]*', name):
                self.fail(f'the message {english!r} has no name in msgctxt')
            if name in self.entries:
                self.fail(f'the name {name} stands twice')
            if not self.fuzzy:
                self.entries[name] = (english, self.fields['msgstr'])
        self.fields, self.fuzzy, self.keyword = {}, False, None


def literal(text):
    """A UTF-16 string literal: other characters than ASCII stay, C's own and controls are escaped."""
    def escape(c):
        return '\\' + c if c in '\\"' else c if c >= ' ' else f'\\{ord(c):03o}'
    return 'u"' + ''.join(map(escape, text)) + '"'


def write_if_changed(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    try:
        with open(path, encoding='utf-8') as file:
            if file.read() == text:
                os.utime(path)
                return
    except FileNotFoundError:
        pass
    with open(path, 'w', encoding='utf-8') as file:
        file.write(text)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--namespace', default='qn::messages')
    parser.add_argument('--include', default='qn/text/messages_internal.h')
    for name in ('header', 'source', 'template'):
        parser.add_argument(name)
    parser.add_argument('catalogues', nargs='+')
    options = parser.parse_args()
    messages = Catalogue(options.template).entries
    declarations, table, records = [], [], []
    languages = [(os.path.basename(path), Catalogue(path).entries) for path in options.catalogues]
    missing = dict.fromkeys((name for name, _ in languages), 0)
    for name, (english, _) in messages.items():
        texts = [english]
        for language, entries in languages:
            entry = entries.get(name)
            found = entry and entry[0] == english and entry[1]
            missing[language] += not found
            texts.append(entry[1] if found else english)
        declarations.append(f'extern qnlang_t {name};  // {literal(english)[1:]}\n')
        table.append(f'    &{name},\n')
        lines = ',\n     '.join(literal(text) for text in texts)
        records.append(f'qnlang_t {name} = {{\n    QNLANG_MARKER, {len(texts)}, {{}},\n    {{{lines}}}}};\n')

    opening, closing = f'namespace {options.namespace} {{\n\n', f'}}  // namespace {options.namespace}\n'
    write_if_changed(options.header, '// The messages as records. Made from the catalogues; do not edit.\n'
                     '#pragma once\n\n#include "qn/text/qnlang.h"\n\n' + opening + ''.join(declarations) +
                     '\ninline constexpr qnlang_t* kAll[] = {\n' + ''.join(table) + '};\n\n' + closing)
    write_if_changed(options.source, '// Made from the catalogues; do not edit.\n'
                     f'#include "{options.include}"\n\n' + opening + '\n'.join(records) + '\n' + closing)
    for language, count in missing.items():
        if count:
            print(f'{language}: {count} of {len(messages)} messages fall back to English')
    for language, entries in languages:
        for name in sorted(entries.keys() - messages.keys()):
            print(f'{language}: the template has no message {name}')


main()
