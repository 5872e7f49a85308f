#!/usr/bin/env python3
"""Prints store-urls.tsv: how Windows Search names a store, worked out apart from the library.

Columns: the identifier's bytes, the name's UTF-16 code units, the hash, the code units of "name(hash)/" as it stands
in the URL; all in hexadecimal, "-" for none. A last column shows the name to a human reader.
"""

import random

ESCAPED = {"%": "%25", "*": "%2A", "/": "%2F", "?": "%3F", "\\": "%5C"}


def store_hash(identifier):
    # Terms of a polynomial in 33, highest first: whole little-endian words, then single bytes.
    words = len(identifier) // 4
    terms = [int.from_bytes(identifier[4 * i:4 * i + 4], "little") for i in range(words)]
    terms += list(identifier[4 * words:])
    return sum(term * 33 ** (len(terms) - 1 - i) for i, term in enumerate(terms)) % 2 ** 32


def units(text):
    data = text.encode("utf-16-le", "surrogatepass")
    return " ".join("%04X" % int.from_bytes(data[i:i + 2], "little") for i in range(0, len(data), 2)) or "-"


def row(identifier, name):
    digits = "%x" % store_hash(identifier)
    escaped = "".join(ESCAPED.get(character, character) for character in name)
    print(identifier.hex() or "-", units(name), digits, units(escaped + "(" + digits + ")/"), ascii(name), sep="\t")


def main():
    chance = random.Random(33)
    for size in range(10):
        row(bytes(size), "zeros")
        row(b"\xff" * size, "ones")
        row(bytes(range(1, size + 1)), "counted")
        row(bytes(chance.randrange(256) for _ in range(size)), "random")
    row(bytes.fromhex("0100000002"), "Archive/Mail")
    row(bytes(chance.randrange(256) for _ in range(1000)), "a long identifier")
    row(bytes.fromhex("00000080" * 64), "words with their highest bit set")

    key = bytes.fromhex("38a1bb1005e5101aa1bb08002b2a56c2")
    for name in ["", "a%b", "x*y?z\\w", "%*/?\\", "%25", "100% (old) [x] {y}", "a b+c&d=e#f:g;h\"i'j<k>l|m~n`o^p",
                 "".join(map(chr, range(1, 128))), "".join(map(chr, range(128, 256))),
                 "\u0125\u012a\u012f\u013f\u015c", "\u2525\uff0f\uff05\u2044",
                 "Archív für Müller €", "漢字/かな", "\U0001f5c4", "\U0001f5c4/\U0010ffff%\U00010000",
                 "\ud83d", "\uddc4", "a\ud83d/\uddc4b", "\uddc4\ud83d", "\ud825%\udc2f", "\ufeff\ufffe\uffff",
                 "x" * 300, "/" * 300]:
        row(key, name)


main()
