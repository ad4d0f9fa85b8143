#!/usr/bin/env python3
"""Times mailhost against an IMAP server beside a raw socket reader, Python's imaplib and mbsync.

    bench/mail/imap.py MAILHOST|IMAP_BENCH [MESSAGES [BYTES [OPTION...]]]

With the program imap_bench the library is timed by itself, without a process for each step and its start.  Starts
tests/support/dovecot with one mailbox of that many messages (10,000 of 11,000 bytes), and prints a line for each
measurement: what, seconds, and for mirrors the most memory.  The programs' starts are part of their times.  The raw
reader asks for the same envelopes and throws them away: nobody can be faster.  Wants an optimised build and a quiet
machine; what is compared is measured in one run.
"""
import imaplib
import os
import pathlib
import random
import resource
import shutil
import socket
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
ENVELOPES = b"1:* (UID FLAGS RFC822.SIZE BODY.PEEK[HEADER.FIELDS (DATE SUBJECT FROM)])"


def fill(folder, count, size):
    words = [f"word{i}" for i in range(5000)]
    mail = folder / "mail" / "anna" / "cur"
    for name in ("cur", "new", "tmp"):
        (mail.parent / name).mkdir(parents=True, exist_ok=True)
    chance = random.Random(1)
    for i in range(count):
        head = (f"From: Writer {i} <w{i}@x.example>\nDate: Fri, 23 Aug 2002 11:{i // 60 % 60:02}:{i % 60:02} +0200\n"
                f"Subject: Letter {i} of many\nMessage-ID: <{i}@x.example>\n\n")
        lines = []
        while sum(map(len, lines)) + len(head) < size:
            lines.append(" ".join(chance.choices(words, k=9)) + "\n")
        (mail / f"{1000000000 + i}.M{i}.bench:2,").write_text(head + "".join(lines))
    for path, folders, files in os.walk(mail.parent):
        for name in [path] + [os.path.join(path, file) for file in files]:
            shutil.chown(name, "nobody", "nogroup") if os.geteuid() == 0 else None


def timed(what, work):
    before = time.perf_counter()
    told = work()
    print(f"{what:44} {time.perf_counter() - before:7.3f} s  {told or ''}", flush=True)


def raw_envelopes(port):
    peer = socket.create_connection(("127.0.0.1", port))
    def ask(tag, command):
        peer.sendall(tag + b" " + command + b"\r\n")
        last, total = b"", 0
        while tag + b" OK" not in last:
            got = peer.recv(1 << 16)
            total += len(got)
            last = last[-200:] + got
        return total
    peer.recv(4096)
    ask(b"a", b"LOGIN anna secret")
    ask(b"b", b"SELECT INBOX")
    return f"{ask(b'c', b'FETCH ' + ENVELOPES)} bytes"


def imaplib_envelopes(port):
    client = imaplib.IMAP4("127.0.0.1", port)
    client.login("anna", "secret")
    client.select("INBOX")
    told = client.fetch("1:*", ENVELOPES[4:].decode())[1]
    client.logout()
    return f"{len(told)} pieces"


def run(*command):
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    out, errors = process.communicate()
    if process.returncode != 0:
        sys.exit(f"{command}: {errors[:500]}")
    memory = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss // 1024
    return f"{out.splitlines()[-1][:60] if out else ''} (up to {memory} MB)"


def mbsync_settings(folder, port):
    (folder / "sync").mkdir()
    (folder / "rc").write_text(f"""IMAPAccount a
Host 127.0.0.1
Port {port}
User anna
Pass secret
SSLType None
AuthMechs LOGIN

IMAPStore far
Account a

MaildirStore near
Path {folder}/sync/
Inbox {folder}/sync/INBOX
SubFolders Verbatim

Channel c
Far :far:
Near :near:
Create Near
SyncState *
""")
    return "mbsync", "-q", "-c", str(folder / "rc"), "c"


def main():
    program = os.path.abspath(sys.argv[1])
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 10_000
    size = int(sys.argv[3]) if len(sys.argv) > 3 else 11_000
    server = subprocess.Popen([sys.executable, ROOT / "tests/support/dovecot", "serve"], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, text=True)
    told = dict(pair.split("=", 1) for pair in server.stdout.readline().split())
    port, folder = int(told["imap"]), pathlib.Path(told["folder"])
    with tempfile.TemporaryDirectory() as place:
        home = pathlib.Path(place)
        host = (program, "--home", place, "--config", place)
        try:
            fill(folder, count, size)
            if os.path.basename(program) == "imap_bench":
                raw_envelopes(port)  # see below
                timed("imaplib: envelopes", lambda: imaplib_envelopes(port))
                subprocess.run([program, *sys.argv[4:]], check=True, env={**os.environ, "LORVALE_IMAP_PORT": str(port)})
                print("up to", resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss // 1024, "MB")
                if shutil.which("mbsync"):
                    timed("mbsync: mirror", lambda: run(*mbsync_settings(home, port)))
                return
            run(*host, "accounts", "add", "work", "--type", "imap", "--host", "127.0.0.1", "--port", str(port),
                "--user", "anna", "--security", "none", "--password-command", "echo secret")
            raw_envelopes(port)  # the server's own index is made by whoever comes first
            timed("raw reader: envelopes", lambda: raw_envelopes(port))
            timed("imaplib: envelopes", lambda: imaplib_envelopes(port))
            timed("mailhost: start", lambda: run(*host, "accounts"))
            timed("mailhost: envelopes, list written", lambda: run(*host, "sync", "work/INBOX", "--headers"))
            timed("mailhost: nothing new", lambda: run(*host, "sync", "work/INBOX", "--headers"))
            timed("mailhost: list, without the server",
                  lambda: run(*host, "--offline", "list", "work/INBOX", "--limit", "1"))
            timed("mailhost: mark all as read",
                  lambda: run(*host, "flag", "work/INBOX", *map(str, range(1, count + 1)), "--read"))
            timed("mailhost: mirror", lambda: run(*host, "sync", "work/INBOX", "--all"))
            if shutil.which("mbsync"):
                timed("mbsync: mirror", lambda: run(*mbsync_settings(home, port)))
        finally:
            server.stdin.close()
            server.wait()


if __name__ == "__main__":
    main()
