"""Holds what the standard dialect reads and writes against Python's email package and GMime.

  header_tool.py read TOOL DATA    From, Subject, To, Cc and Date of real mail, beside policy.default
  header_tool.py write TOOL        random values as the library writes them, read by all others
"""

import collections
import email
import email.parser
import email.policy
import glob
import lzma
import os
import random
import subprocess
import sys
import tempfile

SKIPPED = 77
LISTS = ('from', 'to', 'cc')


def fields(line):
    return dict(field.split('=', 1) for field in line.split())


def text_of(hexadecimal):
    return '' if hexadecimal == '-' else bytes.fromhex(hexadecimal).decode('utf-8', 'surrogateescape')


def mailboxes_of(field):
    pairs = (entry.split(':') for entry in field.split(',') if entry)
    return [(text_of(name), text_of(address)) for name, address in pairs]


def python_reads(message, name):
    """None: not there.  'failed': the package raised an exception on it."""
    try:
        header = message[name]
        if header is None:
            return None
        if name == 'date':
            return 'none' if header.datetime is None else str(int(header.datetime.timestamp()))
        if name == 'subject':
            return str(header).strip(' \t')
        return [(each.display_name, each.addr_spec) for each in header.addresses]
    except Exception:
        return 'failed'


def we_read(ours, name):
    if name not in ours:
        return None
    if name == 'date':
        return ours[name]
    return text_of(ours[name]) if name == 'subject' else mailboxes_of(ours[name])


def has_eight_bits(text):
    return any(ord(c) > 0x7f for c in text)


NO_MAILBOXES = ('Bobby Dunite <', 'Big Bug bb@', 'tim@powerupdev.com concierge@', 'Mikel@Lindsaar <', 'xyzlinu <',
                'date=3E2017')

# What is left, each class with who is right and why.  A difference that belongs to none fails the test.
CLASSES = [
    ('raw 8-bit bytes, also in an encoded word', 'we',
     'Python gives U+FFFD or a surrogate for bytes that no charset claims and keeps blanks between such words; we read '
     'UTF-8, else code page 1252, as mail programs do',
     lambda name, raw, theirs, own: name != 'date' and has_eight_bits(raw)),
    ('the package raises an exception', 'we', 'a reader of mail must not fail on any input',
     lambda name, raw, theirs, own: theirs == 'failed'),
    ('a line that is no header ends the header for Python', 'a matter of taste',
     'we skip the line, since programs put such lines into headers, and stop at the empty line alone',
     lambda name, raw, theirs, own: theirs is None and own is not None),
    ('Latin 1 with bytes of code page 1252', 'we', 'such programs mean the code page; in Latin 1 these are controls',
     lambda name, raw, theirs, own: name == 'subject' and any(0x80 <= ord(c) < 0xa0 for c in str(theirs))),
    ('a control character in an encoded word', 'we', 'a line end or zero byte out of a word becomes a blank',
     lambda name, raw, theirs, own: name == 'subject' and str(theirs).replace('\0', ' ').strip() == own.strip()),
    ('an empty address', 'we', 'Python answers "<>" for the address in "<>"',
     lambda name, raw, theirs, own: name in LISTS and theirs == [(n, a or '<>') for n, a in own]),
    ('a quoted local part', 'we', 'Python drops quotes without which the address is another one or none',
     lambda name, raw, theirs, own: name in LISTS and [a.replace('"', '') for _, a in own] == [a for _, a in theirs]),
    ('a zone behind a comment, or one that is none', 'we', 'Python drops "-0400" in "(EDT) -0400"; "H0500" is no zone',
     lambda name, raw, theirs, own: name == 'date' and ('(EDT) -' in raw or ' H0' in raw)),
    ('no mailbox by any rule', 'neither', 'a comma that is missing, an "@" in a name without quotes: each makes of it what it can',
     lambda name, raw, theirs, own: name in LISTS and any(part in raw for part in NO_MAILBOXES)),
]


def compare_reading(tool, data):
    paths = [path for path in glob.glob(data + '/**/*', recursive=True) if os.path.isfile(path)]
    with tempfile.TemporaryDirectory() as folder:
        for packed in [path for path in paths if path.endswith('.mbox.xz')]:
            unpacked = os.path.join(folder, os.path.basename(packed)[:-3])
            with lzma.open(packed) as source, open(unpacked, 'wb') as target:
                target.write(source.read())
            paths.append(unpacked)
        paths = [path for path in paths if not path.endswith('.xz')]
        lines = subprocess.run([tool, 'read', *sorted(paths)], stdout=subprocess.PIPE, check=True).stdout
        return judge(lines.decode().splitlines())


def messages_beside(lines):
    """Our fields and Python's message for each."""
    path, content = None, b''
    for line in lines:
        ours = fields(line)
        if text_of(ours['file']) != path:
            path = text_of(ours['file'])
            with open(path, 'rb') as file:
                content = file.read()
        start = int(ours['offset'])
        raw = content[start:start + int(ours['length'])]
        if raw.startswith(b'From '):
            raw = raw[raw.find(b'\n') + 1:]
        yield ours, email.parser.BytesHeaderParser(policy=email.policy.default).parsebytes(raw)


def judge(lines):
    counted, agreed, classes, failures = (collections.Counter() for _ in range(4))
    for ours, message in messages_beside(lines):
        for name in ('from', 'subject', 'to', 'cc', 'date'):
            theirs, own = python_reads(message, name), we_read(ours, name)
            if not theirs and not own:
                continue
            counted[name] += 1
            if theirs == own:
                agreed[name] += 1
                continue
            raw = next((value for key, value in message.raw_items() if key.lower() == name), '')
            found = next((row[0] for row in CLASSES if row[3](name, raw, theirs, own or [])), None)
            classes[found] += 1
            if found is None:
                print(text_of(ours['file']), ours['offset'], name, ascii(raw), 'Python', ascii(theirs), 'we', ascii(own))
    for name, all_of_them in counted.items():
        share = agreed[name] / all_of_them
        print(f'{name}: {agreed[name]} of {all_of_them}, {100 * share:.2f} %')
        if share < 0.995:
            failures['share'] += 1
    for row in CLASSES:
        print(f'{classes[row[0]]:5} {row[0]}; right: {row[1]}; {row[2]}')
    return 1 if failures or classes[None] or sum(counted.values()) < 1000 else 0


SCRIPTS = [
    (0x20, 0x7e), (0x20, 0x7e), (0x61, 0x7a), (0xa1, 0x17f), (0x370, 0x3cf), (0x400, 0x45f), (0x5d0, 0x5ea),
    (0x620, 0x64a), (0x905, 0x939), (0xe01, 0xe30), (0x3041, 0x30fe), (0x4e00, 0x9fa5), (0xac00, 0xd7a3),
    (0x1f600, 0x1f64f),
]


def random_text(chance, length):
    """Words of one or two scripts, some with what could be taken for an encoded word."""
    scripts = chance.sample(SCRIPTS, chance.choice((1, 1, 2)))
    words = []
    while sum(map(len, words)) < length:
        low, high = chance.choice(scripts)
        if chance.random() < 0.03:
            words.append(chance.choice(('=?', '?=', '=?utf-8?q?a?=', '"', '(', '_', '=20', 'a@b', '<x>', 'é=?', '\\')))
        words.append(''.join(chr(chance.randint(low, high)) for _ in range(chance.randint(1, 12))))
    return ' '.join(' '.join(words)[:length].split())


def address_text(name, address):
    return '"' + name.replace('\\', '\\\\').replace('"', '\\"') + '" <' + address + '>'


def random_values(chance):
    """Kind and what has to come back: a text, or a list of names and addresses."""
    for number in range(10000):
        yield 'text', random_text(chance, 10000 if number % 1000 == 0 else chance.randint(1, 160))
    for _ in range(40):
        yield 'list', [(random_text(chance, chance.randint(1, 40)), f'user{number}@example{number % 7}.org')
                       for number in range(50)]


def without_white(text):
    return ''.join(text.split())


def faults(kind, value, result):
    """What is wrong with a header block, and who does not read back what was written in it."""
    block = text_of(result['block'])
    lines = block.split('\n')[:-2]
    if not block.isascii():
        yield 'block is not ASCII'
    if any(len(line) > 77 and ' ' in line[1:].lstrip() and '"' not in line for line in lines) or any(len(line) > 998 for line in lines):
        yield 'line too long'
    if any(not line.strip() or (number > 0) != (line[0] in ' \t') for number, line in enumerate(lines)):
        yield 'line is no part of the header'
    if any(len(word) > 75 for line in lines for word in line.split() if word.startswith('=?') and word.endswith('?=')):
        yield 'encoded word too long'
    message = email.message_from_bytes(block.encode(), policy=email.policy.default)
    if kind == 'text':
        readers = {name: text_of(result[name]) for name in ('standard', 'classic', 'gmime') if name in result}
        readers['python'] = str(message['x-text'])
    else:
        readers = {name: mailboxes_of(result[name]) for name in ('standard', 'classic', 'gmime') if name in result}
        readers['python'] = [(each.display_name, each.addr_spec) for each in message['to'].addresses]
    for name, read in readers.items():
        if name == 'classic':
            yield from classic_faults(kind, value, read, len(lines) > 1)
        elif name == 'python' and kind == 'list':
            # Up to 3.12 the package keeps the white space between two words of a phrase, which RFC 2047, section 6.2,
            # has go.
            if [(without_white(n), a) for n, a in read] != [(without_white(n), a) for n, a in value]:
                yield f'python reads {read!r}'
        elif read != value:
            yield f'{name} reads {read!r}'


def classic_faults(kind, value, read, folded):
    """The classic reader drops a blank at a fold and behind a word, and takes the quotes off a name in words before
    it looks for commas: what it reads of a list whose names hold such marks is another list."""
    if kind == 'text':
        same = without_white(read) == without_white(value) if folded else read == value
    else:
        marks = set('",()<>\\@:;')
        plain = not any(marks & set(name) for name, _ in value)
        same = not plain or [(without_white(n), a) for n, a in read] == [(without_white(n), a) for n, a in value]
    if not same:
        yield f'classic reads {read!r}'


def compare_writing(tool):
    values = list(random_values(random.Random(8)))
    as_text = [value if kind == 'text' else ', '.join(address_text(*each) for each in value) for kind, value in values]
    asked = ''.join(f'{kind} {text.encode().hex()}\n' for (kind, _), text in zip(values, as_text))
    answer = subprocess.run([tool, 'write'], input=asked.encode(), stdout=subprocess.PIPE, check=True).stdout
    results = [fields(line) for line in answer.decode().splitlines()]
    shown = bad = 0
    for (kind, value), result in zip(values, results, strict=True):
        for fault in faults(kind, value, result):
            bad += 1
            if shown < 10:
                shown += 1
                print(kind, ascii(value)[:300], text_of(result['block'])[:300], ascii(fault)[:300], sep='\n   ')
    print(f'{len(results)} values, {bad} faults, read by', ', '.join(sorted(set(results[0]) - {"block"})), 'and python')
    return 1 if bad else 0


def main(mode, tool, data=''):
    if mode == 'write':
        return compare_writing(tool)
    if not os.path.isdir(data):
        print('no folder of real mail beside the checkout')
        return SKIPPED
    return compare_reading(tool, data)


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
