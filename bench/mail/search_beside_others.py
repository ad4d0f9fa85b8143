#!/usr/bin/env python3
"""search_beside_others.py MAILHOST MBOX[.xz] [COUNT]: indexes and searches COUNT messages (10,000) made of a flat
mailbox, with mailhost and beside it with notmuch and mu, in one run, and prints the figures and their ratios.

Each copy of a message beyond the first gets a subject and a Message-ID of its own.  A program that is not installed
is left out with a line that says so.  Peak memory is that of the process beyond what `mailhost info` takes.
"""
import lzma
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

QUERIES = ["perl", "linux kernel", "spam filter", "razor", "install package", "mailing list", "windows", "money",
           "network driver", "sound card", "apache", "python", "java", "license", "government", "university",
           "patch", "compile error", "mp3 player", "hard disk"]


def letters(path):
    data = lzma.open(path).read() if path.endswith(".xz") else open(path, "rb").read()
    return [b"From " + part for part in re.split(rb"(?:\A|\n)From (?=\S+ .*\d{4}\n)", data) if part.strip()]


def copy_of(letter, number, repeat):
    if repeat == 0:
        return letter
    head, blank, body = letter.partition(b"\n\n")
    head = re.sub(rb"(?im)^(subject:.*)$", rb"\1 copy%d" % number, head, count=1)
    head = re.sub(rb"(?im)^(message-id:\s*<)", rb"\1copy%d." % number, head, count=1)
    return head + blank + body


def run(command, may_fail=False, **options):
    """Seconds of the clock."""
    start = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, **options)
    _, error = process.communicate()
    seconds = time.perf_counter() - start
    if process.returncode != 0 and not may_fail:
        sys.exit(f"{' '.join(command[:3])}: {error.decode(errors='replace')[-400:]}")
    return seconds


def peak_of(command):
    """MiB; in a process of its own, since the system only tells the most of all children."""
    probe = ("import resource,subprocess,sys; subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, check=True); "
             "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)")
    return int(subprocess.check_output([sys.executable, "-c", probe, *command])) / 1024


def median_search(command_of):
    """In ms.  Some programs call it a failure when nothing is found."""
    return statistics.median(run(command_of(query), may_fail=True) for query in QUERIES for _ in range(3)) * 1000


def tell(name, count, seconds, search, ours=None):
    ratio = f"   {ours[0] / (count / seconds):5.1f} times, {search / ours[1]:.1f} times" if ours else ""
    print(f"{name:9} {count / seconds:8.0f} messages/s   search {search:6.1f} ms{ratio}")


def with_mailhost(mailhost, folder, mbox, count):
    box = os.path.join(folder, "box.mbox")
    run([mailhost, "import", mbox, box])
    seconds = run([mailhost, "index", box])
    search = median_search(lambda query: [mailhost, "search", query, box])
    tell("mailhost", count, seconds, search)
    idle = peak_of([mailhost, "info", box])
    os.remove(os.path.join(box, "mbox.index"))
    peak = peak_of([mailhost, "index", box])
    size = os.path.getsize(os.path.join(box, "mbox.index"))
    print(f"index {size:,} bytes, {size / os.path.getsize(mbox):.3f} of the mail as it stands; "
          f"memory {peak - idle:.1f} MiB above idle ({idle:.1f})")
    return count / seconds, search


def with_others(folder, count, ours):
    maildir = os.path.join(folder, "maildir")
    environment = dict(os.environ, HOME=folder, NOTMUCH_CONFIG=os.path.join(folder, "notmuch-config"),
                       XDG_CACHE_HOME=os.path.join(folder, "cache"))
    if shutil.which("notmuch"):
        with open(environment["NOTMUCH_CONFIG"], "w", encoding="ascii") as config:
            config.write(f"[database]\npath={maildir}\n[new]\ntags=new\n")
        seconds = run(["notmuch", "new", "--quiet"], env=environment)
        search = median_search(lambda query: ["notmuch", "--config", environment["NOTMUCH_CONFIG"], "search",
                                              "--limit=100", query])
        tell("notmuch", count, seconds, search, ours)
    else:
        print("notmuch is not installed: left out")
    if shutil.which("mu"):
        home = ["--muhome", os.path.join(folder, "mu")]
        run(["mu", "init", *home, "--maildir", maildir], env=environment)
        seconds = run(["mu", "index", "--quiet", *home], env=environment)
        search = median_search(lambda query: ["mu", "find", *home, "--maxnum=100", query])
        tell("mu", count, seconds, search, ours)
    else:
        print("mu is not installed: left out")


def main():
    mailhost, path = sys.argv[1:3]
    count = int(sys.argv[3]) if len(sys.argv) > 3 else 10_000
    originals = letters(path)
    with tempfile.TemporaryDirectory() as folder:
        maildir = os.path.join(folder, "maildir")
        for part in ("cur", "new", "tmp"):
            os.makedirs(os.path.join(maildir, part))
        mbox = os.path.join(folder, "mail")
        with open(mbox, "wb") as all_mail:
            for number in range(count):
                letter = copy_of(originals[number % len(originals)], number, number // len(originals))
                all_mail.write(letter.rstrip(b"\n") + b"\n\n")
                with open(os.path.join(maildir, "cur", f"{number:07}.x:2,S"), "wb") as one:
                    one.write(letter.partition(b"\n")[2])
        print(f"{count:,} messages, {os.path.getsize(mbox):,} bytes")
        with_others(folder, count, with_mailhost(mailhost, folder, mbox, count))


if __name__ == "__main__":
    main()
