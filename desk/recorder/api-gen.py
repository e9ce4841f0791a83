#!/usr/bin/env python3
"""Makes the recorder's wrappers and the replay's functions of modem_api.h and modem_api.rows.

usage: api-gen.py HEADER ROWS wrappers|replay FILE
"""
import pathlib
import re
import sys

SCALARS = {'int': True, 'char': True, 'size_t': False}  # is it signed?
SCALARS.update({f'{sign}int{bits}_t': sign == '' for sign in ('u', '') for bits in (8, 16, 32, 64)})


class Parameter:
    def __init__(self, text, words):
        kind, self.name = re.fullmatch(r'(.*?[ *])(\w+)', text.strip()).groups()
        self.type = kind.strip()
        self.is_pointer = self.type.endswith('*')
        self.element = self.type.removeprefix('const ').rstrip('*')
        word, _, length = words.partition('[')
        self.words = set(filter(None, word.split(',')))
        self.length = length.rstrip(']')


class Function:
    def __init__(self, name, parameters, row):
        self.name = name
        texts = [] if parameters.strip() == 'void' else parameters.split(',')
        self.answer = row.pop('answer', None)
        self.parameters = [Parameter(text, row.pop(text.split()[-1].lstrip('*'), ''))
                           for text in texts]
        self.is_async = any(p.type == 'modem_api_async_callback' for p in self.parameters)
        if row:
            raise SystemExit(f'{name}: the row names {", ".join(row)}, which is no parameter')
        if self.is_async != (self.answer is not None):
            raise SystemExit(f'{name}: answer: belongs to what has an asynchronous callback')
        for p in self.parameters:
            if p.is_pointer and p.type != 'void*' and not p.words & {'in', 'out', 'inout'}:
                raise SystemExit(f'{name}: the row does not tell who fills {p.name}')


class Api:
    def __init__(self, header, rows):
        text = re.sub(r'^\s*#.*', '', header, flags=re.M)
        self.events = re.findall(r'(MODEM_API_EVENT_\w+) = \d+,?\s*/\* data: (\w+) \*/', text)
        text = re.sub(r'/\*.*?\*/|//[^\n]*', '', text, flags=re.S)
        self.rows = {}
        for line in rows.splitlines():
            if line and not line.startswith('#'):
                name, *words = line.split()
                self.rows[name] = dict(word.split(':', 1) for word in words)
        self.scalars = dict(SCALARS)
        for old, new in re.findall(r'typedef (\w+) (\w+);', text):
            self.scalars[new] = self.scalars[old]
        self.structs = {}
        for body, name in re.findall(r'typedef struct \w+ \{(.*?)\n\} (\w+);', text, flags=re.S):
            self.structs[name] = body
        used = set(self.structs)
        self.functions = []
        for name, parameters in re.findall(r'MODEM_API_EXPORT int (\w+)\((.*?)\);', text, re.S):
            if name not in self.rows:
                raise SystemExit(f'{name}: no row')
            used.add(name)
            self.functions.append(Function(name, parameters, dict(self.rows[name])))
        if self.rows.keys() - used:
            raise SystemExit(f'not in the header: {", ".join(self.rows.keys() - used)}')

    def fields(self, struct, prefix='', part=None):
        """The fields of a struct as rows of a C++ table; of a union the named part alone."""
        body = re.sub(r'union \{(.*?)\}\s*(\w+);', '', self.structs[struct], flags=re.S)
        union = re.search(r'union \{(.*?)\}\s*(\w+);', self.structs[struct], flags=re.S)
        row = self.rows.get(struct, {})
        members = [(prefix, *m) for m in re.findall(r'(\w+\*?) (\w+)((?:\[\w+\])*);', body)]
        if union and part != '-':
            found = re.search(rf'(\w+) ({part})((?:\[\w+\])*);', union[1])
            members.append((f'{prefix}{union[2]}.', *found.groups()))
        for path, kind, name, lengths in members:
            if name.startswith('unused'):
                continue
            if kind in self.structs:
                yield from self.fields(kind, f'{path}{name}.')
                continue
            yield path + name, kind, lengths, row.get(name, '')

    def record(self, struct, part=None):
        if struct in self.scalars:
            sign = 'SIGNED' if self.scalars[struct] else 'UNSIGNED'
            return f'{{{{{{"value", 0, sizeof({struct}), 1, Kind::{sign}, false}}}}, sizeof({struct})}}'
        lines = []
        for path, kind, lengths, words in self.fields(struct, '', part):
            count = '*'.join(re.findall(r'\w+', lengths)) or '1'
            size = f'sizeof({kind})'
            if kind == 'char*':
                what = 'TOKENS'
            elif words in ('handle', 'token'):
                what = words.upper()
            elif lengths and kind in ('char', 'uint8_t'):
                what = 'TEXT' if kind == 'char' else 'BYTES'
            else:
                what = 'SIGNED' if self.scalars[kind] else 'UNSIGNED'
            private = 'true' if words == 'private' else 'false'
            name = path.removeprefix('payload.')
            lines.append(f'{{"{name}", offsetof({struct}, {path}), {size}, {count}, '
                         f'Kind::{what}, {private}}}')
        return '{{' + ',\n  '.join(lines) + f'}}, sizeof({struct})}}'

    def records(self):
        """Tables of the records, by struct, by event and by answer."""
        plain = {p.element for f in self.functions for p in f.parameters if self.is_record(p)}
        for struct in sorted(plain | {data for _, data in self.events}):
            yield f'const Record {record_name(struct)} = {self.record(struct)};'
        for part in sorted({f.answer for f in self.functions if f.answer}):
            yield (f'const Record {answer_name(part)} = '
                   f'{self.record("modem_async_response", part)};')
        rows = ''.join(f'case {event}: return &{record_name(data)};\n'
                       for event, data in self.events)
        yield ('const Record* recordOfEvent(modem_api_event_type event) {\n'
               f'switch (event) {{\n{rows}default: return nullptr;\n}}\n}}')

    def is_record(self, p):
        return p.is_pointer and p.element in self.structs and not p.length

    def members(self, function, source, target, is_in):
        """Statements for what goes in, or comes out: of the caller's memory into JSON, or back."""
        for p in function.parameters:
            wanted = {'in', 'inout'} if is_in else {'out', 'inout'}
            if p.is_pointer and not p.words & wanted or p.type == 'void*' or 'callback' in p.type:
                continue
            if not p.is_pointer and (not is_in or 'token' in p.words):
                continue
            private = 'true' if 'private' in p.words else 'false'
            if not p.is_pointer:
                yield f'{target}.number("{p.name}", {p.name});'
            elif p.length:
                length = p.length.lstrip('*')
                count = f'bounded(*{length}, {length}_room)' if p.length != length else length
                yield (f'{source}.bytes("{p.name}", {p.name}, '
                       f'sizeof(*{p.name}) * {count}, {private});')
            elif self.is_record(p):
                yield f'{source}.record("{p.name}", {record_name(p.element)}, {p.name});'
            elif p.element == 'char':
                yield f'{source}.text("{p.name}", {p.name}, {private});'
            else:
                yield f'{source}.pointed("{p.name}", {p.name});'


def record_name(struct):
    return 'RECORD_' + struct.upper()


def answer_name(part):
    return 'ANSWER' + ('' if part == '-' else '_' + part.upper())


def body(api, function, is_replay):
    declared = ', '.join(f'{p.type} {p.name}' for p in function.parameters)
    yield f'extern "C" MODEM_API_EXPORT int {function.name}({declared}) {{'
    if not is_replay:
        yield (f'static const auto real = reinterpret_cast<decltype(&{function.name})>('
               f'Recorder::get().find("{function.name}"));')
    yield f'Call call("{function.name}");'
    for p in function.parameters:
        if 'inout' in p.words:
            yield f'[[maybe_unused]] const size_t {p.name}_room = {p.name} == nullptr ? 0 : *{p.name};'
        if 'token' in p.words:
            yield f'call.token({p.name});'
        if p.type == 'modem_api_event_callback':
            replaced = '' if is_replay else f'{p.name} = '
            yield f'{replaced}call.events({p.name});'
    if function.is_async:
        yield f'call.answers({answer_name(function.answer)}, cookie, callback);'
    yield from api.members(function, 'call.arguments', 'call.arguments', True)
    yield 'call.begin();'
    if not is_replay:
        names = ', '.join(p.name for p in function.parameters)
        yield f'const int result = real == nullptr ? Recorder::REFUSED : real({names});'
    outs = list(api.members(function, 'call.results', 'call.results', False))
    if outs:
        yield 'if (' + ('call.answered()' if is_replay else 'result == 0') + ') {'
        yield from sorted(outs, key=lambda line: '.pointed' not in line)
        yield '}'
    yield 'return call.end(' + ('' if is_replay else 'result') + ');'
    yield '}'


def main():
    header, rows, kind, file = sys.argv[1:]
    api = Api(*(pathlib.Path(path).read_text(encoding='ascii') for path in (header, rows)))
    is_replay = kind == 'replay'
    lines = [f'#include "{"Replay" if is_replay else "Recorder"}.h"', '',
             f'using namespace {"replay" if is_replay else "recorder"};',
             'using recording::Kind;', 'using recording::Record;', 'using recording::bounded;', '',
             'namespace recording {', *api.records(), '}', 'using namespace recording;', '']
    for function in api.functions:
        lines += [*body(api, function, is_replay), '']
    pathlib.Path(file).write_text('\n'.join(lines) + '\n', encoding='ascii')


if __name__ == '__main__':
    main()
