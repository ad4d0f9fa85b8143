"""Holds the standard dialect's reading of MIME against Python's email package, where GMime agrees with Python.

  mime_tool.py TOOL DATA    the tree of parts, types, file names, decoded bytes and text of real mail
"""

import collections
import email
import email.policy
import glob
import itertools
import lzma
import os
import subprocess
import sys
import tempfile
import zlib

SKIPPED = 77
EMBEDDED = ('message/rfc822', 'message/global', 'message/news')


def text_of(hexadecimal):
    return '' if hexadecimal == '-' else bytes.fromhex(hexadecimal).decode('utf-8', 'surrogateescape')


def with_newlines(text):
    return text.replace('\r\n', '\n').replace('\r', '\n')


LATIN_1 = ('iso-8859-1', 'latin1', 'latin-1', 'iso8859-1', 'iso_8859-1')


def text_crc(part, content, pages):
    """None for a charset that Python does not know.  With `pages` Latin 1 is read as code page 1252."""
    try:
        charset = part.get_param('charset', 'ASCII')
        if pages and charset.lower() in LATIN_1:
            text = ''.join(bytes([b]).decode('cp1252', 'replace') if b not in (0x81, 0x8d, 0x8f, 0x90, 0x9d) else chr(b)
                           for b in content)
        else:
            text = content.decode(charset, errors='replace')
    except (LookupError, TypeError, ValueError, AttributeError):
        return None
    return f'{zlib.crc32(with_newlines(text).encode("utf-8", "replace")):08x}'


def python_reads(part, pages, depth=0):
    """Like the lines of the tool.  The package takes each "message/..." for a message, of which only some are; the
    others are bytes."""
    kind = part.get_content_type()
    name = part.get_filename() or ''
    if part.is_multipart() and (kind.startswith('multipart/') or kind in EMBEDDED):
        yield depth, kind, name, '-', '-', '-'
        for child in part.get_payload():
            yield from python_reads(child, pages, depth + 1)
        return
    if part.is_multipart():
        content = b''.join(child.as_bytes(policy=part.policy) for child in part.get_payload())
    else:
        content = part.get_payload(decode=True) or b''
    text = text_crc(part, content, pages) if kind.startswith('text/') else '-'
    yield depth, kind, name, str(len(content)), f'{zlib.crc32(content):08x}', text


def messages_of(lines):
    """Path, bytes and the readings of each message."""
    path, content, message = None, b'', None
    for line in lines:
        first, *rest = line.split()
        if first == 'message':
            if message:
                yield message
            if text_of(rest[0]) != path:
                path = text_of(rest[0])
                with open(path, 'rb') as file:
                    content = file.read()
            raw = content[int(rest[1]):int(rest[1]) + int(rest[2])]
            if raw.startswith(b'From '):
                raw = raw[raw.find(b'\n') + 1:]
            message = {'path': path, 'offset': rest[1], 'raw': raw, 'we': [], 'gmime': []}
        else:
            message[first].append((int(rest[0]), rest[1], text_of(rest[2]), *rest[3:]))
    if message:
        yield message


def unpacked(data, folder):
    paths = sorted(path for path in glob.glob(data + '/**/*', recursive=True) if os.path.isfile(path))
    for path in paths:
        if path.endswith('.xz'):
            target = os.path.join(folder, os.path.basename(path)[:-3])
            with lzma.open(path) as source, open(target, 'wb') as file:
                file.write(source.read())
            yield target
        else:
            yield path


def first_difference(theirs, own):
    pairs = itertools.zip_longest(theirs, own)
    return next(((a, b) for a, b in pairs if a != b), None)


# What is left, each class with who is right and why: a function of the first difference, (Python's, ours).
CLASSES = [
]


def judge(lines, show):
    counts, classes = collections.Counter(), collections.Counter()
    for message in messages_of(lines):
        parsed = email.message_from_bytes(message['raw'], policy=email.policy.compat32)
        try:
            theirs = list(python_reads(parsed, False))
        except Exception:
            counts['on which Python fails'] += 1
            continue
        agree = theirs == message['gmime']
        counts['on which Python and GMime agree' if agree else 'on which they do not'] += 1
        if theirs == message['we']:
            counts['agreed with both' if agree else 'agreed with Python'] += 1
            continue
        # RFC 2046 knows Latin 1; mail programs, and this library, read the code page of Windows under its name.
        if list(python_reads(parsed, True)) == message['we']:
            counts['agreed but for the code page' if agree else 'agreed with Python but for the code page'] += 1
            continue
        difference = first_difference(theirs, message['we'])
        found = next((row[0] for row in CLASSES if row[3](*difference)), None) if agree else 'not judged'
        classes[found] += 1
        if found is None or show:
            gmime = next((row for row in message['gmime'] if row == difference[1]), 'another reading')
            print(message['path'], message['offset'], 'agreed' if agree else '', 'Python', difference[0], 'we',
                  difference[1], 'GMime', gmime)
    for name, count in counts.items():
        print(f'{count:5} messages {name}')
    for row in CLASSES:
        print(f'{classes[row[0]]:5} {row[0]}; right: {row[1]}; {row[2]}')
    judged = counts['on which Python and GMime agree']
    agreed = counts['agreed with both'] + counts['agreed but for the code page']
    print(f'{100 * agreed / max(judged, 1):.2f} % agreed')
    return 1 if classes[None] or judged < 1000 or agreed < 0.995 * judged else 0


def main(tool, data, show=''):
    if not os.path.isdir(data):
        print('no folder of real mail beside the checkout')
        return SKIPPED
    with tempfile.TemporaryDirectory() as folder:
        paths = list(unpacked(data, folder))
        lines = subprocess.run([tool, *paths], stdout=subprocess.PIPE, check=True).stdout.decode().splitlines()
        return judge(lines, show)


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
