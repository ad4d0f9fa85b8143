"""Sends the messages of a file, each behind its length in decimal and a newline, by smtplib to 127.0.0.1:PORT, and prints
the seconds that took.

    smtplib_client.py PORT FILE
"""
import smtplib
import sys
import time

with open(sys.argv[2], "rb") as file:
    messages = []
    while line := file.readline():
        messages.append(file.read(int(line)))
begin = time.perf_counter()
with smtplib.SMTP("127.0.0.1", int(sys.argv[1])) as client:
    for message in messages:
        client.sendmail("a@x.example", ["b@x.example"], message)
print(time.perf_counter() - begin)
