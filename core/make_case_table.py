#!/usr/bin/env python3
"""Writes core/case_table.inc: simple case mapping of the 16-bit characters, from Python's own Unicode data.

    python3 core/make_case_table.py > core/case_table.inc

A character is mapped by its difference to the mapped one, modulo 65536. The characters are cut into blocks of 64;
equal blocks are stored once, and an index leads from the block's number to the stored block.
"""
import sys
import unicodedata

BLOCK = 64


def simple(ch, full, title):
    """One-character mapping: the full one where it is one, else the title-case form (the iota-subscript letters)."""
    for mapped in (full, title):
        if len(mapped) == 1:
            return mapped
    return ch


def lower(code):
    if 0xD800 <= code < 0xE000:
        return code
    if code == 0x130:  # Its full mapping keeps the dot as a second character; the simple one is plain i.
        return 0x69
    return ord(simple(chr(code), chr(code).lower(), ""))


def upper(code):
    if 0xD800 <= code < 0xE000:
        return code
    mapped = ord(simple(chr(code), chr(code).upper(), chr(code).title()))
    return mapped if mapped < 0x10000 else code


def write_numbers(kind, name, numbers):
    print(f"constexpr {kind} {name}[] = {{")
    line = "   "
    for number in numbers:
        if len(line) + len(str(number)) + 2 > 120:
            print(line)
            line = "   "
        line += f" {number},"
    print(line)
    print("};")


def main():
    print(f"// Written by make_case_table.py from Unicode {unicodedata.unidata_version}; change that, not this.")
    print("// clang-format off")
    print(f"constexpr unsigned caseBlockSize = {BLOCK};")
    stored = []
    for name, mapping in (("lowerIndex", lower), ("upperIndex", upper)):
        index = []
        for start in range(0, 0x10000, BLOCK):
            block = tuple((mapping(code) - code) % 0x10000 for code in range(start, start + BLOCK))
            if block not in stored:
                stored.append(block)
            index.append(stored.index(block))
        write_numbers("uint8_t", name, index)
    if len(stored) > 256:
        sys.exit("the index needs a wider type")
    write_numbers("uint16_t", "caseDifference", [number for block in stored for number in block])
    print("// clang-format on")


if __name__ == "__main__":
    main()
