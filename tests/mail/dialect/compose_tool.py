"""Lets Python's email package read the letters that the library composes: compose_tool.py TOOL"""

import email
import email.policy
import glob
import io
import subprocess
import sys
import tempfile
import zipfile

faults = []


def leaves(part):
    if part.get_content_maintype() == 'multipart':
        for child in part.iter_parts():
            yield from leaves(child)
    else:
        yield part


def unflowed(text):
    """RFC 3676, section 4.2."""
    paragraphs, flows, depth = [], False, 0
    for line in text.split('\n'):
        marks = len(line) - len(line.lstrip('>'))
        line = line[marks:].removeprefix(' ')
        if flows and marks == depth and line != '-- ':
            paragraphs[-1] += line
        else:
            paragraphs.append('>' * marks + (' ' if marks and line else '') + line)
        flows, depth = line.endswith(' ') and line != '-- ', marks
    return '\n'.join(paragraphs)


def text_of(part):
    text = part.get_payload(decode=True).decode(part.get_content_charset())
    return unflowed(text) if part.get_param('format') == 'flowed' else text


def judge(path):
    def expect(what, is_, wanted):
        if is_ != wanted:
            faults.append(f'{path}: {what} is {is_!r}, not {wanted!r}'[:500])

    raw = open(path + '.eml', 'rb').read()
    message = email.message_from_bytes(raw, policy=email.policy.default)
    told = [line.split(' ') for line in open(path + '.told').read().splitlines()]
    plain = bytes.fromhex
    parts, standard = list(leaves(message)), told[0][1] == 'standard'
    for line in raw.split(b'\n'):
        if len(line) > (78 if standard else 998) and b' ' in line[1:]:
            faults.append(f'{path}: a long line {line[:100]!r}')
    if standard:
        expect('from', [(a.display_name, a.addr_spec) for a in message['from'].addresses], [('Jané, 日本', 'me@x.example')])
        expect('to', [a.addr_spec for a in message['to'].addresses], ['a@x.example', 'b@x.example'])
        expect('defects', [d for part in message.walk() for d in part.defects], [])
        expect('date', message['date'].datetime is not None, True)
    found = 0
    for key, *values in told[1:]:
        if key == 'subject':
            expect(key, str(message['subject']), plain(values[0]).decode())
        elif key == 'text':
            expect(key, text_of(parts[0]), plain(values[0].replace('-', '')).decode())
        elif key == 'leaf':
            part, found = parts[found], found + 1
            kind, name, content = values
            name = plain(name.replace('-', '')).decode()
            expect('type', part.get_content_type(), kind)
            if standard or name.isascii() and '"' not in name:
                expect('name', part.get_filename() or '' if kind != 'message/external-body' else part.get_param('name'), name)
            if content != '*':
                expect('bytes', part.get_payload(decode=True), plain(content.replace('-', '')))
        elif key == 'zip' and standard:
            archive = zipfile.ZipFile(io.BytesIO(parts[-1].get_payload(decode=True)))
            expect('zip', archive.namelist(), plain(values[0]).decode().split(' '))
            expect('checksums', archive.testzip(), None)
            expect('link', archive.read(archive.namelist()[-1]).decode(), 'to/日')
            expect('mode', archive.infolist()[-1].external_attr >> 28, 0o12)
    expect('count of parts', len(parts), found)


with tempfile.TemporaryDirectory() as folder:
    subprocess.run([sys.argv[1], folder], check=True, timeout=60)
    letters = sorted(glob.glob(folder + '/*.eml'))
    for letter in letters:
        judge(letter.removesuffix('.eml'))
    print(len(letters), 'letters')
print('\n'.join(faults))
sys.exit(1 if faults or len(letters) < 40 else 0)
