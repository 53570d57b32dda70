#!/usr/bin/env python3
"""Shows the report records of a q7 in net mode: reads them from a FIFO or a file, checks their
layout and prints their texts as UTF-8. This file needs nothing but Python 3:

    python3 reader.py /var/q7.fifo

A FIFO without a writer is waited for. Exit status: 0 = the end marker has come, 1 = a record is
cut off or invalid, 2 = the input cannot be read or the texts cannot be written, 3 = the input has
ended between two records, before the end marker.
"""
import itertools
import struct
import sys

BAD_RECORD, INPUT_OUTPUT, NO_END_MARKER = 1, 2, 3

HEADER = struct.Struct("<II")  # type and length
LONGEST_TEXT = 1023
END_MARKER = b"Q7TESTEND"


def fail(status, why):
    print(f"reader.py: {why}", file=sys.stderr)
    sys.exit(status)


def next_text(source, number):
    """The text of the next record, as q7 sent it; records are counted from 1.

    read() puts together what comes in pieces and keeps what comes too early, so a record may be
    spread over several reads, and one read may bring several records. Fewer bytes than asked for
    mean the end of the input: nobody has the FIFO open for writing any more.
    """
    record = f"record {number}"
    header = source.read(HEADER.size)
    if not header:
        fail(NO_END_MARKER, f"the input ends before {record}, without end marker")
    if len(header) < HEADER.size:
        fail(BAD_RECORD, f"{record} is cut off in its header")
    kind, length = HEADER.unpack(header)
    if kind != 0:
        fail(BAD_RECORD, f"{record} has type {kind}")
    if length > LONGEST_TEXT:
        fail(BAD_RECORD, f"{record} has length {length}")
    text = source.read(length)
    if len(text) < length:
        fail(BAD_RECORD, f"{record} is cut off in its text")
    if b"\0" in text:
        fail(BAD_RECORD, f"{record} has a zero in its text")
    return text


def show(source, output):
    for number in itertools.count(1):
        text = next_text(source, number)
        if text == END_MARKER:
            return
        # Bytes that are no character become U+FFFD: the texts of disks are sent as the disks
        # give them.
        output.write(text.decode("gbk", "replace").encode())
        output.flush()


def main():
    if len(sys.argv) != 2:
        fail(INPUT_OUTPUT, "usage: reader.py FIFO-OR-FILE")
    try:
        with open(sys.argv[1], "rb") as source:
            show(source, sys.stdout.buffer)
    except OSError as error:
        fail(INPUT_OUTPUT, error)


if __name__ == "__main__":
    main()
