"""The template pairs as the firmware reads them, written anew from their description: the judge of what the tool saves."""

import ctypes
import fcntl
import os
import pathlib
import struct

FILES, SECTORS = 2, 1
NAMES = {FILES: "bootfile", SECTORS: "bootsect"}
SIZES = {FILES: 256, SECTORS: 5}


def header(magic, kind, count, tail):
    """1,024 bytes: words at their offsets, zeros between them."""
    words = {0x04: 1, 0x08: 7, 0x0C: 1, 0x54: 1, 0x9C: 1, 0x10C: kind, 0x110: count, 0x114: SIZES[kind], **tail}
    data = bytearray(magic.ljust(1024, b"\0"))
    for offset, value in words.items():
        struct.pack_into("<I", data, offset, value)
    return data


def expected(kind, records, directory):
    """Both files of a pair; directory is the template directory as the firmware names it, with its separator; bytes."""
    records = [struct.pack("256s", record) if kind == FILES else struct.pack("<BI", *record) for record in records]
    check = header(b"SNCV", kind, len(records), {0x118: 7, 0x11C: 1, 0x120: 3, 0x124: 1, 0x1A8: 1})
    path = directory + f"{NAMES[kind]}.nam".encode()
    check[0x128:0x128 + len(path)] = path
    return (bytes(header(b"SNON", kind, len(records), {0x11C: 0xFF})) + b"".join(records),
            bytes(check) + bytes(4 * len(records)))


def read(kind, directory):
    return tuple(pathlib.Path(directory, f"{NAMES[kind]}.{extension}").read_bytes() for extension in ("nam", "chk"))


def short_names(root, path):
    """A path on a mounted FAT volume in the 8.3 names that the kernel reads from its directories (code page 866)."""
    short, directory = [], root
    for name in path.split("/"):
        handle = os.open(directory, os.O_RDONLY | os.O_DIRECTORY)
        entries = ctypes.create_string_buffer(560)  # the kernel's VFAT_IOCTL_READDIR_BOTH: short and long entry
        found = None
        while not found and fcntl.ioctl(handle, 0x82307201, entries) > 0:
            both = [entries.raw[start + 18:start + 280].split(b"\0")[0].decode() for start in (0, 280)]
            if name in both:
                found = both[0]
        os.close(handle)
        short.append(found.upper().encode("cp866"))
        directory += "/" + name
    return b"\\".join(short)
