#!/usr/bin/env python3
"""Compiles readable resource scripts to a `.res` image and to C++ that registers it at load.

    compile_resources.py --res IMAGE --cpp SOURCE --name NAME [--depfile FILE] [-D NAME=VALUE]... SCRIPT...

docs/resources.md tells the language of the scripts.
"""
import argparse
import os
import re
import struct
import sys

RT_MENU, RT_DIALOG, RT_STRING, RT_RCDATA, RT_VERSION = 4, 5, 6, 10, 16
ENGLISH = 0x0409
PURE, DISCARDABLE = 0x0030, 0x1030  # memory flags, which nobody reads any more

TOKEN = re.compile(r'''(?P<space>\s+|(?://|\#)[^\n]*|/\*.*?\*/)|(?P<text>L?"(?:[^"\\\n]|\\.|"")*")|
    (?P<number>(?:0[xX][0-9a-fA-F]+|[0-9]+)[lL]?(?!\w))|(?P<word>[A-Za-z_][\w.]*)|(?P<sign>[{},|()+-])''',
    re.VERBOSE | re.DOTALL)
ESCAPE = re.compile(r'""|\\(x[0-9a-fA-F]{1,4}|[0-7]{1,3}|.)')
ESCAPES = {'a': '\a', 'b': '\b', 'f': '\f', 'n': '\n', 'r': '\r', 't': '\t', 'v': '\v', '\\': '\\', '"': '"',
           "'": "'"}

WS_CHILD, WS_VISIBLE, WS_GROUP, WS_TABSTOP, WS_BORDER = 0x40000000, 0x10000000, 0x20000, 0x10000, 0x800000
WS_CAPTION, WS_POPUPWINDOW, DS_SETFONT = 0xC00000, 0x80880000, 0x40
SYMBOLS = {
    'WS_POPUP': 0x80000000, 'WS_CHILD': WS_CHILD, 'WS_MINIMIZE': 0x20000000, 'WS_VISIBLE': WS_VISIBLE,
    'WS_DISABLED': 0x8000000, 'WS_CLIPSIBLINGS': 0x4000000, 'WS_CLIPCHILDREN': 0x2000000,
    'WS_MAXIMIZE': 0x1000000, 'WS_CAPTION': WS_CAPTION, 'WS_BORDER': WS_BORDER, 'WS_DLGFRAME': 0x400000,
    'WS_VSCROLL': 0x200000, 'WS_HSCROLL': 0x100000, 'WS_SYSMENU': 0x80000, 'WS_THICKFRAME': 0x40000,
    'WS_GROUP': WS_GROUP, 'WS_TABSTOP': WS_TABSTOP, 'WS_MINIMIZEBOX': 0x20000, 'WS_MAXIMIZEBOX': 0x10000,
    'WS_POPUPWINDOW': WS_POPUPWINDOW, 'WS_OVERLAPPED': 0,
    'WS_EX_DLGMODALFRAME': 1, 'WS_EX_TOPMOST': 8, 'WS_EX_ACCEPTFILES': 0x10, 'WS_EX_TRANSPARENT': 0x20,
    'WS_EX_TOOLWINDOW': 0x80, 'WS_EX_CLIENTEDGE': 0x200, 'WS_EX_CONTEXTHELP': 0x400, 'WS_EX_RIGHT': 0x1000,
    'WS_EX_CONTROLPARENT': 0x10000, 'WS_EX_STATICEDGE': 0x20000,
    'DS_ABSALIGN': 1, 'DS_3DLOOK': 4, 'DS_FIXEDSYS': 8, 'DS_NOFAILCREATE': 0x10, 'DS_SETFONT': DS_SETFONT,
    'DS_MODALFRAME': 0x80, 'DS_SETFOREGROUND': 0x200, 'DS_CONTROL': 0x400, 'DS_CENTER': 0x800,
    'DS_CENTERMOUSE': 0x1000, 'DS_CONTEXTHELP': 0x2000, 'DS_SHELLFONT': 0x48,
    'BS_PUSHBUTTON': 0, 'BS_DEFPUSHBUTTON': 1, 'BS_CHECKBOX': 2, 'BS_AUTOCHECKBOX': 3, 'BS_RADIOBUTTON': 4,
    'BS_3STATE': 5, 'BS_AUTO3STATE': 6, 'BS_GROUPBOX': 7, 'BS_AUTORADIOBUTTON': 9, 'BS_OWNERDRAW': 11,
    'BS_LEFTTEXT': 0x20, 'BS_ICON': 0x40, 'BS_BITMAP': 0x80, 'BS_LEFT': 0x100, 'BS_RIGHT': 0x200,
    'BS_CENTER': 0x300, 'BS_PUSHLIKE': 0x1000, 'BS_MULTILINE': 0x2000, 'BS_NOTIFY': 0x4000, 'BS_FLAT': 0x8000,
    'SS_LEFT': 0, 'SS_CENTER': 1, 'SS_RIGHT': 2, 'SS_ICON': 3, 'SS_SIMPLE': 11, 'SS_LEFTNOWORDWRAP': 12,
    'SS_OWNERDRAW': 13, 'SS_BITMAP': 14, 'SS_ETCHEDHORZ': 16, 'SS_ETCHEDVERT': 17, 'SS_ETCHEDFRAME': 18,
    'SS_NOPREFIX': 0x80, 'SS_NOTIFY': 0x100, 'SS_CENTERIMAGE': 0x200, 'SS_SUNKEN': 0x1000,
    'ES_LEFT': 0, 'ES_CENTER': 1, 'ES_RIGHT': 2, 'ES_MULTILINE': 4, 'ES_UPPERCASE': 8, 'ES_LOWERCASE': 0x10,
    'ES_PASSWORD': 0x20, 'ES_AUTOVSCROLL': 0x40, 'ES_AUTOHSCROLL': 0x80, 'ES_NOHIDESEL': 0x100,
    'ES_READONLY': 0x800, 'ES_WANTRETURN': 0x1000, 'ES_NUMBER': 0x2000,
    'CBS_SIMPLE': 1, 'CBS_DROPDOWN': 2, 'CBS_DROPDOWNLIST': 3, 'CBS_OWNERDRAWFIXED': 0x10,
    'CBS_AUTOHSCROLL': 0x40, 'CBS_SORT': 0x100, 'CBS_HASSTRINGS': 0x200, 'CBS_NOINTEGRALHEIGHT': 0x400,
    'LBS_NOTIFY': 1, 'LBS_SORT': 2, 'LBS_MULTIPLESEL': 8, 'LBS_OWNERDRAWFIXED': 0x10, 'LBS_HASSTRINGS': 0x40,
    'LBS_USETABSTOPS': 0x80, 'LBS_NOINTEGRALHEIGHT': 0x100, 'LBS_EXTENDEDSEL': 0x800,
    'SBS_HORZ': 0, 'SBS_VERT': 1, 'IDOK': 1, 'IDCANCEL': 2, 'IDC_STATIC': 0xFFFF,
}
BUTTON, EDIT, STATIC, LISTBOX, SCROLLBAR, COMBOBOX = range(0x80, 0x86)
CLASSES = {'BUTTON': BUTTON, 'EDIT': EDIT, 'STATIC': STATIC, 'LISTBOX': LISTBOX, 'SCROLLBAR': SCROLLBAR,
           'COMBOBOX': COMBOBOX}
# Control statements: class, style beside child and visible, whether a text comes first.
CONTROLS = {
    'LTEXT': (STATIC, WS_GROUP, True), 'CTEXT': (STATIC, WS_GROUP | 1, True), 'RTEXT': (STATIC, WS_GROUP | 2, True),
    'PUSHBUTTON': (BUTTON, WS_TABSTOP, True), 'DEFPUSHBUTTON': (BUTTON, WS_TABSTOP | 1, True),
    'CHECKBOX': (BUTTON, WS_TABSTOP | 2, True), 'AUTOCHECKBOX': (BUTTON, WS_TABSTOP | 3, True),
    'RADIOBUTTON': (BUTTON, WS_TABSTOP | 4, True), 'AUTORADIOBUTTON': (BUTTON, WS_TABSTOP | 9, True),
    'STATE3': (BUTTON, WS_TABSTOP | 5, True), 'AUTO3STATE': (BUTTON, WS_TABSTOP | 6, True),
    'GROUPBOX': (BUTTON, 7, True), 'EDITTEXT': (EDIT, WS_BORDER | WS_TABSTOP, False),
    'COMBOBOX': (COMBOBOX, WS_TABSTOP, False), 'LISTBOX': (LISTBOX, WS_BORDER | 1, False),
    'SCROLLBAR': (SCROLLBAR, 0, False),
}
MENU_FLAGS = {'GRAYED': 1, 'INACTIVE': 2, 'CHECKED': 8, 'MENUBARBREAK': 0x20, 'MENUBREAK': 0x40, 'HELP': 0x4000}
MENU_POPUP, MENU_LAST = 0x10, 0x80
FIXED_FIELDS = {'FILEFLAGSMASK': 0, 'FILEFLAGS': 1, 'FILEOS': 2, 'FILETYPE': 3, 'FILESUBTYPE': 4}


def padded(data, size=4):
    return data + bytes(-len(data) % size)


def ended(text):
    return (text + '\0').encode('utf-16-le')


def reference(value):
    """A number or a text where the format takes either; None stands for nothing."""
    if value is None:
        return b'\0\0'
    return struct.pack('<HH', 0xFFFF, value) if isinstance(value, int) else ended(value)


def version_node(key, value=b'', kind=1, length=None, children=()):
    """A node of the version tree. Its length leaves out the padding behind it."""
    body = padded(bytes(6) + ended(key))
    body += value
    for child in children:
        body = padded(body) + child
    return struct.pack('<HHH', len(body), len(value) if length is None else length, kind) + body[6:]


def upper(name):
    """Names are kept in capitals, unit by unit as they are compared."""
    return ''.join(c.upper() if len(c.upper()) == 1 and c < '\U00010000' else c for c in name)


class Script:
    """The tokens of one script, and what they are compiled to."""

    def __init__(self, path, defines, image):
        self.path, self.image, self.language, self.position = path, image, 0, 0
        self.tokens = []
        self.defines = {}
        for name, value in defines.items():
            self.defines[name] = list(self.split(value, 0))
        try:
            with open(path, encoding='utf-8') as file:
                self.tokens = list(self.split(file.read(), 1))
        except (OSError, UnicodeDecodeError) as error:
            sys.exit(f'{path}: {error}')

    def fail(self, reason, line=None):
        if line is None:
            line = self.tokens[min(self.position, len(self.tokens) - 1)][2] if self.tokens else 1
        sys.exit(f'{self.path}:{line}: {reason}')

    def split(self, source, line):
        place = 0
        while place < len(source):
            match = TOKEN.match(source, place)
            if not match:
                self.fail(f'cannot read {source[place:].splitlines()[0]!r}', line)
            kind, text = match.lastgroup, match.group()
            if kind == 'word' and text in self.defines:
                yield from ((k, t, line) for k, t, _ in self.defines[text])
            elif kind != 'space':
                yield kind, text, line
            line += text.count('\n')
            place = match.end()

    # Tokens.

    def peek(self):
        return self.tokens[self.position][:2] if self.position < len(self.tokens) else ('end', 'the end')

    def next(self):
        token = self.peek()
        self.position += 1
        return token

    def accept(self, *words):
        kind, text = self.peek()
        if kind in ('word', 'sign') and text.upper() in words:
            self.position += 1
            return text.upper()
        return None

    def expect(self, *words):
        return self.accept(*words) or self.fail(f'{" or ".join(words)} expected at {self.peek()[1]}')

    def block(self):
        """One round for each statement of a block in braces."""
        self.expect('{', 'BEGIN')
        while not self.accept('}', 'END'):
            if self.peek()[0] == 'end':
                self.fail('a block is not closed')
            yield

    def text(self, ended_by_zero=True):
        kind, token = self.peek()
        if kind != 'text':
            self.fail(f'a text expected at {token}')

        def unescape(match):
            code = match.group(1)
            if code is None:
                return '"'
            if code[0] == 'x' and len(code) > 1:
                return chr(int(code[1:], 16))
            if code[0] in '01234567':
                return chr(int(code, 8))
            return ESCAPES.get(code) or self.fail(f'unknown escape \\{code}')
        text = ESCAPE.sub(unescape, token[token.index('"') + 1:-1])
        if ended_by_zero and '\0' in text:
            self.fail('a text with a zero in it')
        if any('\ud800' <= c <= '\udfff' for c in text):
            self.fail('a text with half a surrogate pair')
        self.position += 1
        return text

    def term(self):
        kind, token = self.next()
        if kind == 'number':
            return int(token.rstrip('lL'), 0 if token[:2].lower() == '0x' else 10)
        if token == '-':
            return -self.term()
        if token == '(':
            value = self.flags(0)
            self.expect(')')
            return value
        if kind == 'word' and token.upper() in SYMBOLS:
            return SYMBOLS[token.upper()]
        self.position -= 1
        return self.fail(f'a number expected at {token}')

    def flags(self, value):
        """Terms divided by | or +, set in `value`, or with NOT taken out of it."""
        while True:
            if self.accept('NOT'):
                value &= ~self.term()
            else:
                value |= self.term()
            if not self.accept('|', '+'):
                return value

    def ranged(self, value, bits):
        if not -(1 << bits - 1) <= value < 1 << bits:
            self.position -= 1
            self.fail(f'{value} does not fit in {bits} bits')
        return value & (1 << bits) - 1

    def number(self, bits=16):
        return self.ranged(self.flags(0), bits)

    def numbers(self, count):
        values = [self.number()]
        while len(values) < count:
            self.expect(',')
            values.append(self.number())
        return values

    def more(self, otherwise, bits=32):
        """A further number behind a comma."""
        return self.number(bits) if self.accept(',') else otherwise

    def text_or_number(self):
        return self.text() if self.peek()[0] == 'text' else self.number()

    # Statements.

    def compile(self):
        while self.position < len(self.tokens):
            first = self.position
            if self.accept('LANGUAGE'):
                self.language = self.read_language()
            elif self.accept('STRINGTABLE'):
                self.strings()
            else:
                name = self.identity()
                kind, reader, flags = self.read_kind()
                if name == 0 or kind == 0:
                    self.fail('the number 0 names no resource')
                outer = self.language
                data = reader()
                if not self.image.add(kind, name, self.language, flags, data):
                    self.position = first
                    self.fail('a resource that is there already')
                self.language = outer

    def read_kind(self):
        kinds = {'MENU': (RT_MENU, self.menu, DISCARDABLE), 'DIALOGEX': (RT_DIALOG, self.dialog, DISCARDABLE),
                 'VERSIONINFO': (RT_VERSION, self.version, PURE), 'RCDATA': (RT_RCDATA, self.raw, PURE)}
        keyword = self.accept(*kinds)
        return kinds[keyword] if keyword else (self.identity(), self.raw, PURE)

    def read_language(self):
        primary, sub = self.numbers(2)
        if primary > 0x3FF or sub > 0x3F:
            self.fail('no such language')
        return primary | sub << 10

    def identity(self):
        kind, token = self.peek()
        if kind == 'number':
            return self.number()
        if kind != 'word':
            self.fail(f'a name or a number expected at {token}')
        self.position += 1
        return upper(token)

    def strings(self):
        language = self.read_language() if self.accept('LANGUAGE') else self.language
        for _ in self.block():
            first = self.position
            number = self.number()
            self.accept(',')
            if not self.image.add_string(language, number, self.text()):
                self.position = first
                self.fail(f'string {number} is there already')

    def menu(self):
        if self.accept('LANGUAGE'):
            self.language = self.read_language()
        return bytes(4) + self.menu_items()

    def menu_items(self):
        items = []
        for _ in self.block():
            popup = self.expect('MENUITEM', 'POPUP') == 'POPUP'
            flags, body = 0, b''
            if not popup and self.accept('SEPARATOR'):
                body = bytes(4)
            else:
                text = self.text()
                if not popup:
                    self.expect(',')
                    body = struct.pack('<H', self.number())
                body += ended(text)
                while self.accept(','):
                    flags |= MENU_FLAGS[self.expect(*MENU_FLAGS)]
            if popup:
                flags |= MENU_POPUP
                body += self.menu_items()
            items.append((flags, body))
        if not items:
            self.fail('a menu without items')
        return b''.join(struct.pack('<H', flags | (MENU_LAST if item is items[-1] else 0)) + body
                        for item in items for flags, body in [item])

    def dialog(self):
        box = self.numbers(4)
        help_id = self.more(0)
        style, ex_style, title, menu, window_class, font = None, 0, '', None, None, b''
        while statement := self.accept('STYLE', 'EXSTYLE', 'CAPTION', 'FONT', 'MENU', 'CLASS', 'LANGUAGE'):
            if statement == 'STYLE':
                style = self.number(32)
            elif statement == 'EXSTYLE':
                ex_style = self.number(32)
            elif statement == 'CAPTION':
                title = self.text()
            elif statement == 'MENU':
                menu = self.text_or_number()
            elif statement == 'CLASS':
                window_class = self.text_or_number()
            elif statement == 'LANGUAGE':
                self.language = self.read_language()
            else:
                size = self.number()
                self.expect(',')
                face = self.text()
                font = struct.pack('<HHBB', size, self.more(400, 16), self.more(0, 8), self.more(1, 8)) + ended(face)
        if style is None:
            style = WS_POPUPWINDOW
        style |= (WS_CAPTION if title else 0) | (DS_SETFONT if font else 0)
        if style & DS_SETFONT and not font:
            self.fail('DS_SETFONT without FONT')
        controls = [self.control() for _ in self.block()]
        data = struct.pack('<HHIIIH4H', 1, 0xFFFF, help_id, ex_style, style, len(controls), *box)
        data += reference(menu) + reference(window_class) + ended(title) + font
        for control in controls:
            data = padded(data) + control
        return data

    def control(self):
        statement = self.expect('CONTROL', *CONTROLS)
        window_class, style, has_text = CONTROLS.get(statement, (None, 0, True))
        style |= WS_CHILD | WS_VISIBLE
        text = ''
        if has_text:
            text = self.text_or_number()
            self.expect(',')
        number = self.number(32)
        self.expect(',')
        if statement == 'CONTROL':
            window_class = self.text_or_number()
            if isinstance(window_class, str):
                window_class = CLASSES.get(window_class.upper(), window_class)
            self.expect(',')
            style = self.ranged(self.flags(style), 32)
            self.expect(',')
        box = self.numbers(4)
        if statement != 'CONTROL' and self.accept(','):
            style = self.ranged(self.flags(style), 32)
        ex_style, help_id = self.more(0), self.more(0)
        return (struct.pack('<III4HI', help_id, ex_style, style, *box, number) + reference(window_class) +
                reference(text) + bytes(2))

    def version(self):
        versions, fields = {'FILEVERSION': [0] * 4, 'PRODUCTVERSION': [0] * 4}, [0x3F, 0, 0x40004, 2, 0]
        while statement := self.accept('LANGUAGE', *versions, *FIXED_FIELDS):
            if statement == 'LANGUAGE':
                self.language = self.read_language()
            elif statement in versions:
                parts = [self.number()]
                while len(parts) < 4 and self.accept(','):
                    parts.append(self.number())
                versions[statement] = parts + [0] * (4 - len(parts))
            else:
                fields[FIXED_FIELDS[statement]] = self.number(32)
        words = [value for parts in versions.values() for value in (parts[1], parts[0], parts[3], parts[2])]
        fixed = struct.pack('<II8H5III', 0xFEEF04BD, 0x10000, *words, *fields, 0, 0)
        return self.checked_version(version_node('VS_VERSION_INFO', fixed, 0, children=self.version_nodes()))

    def checked_version(self, data):
        if len(data) > 0xFFFF:
            self.fail('a version text that is too long')
        return data

    def version_nodes(self):
        nodes = []
        for _ in self.block():
            block = self.expect('BLOCK', 'VALUE') == 'BLOCK'
            key = self.text()
            if block:
                nodes.append(self.checked_version(version_node(key, children=self.version_nodes())))
                continue
            self.expect(',')
            if self.peek()[0] == 'text':
                value = ended(self.text())
                nodes.append(self.checked_version(version_node(key, value, 1, len(value) // 2)))
            else:
                value = struct.pack('<H', self.number())
                while self.accept(','):
                    value += struct.pack('<H', self.number())
                nodes.append(self.checked_version(version_node(key, value, 0)))
        return nodes

    def raw(self):
        if self.accept('LANGUAGE'):
            self.language = self.read_language()
        if self.peek()[0] == 'text':
            path = os.path.join(os.path.dirname(self.path), self.text())
            self.image.files.append(path)
            try:
                with open(path, 'rb') as file:
                    return file.read()
            except OSError as error:
                self.position -= 1
                self.fail(error)
        data = b''
        for _ in self.block():
            kind, token = self.peek()
            if kind == 'text':
                data += self.text(False).encode('utf-16-le' if token[0] == 'L' else 'utf-8')
            elif kind == 'number' and token[-1] in 'lL':
                data += struct.pack('<I', self.number(32))
            else:
                data += struct.pack('<H', self.number())
            self.accept(',')
        return data


class Image:
    """The records in the order of the scripts, the string blocks behind them."""

    def __init__(self):
        self.records, self.strings, self.files = {}, {}, []

    def add(self, kind, name, language, flags, data):
        key = (kind, name, language)
        fresh = key not in self.records
        self.records[key] = (flags, data)
        return fresh

    def add_string(self, language, number, text):
        block = self.strings.setdefault((language, (number >> 4) + 1), {})
        fresh = number & 15 not in block
        block[number & 15] = text
        return fresh

    def version(self):
        """The version text that a search without a language finds first; None without one."""
        found = [language for kind, name, language in self.records if (kind, name) == (RT_VERSION, 1)]
        found.sort(key=lambda language: (language != ENGLISH, language != 0))
        return self.records[RT_VERSION, 1, found[0]][1] if found else None

    def bytes(self):
        # The empty record in front tells the format from its 16-bit forerunner.
        records = {(0, 0, 0): (0, b''), **self.records}
        for (language, number), texts in self.strings.items():
            data = b''
            for i in range(16):
                # The terminator is part of a text's length, so that texts can be used where they lie.
                text = ended(texts[i]) if i in texts else b''
                data += struct.pack('<H', len(text) // 2) + text
            records[RT_STRING, number, language] = (DISCARDABLE, data)
        image = b''
        for (kind, name, language), (flags, data) in records.items():
            names = padded(reference(kind) + reference(name))
            image += struct.pack('<II', len(data), 8 + len(names) + 16) + names
            image += padded(struct.pack('<IHHII', 0, flags, language, 0, 0) + data)
        return image


CPP = '''// Made from {source}; do not edit.
#include <cstddef>
#include <cstdint>

#include "qn/platform/module.h"

// Hidden: modules with targets of one name each keep their own image.
extern __attribute__((visibility("hidden"))) const unsigned char {name}[];
extern __attribute__((visibility("hidden"))) const size_t {name}_size;

alignas(16) const unsigned char {name}[] = {{
{bytes}
}};
const size_t {name}_size = sizeof({name});

namespace {{

const struct Registration {{
  Registration() {{ RegisterModuleResources(module, {name}, {name}_size); }}
  ~Registration() {{ RegisterModuleResources(module, nullptr, 0); }}
  const HMODULE module = ModuleFromAddress({name});
}} registration;
{note}
}}  // namespace
'''

NOTE = '''
// The version text for those who read the file without loading it.
__attribute__((section(".note.qnkernel.version"), used, aligned(4))) const struct {{
  uint32_t nameSize, contentSize, type;
  char name[12];
  unsigned char content[{room}];
}} version = {{9, {size}, 1, "qnkernel", {{
{bytes}
}}}};
'''


def rows(data):
    return '\n'.join('    ' + ', '.join(f'0x{byte:02X}' for byte in data[i:i + 16]) + ','
                     for i in range(0, len(data), 16))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for option in ('--res', '--cpp', '--name'):
        parser.add_argument(option, required=True)
    parser.add_argument('--depfile')
    parser.add_argument('-D', dest='defines', action='append', default=[], metavar='NAME=VALUE')
    parser.add_argument('scripts', nargs='+')
    options = parser.parse_args()

    image = Image()
    for path in options.scripts:
        Script(path, dict(define.split('=', 1) for define in options.defines), image).compile()
    data = image.bytes()
    version = image.version()
    note = NOTE.format(size=len(version), room=len(padded(version)), bytes=rows(version)) if version else ''
    text = CPP.format(source=os.path.basename(options.scripts[0]), name=options.name, bytes=rows(data), note=note)
    with open(options.res, 'wb') as file:
        file.write(data)
    with open(options.cpp, 'w', encoding='utf-8') as file:
        file.write(text)
    if options.depfile:
        with open(options.depfile, 'w', encoding='utf-8') as file:
            paths = [path.replace(' ', '\\ ') for path in [*options.scripts, *image.files]]
            file.write(f'{options.cpp}: {" ".join(paths)}\n')


main()
