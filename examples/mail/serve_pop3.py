#!/usr/bin/env python3
"""serve_pop3.py MAILBOX: a POP3 server for demo.sh, which nobody reaches but programs on this machine.

Prints its port, and serves the messages of a flat mailbox to whoever comes, until its standard input ends.
"""
import re
import socketserver
import sys
import threading

ENTRIES = re.split(rb"(?:\A|(?<=\n))From [^\n]*\n", open(sys.argv[1], "rb").read())[1:]
MESSAGES = [entry.rstrip(b"\n").replace(b"\n", b"\r\n") + b"\r\n" for entry in ENTRIES]


def multiline(text):
    return b"+OK\r\n" + re.sub(rb"(?m)^\.", b"..", text) + b".\r\n"


def listing(facts):
    return multiline(b"".join(b"%d %s\r\n" % (number, fact) for number, fact in enumerate(facts, 1)))


class Conversation(socketserver.StreamRequestHandler):
    def handle(self):
        self.wfile.write(b"+OK\r\n")
        for line in self.rfile:
            command, *arguments = line.decode("latin-1").upper().split() or [""]
            self.wfile.write(self.answer(command, arguments))
            if command == "QUIT":
                break

    def answer(self, command, arguments):
        if command in ("USER", "PASS", "QUIT"):
            return b"+OK\r\n"
        if command == "STAT":
            return b"+OK %d %d\r\n" % (len(MESSAGES), sum(map(len, MESSAGES)))
        if command == "LIST" and not arguments:
            return listing(b"%d" % len(message) for message in MESSAGES)
        if command == "UIDL" and not arguments:
            return listing(b"%d-%d" % (number, len(message)) for number, message in enumerate(MESSAGES))
        if command in ("TOP", "RETR") and arguments and arguments[0] in map(str, range(1, len(MESSAGES) + 1)):
            message = MESSAGES[int(arguments[0]) - 1]
            return multiline(message if command == "RETR" else message.partition(b"\r\n\r\n")[0] + b"\r\n")
        return b"-ERR\r\n"


with socketserver.ThreadingTCPServer(("127.0.0.1", 0), Conversation) as server:
    server.daemon_threads = True
    print(server.server_address[1], flush=True)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    sys.stdin.read()
