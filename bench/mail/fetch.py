#!/usr/bin/env python3
"""How long it takes to bring mail from a POP3 server, beside Python's poplib and fetchmail where that is installed.

    fetch.py MAILHOST [MAILBOX [RUNS]]

MAILBOX is a flat mailbox (packed by xz if its name says so) of which the first 1,000 messages are served, letters of this
script without one.  All programs talk to the same server, which tests/support/dovecot starts, in turn; the best of RUNS
counts.  "The server" is how long that takes for the commands that mailhost sends, all at once, when nobody looks at its
answers.  mailhost does the most: it also puts the mail into a directory mailbox and lists it; "mailhost, spool" stops
before that, with the mail in a flat file, on the disk.  Each result is checked.
"""
import os
import pathlib
import poplib
import lzma
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time

LONGEST = 60    # seconds: a program that waits for an answer, or is far too slow, is left out
ROOT = pathlib.Path(__file__).resolve().parents[2]
COUNT = 1000


def letters(mailbox):
    if mailbox is None:
        return [b"From: a@b.example\nReceived: x; Thu, 22 Aug 2002 12:46:23 +0000\nSubject: %d\n\n" % i + b"hello\n" * 700
                for i in range(COUNT)]
    opened = lzma.open if mailbox.endswith(".xz") else open
    with opened(mailbox, "rb") as file:
        data = file.read(40 * COUNT * COUNT)
    entries = re.split(rb"(?:\A|(?<=\n))From [^\n]*\n", data)[1:COUNT + 1]
    return entries


def deliver(folder, messages):
    place = folder / "mail" / "anna"
    owner = (folder / "mail").stat()
    for made in (place, *(place / name for name in ("cur", "new", "tmp"))):
        made.mkdir()
    for number, message in enumerate(messages):
        (place / "new" / f"{10 ** 9 + number}.M{number}P1.bench").write_bytes(message)
    if os.geteuid() == 0:
        for path in (place, *place.rglob("*")):
            os.chown(path, owner.st_uid, owner.st_gid)


def by_nobody(port, _):
    """What the server takes: everything is asked for at once, and what comes is counted and thrown away."""
    with socket.create_connection(("127.0.0.1", port)) as server:
        lines = server.makefile("rb")
        lines.readline()
        for command in ("USER anna", "PASS secret", "STAT"):
            server.sendall(command.encode() + b"\r\n")
            answer = lines.readline()
        count = int(answer.split()[1])
        asked = "LIST\r\nUIDL\r\n" + "".join(f"TOP {n} 0\r\nRETR {n}\r\n" for n in range(1, count + 1)) + "QUIT\r\n"
        threading.Thread(target=server.sendall, args=(asked.encode(),)).start()
        room, ends, last = bytearray(1 << 18), 0, b""
        while size := server.recv_into(room):
            last = last[-4:] + room[:size]
            ends += last.count(b"\r\n.\r\n")
            last = bytes(last)
        return (ends - 2) // 2


def by_poplib(port, work):
    server = poplib.POP3("127.0.0.1", port)
    server.user("anna")
    server.pass_("secret")
    with open(work / "spool", "wb") as spool:
        for number in range(1, len(server.list()[1]) + 1):
            spool.write(b"From a@b Thu Aug 22 12:46:23 2002\n")
            spool.write(b"\n".join(server.retr(number)[1]) + b"\n")
        os.fsync(spool.fileno())
    server.quit()
    return (work / "spool").read_bytes().count(b"\nFrom a@b Thu Aug 22 12:46:23 2002\n") + 1


def by_fetchmail(port, work):
    settings = work / "fetchmailrc"
    settings.write_text(f"poll 127.0.0.1 protocol pop3 service {port} user anna password secret keep fetchall "
                        f"sslproto ''\n")
    settings.chmod(0o600)
    subprocess.run(["fetchmail", "-f", settings, "--bsmtp", work / "out", "--pidfile", work / "pid"], check=True,
                   env={**os.environ, "FETCHMAILHOME": str(work)}, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                   timeout=LONGEST)
    return len(re.findall(rb"^DATA\r?$", (work / "out").read_bytes(), re.M))


def run_mailhost(program, port, work, *options):
    home = ["--home", work, "--config", work / "config", "-o", f"MailDir={work}"]
    subprocess.run([program, *home, "fetch", "--pop", f"127.0.0.1:{port}", "--user", "anna", "--password-command",
                    "echo secret", *options], check=not options, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                   timeout=LONGEST)
    return home


def into_the_spool(program, port, work):
    run_mailhost(program, port, work, "--state", work / "pop", "--into", "/proc/there-is-no-such.mbox")
    return len(re.findall(rb"^From ", (work / "pop/POPSpoolFile").read_bytes(), re.M))


def by_mailhost(program, port, work):
    home = run_mailhost(program, port, work)
    listed = subprocess.run([program, *home, "list", work / "Active.mbox", "--json"], check=True, capture_output=True)
    return listed.stdout.count(b"\n")


def main():
    program = pathlib.Path(sys.argv[1]).resolve()
    messages = letters(sys.argv[2] if len(sys.argv) > 2 else None)
    runs = int(sys.argv[3]) if len(sys.argv) > 3 else 5
    ways = {"the server": by_nobody, "poplib": by_poplib,
            "mailhost, spool": lambda port, work: into_the_spool(program, port, work),
            "mailhost": lambda port, work: by_mailhost(program, port, work)}
    if shutil.which("fetchmail"):
        ways["fetchmail"] = by_fetchmail
    script = subprocess.Popen([ROOT / "tests/support/dovecot", "serve"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              text=True)
    told = dict(word.split("=", 1) for word in script.stdout.readline().split() if "=" in word)
    if "pop3" not in told:
        sys.exit("there is no server to fetch from")
    try:
        deliver(pathlib.Path(told["folder"]), messages)
        best = {}
        for _ in range(runs):
            for name, fetch in list(ways.items()):
                with tempfile.TemporaryDirectory() as work:
                    start = time.perf_counter()
                    try:
                        count = fetch(int(told["pop3"]), pathlib.Path(work))
                    except subprocess.TimeoutExpired:
                        print(f"{name:15} is left out: it took more than {LONGEST} s")
                        del ways[name]
                        continue
                    taken = time.perf_counter() - start
                if count != len(messages):
                    sys.exit(f"{name} brought {count} of {len(messages)} messages")
                best[name] = min(best.get(name, taken), taken)
        for name, taken in best.items():
            print(f"{name:15} {taken:6.3f} s  {best['poplib'] / taken:5.2f} times poplib")
    finally:
        script.stdin.close()
        script.wait()


if __name__ == "__main__":
    main()
